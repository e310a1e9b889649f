// The file with the user's choice of a library: whatever it holds, a choice can be read and saved.

#include "files/FS.h"
#include "files/Paths.h"
#include "fuzz/Fuzzing.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace orvanta;  // NOLINT(google-build-using-namespace)
  static const auto root = fuzzing::scratchFolder();
  static const UserFolders user{.home = root / "home", .config = root / "config", .temp = root};
  const auto file = Paths::configFile(user);
  FS::createDirectories(file.parent_path());
  fuzzing::writeFile(file, fuzzing::textOf(data, size));
  const auto chosen = Paths::resolveDefault(user, std::nullopt);
  fuzzing::require(chosen.base().is_absolute() && Paths(chosen.base()) == chosen);
  Paths::writeRepoPath(user, chosen.base());
  fuzzing::require(Paths::resolveDefault(user, std::nullopt) == chosen);
  Paths::writeRepoPath(user, std::nullopt);
  fuzzing::require(Paths::resolveDefault(user, std::nullopt).base() == Paths::defaultBase(user));
  return 0;
}
