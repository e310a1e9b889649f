// orvanta_sample DIR N: makes a library of N made-up skills.
// orvanta_sample --home DIR N: makes a home of N folders, some of which are projects with skills.

#include <cstdlib>
#include <exception>
#include <iostream>
#include <string_view>

#include "bench/SampleLibrary.h"

int main(int argc, char** argv) {
  const bool home = argc == 4 && std::string_view(argv[1]) == "--home";
  if (argc != 3 && !home) {
    std::cerr << "usage: orvanta_sample [--home] DIR N\n";
    return 2;
  }
  try {
    const auto make = home ? orvanta::bench::makeSampleHome : orvanta::bench::makeSampleLibrary;
    make(argv[argc - 2], std::strtoul(argv[argc - 1], nullptr, 10));
  } catch (const std::exception& error) {
    std::cerr << "orvanta_sample: " << error.what() << '\n';
    return 1;
  }
  return 0;
}
