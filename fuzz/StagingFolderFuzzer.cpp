// What a folder in the library says is about to become skills: only names of skills' folders are believed.

#include "content/SkillMetadata.h"
#include "fuzz/Fuzzing.h"
#include "sources/StagingFolder.h"

namespace {

using namespace orvanta;  // NOLINT(google-build-using-namespace)
using fuzzing::require;

bool isSame(const StagingFolder::Announced& a, const StagingFolder::Announced& b) {
  return a.name == b.name && a.identity == b.identity && a.stamp == b.stamp;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const StagingFolder left(fuzzing::scratchFolder());
  static const auto folder = left.slot(0).parent_path();
  fuzzing::writeFile(folder / "announced.json", fuzzing::textOf(data, size));
  const auto skills = StagingFolder::announced(folder);
  for (const auto& skill : skills) require(SkillMetadata::isSafeFolderName(skill.name));
  if (skills.empty()) return 0;
  left.announce(skills);
  const auto again = StagingFolder::announced(folder);
  require(std::equal(skills.begin(), skills.end(), again.begin(), again.end(), isSame));
  return 0;
}
