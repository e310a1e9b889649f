// Whatever a remote holds as the manifest, reading it ends, and what was read is written so that it reads the same.

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "sources/BackupManifest.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using orvanta::BackupManifest;
  const auto manifest = BackupManifest::parse({reinterpret_cast<const char*>(data), size});
  if (!manifest || manifest->isOfLaterFormat()) return 0;
  if (BackupManifest::parse(manifest->text()) != manifest) std::abort();
  if (manifest->joinedWith(*manifest) != *manifest) std::abort();
  return 0;
}
