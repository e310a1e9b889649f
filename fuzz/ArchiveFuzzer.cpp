// Whatever bytes claim to be an archive, unpacking them ends, stays in its folder and leaves nothing when it fails.

#include "fuzz/Unpacking.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace orvanta;  // NOLINT(google-build-using-namespace)
  fuzzing::unpack(fuzzing::textOf(data, size), [](const std::filesystem::path& folder) {
    Archive::stripSymlinks(folder);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
      fuzzing::require(!entry.is_symlink());
    }
  });
  return 0;
}
