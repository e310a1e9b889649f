// Feeds arbitrary bytes to the reader of ZIP directories.

#include <unistd.h>

#include <cstdio>

#include "fuzz/Fuzzing.h"
#include "sources/ZipDirectory.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace orvanta;  // NOLINT(google-build-using-namespace)
  static const int fd = ::fileno(std::tmpfile());
  fuzzing::require(::ftruncate(fd, 0) == 0 && ::pwrite(fd, data, size, 0) == static_cast<ssize_t>(size));
  fuzzing::allowing(SkillsError::Kind::invalidInput, [&] {
    ZipDirectory::forEachEntry(
        fd, [&](const ZipEntry& entry) { fuzzing::require(entry.name.size() + entry.unicodeName.size() <= size); });
  });
  return 0;
}
