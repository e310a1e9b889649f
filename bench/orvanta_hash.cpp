// orvanta_hash DIR: prints the fingerprint of every skill in a folder, as the program computes them.

#include <algorithm>
#include <iostream>

#include "content/ContentHash.h"
#include "files/FS.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: orvanta_hash DIR\n";
    return 2;
  }
  auto folders = orvanta::FS::children(argv[1]);
  std::sort(folders.begin(), folders.end());
  const auto hashes = orvanta::ContentHash::hashDirectories(folders);
  for (std::size_t i = 0; i < folders.size(); ++i) {
    std::cout << hashes[i].value_or("unreadable") << "  " << folders[i].filename().string() << '\n';
  }
  return std::count(hashes.begin(), hashes.end(), std::nullopt) == 0 ? 0 : 1;
}
