// Whatever a remote holds as the manifest, reading it ends, and what was read is written so that it reads the same.

#include "fuzz/Fuzzing.h"
#include "sources/BackupManifest.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace orvanta;  // NOLINT(google-build-using-namespace)
  const auto manifest = BackupManifest::parse(fuzzing::textOf(data, size));
  if (!manifest || manifest->isOfLaterFormat()) return 0;
  fuzzing::require(BackupManifest::parse(manifest->text()) == manifest);
  fuzzing::require(manifest->joinedWith(*manifest) == *manifest);
  return 0;
}
