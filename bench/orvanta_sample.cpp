// orvanta_sample DIR N: makes a library of N made-up skills.

#include <cstdlib>
#include <exception>
#include <iostream>

#include "bench/SampleLibrary.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: orvanta_sample DIR N\n";
    return 2;
  }
  try {
    orvanta::bench::makeSampleLibrary(argv[1], std::strtoul(argv[2], nullptr, 10));
  } catch (const std::exception& error) {
    std::cerr << "orvanta_sample: " << error.what() << '\n';
    return 1;
  }
  return 0;
}
