// Feeds arbitrary bytes to the reader of ZIP directories.

#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "foundations/SkillsError.h"
#include "sources/ZipDirectory.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const int fd = ::fileno(std::tmpfile());
  if (::ftruncate(fd, 0) != 0 || ::pwrite(fd, data, size, 0) != static_cast<ssize_t>(size)) std::abort();
  try {
    orvanta::ZipDirectory::forEachEntry(fd, [size](const orvanta::ZipEntry& entry) {
      if (entry.name.size() + entry.unicodeName.size() > size) std::abort();
    });
  } catch (const orvanta::SkillsError& error) {
    if (error.kind() != orvanta::SkillsError::Kind::invalidInput) std::abort();
  }
  return 0;
}
