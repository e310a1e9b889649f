// Feeds arbitrary bytes to the readers of the community directory's answers.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "foundations/ModelsJSON.h"
#include "foundations/SkillsError.h"
#include "sources/PlazzaAPI.h"

namespace {

void check(const std::vector<orvanta::PlazzaSkill>& skills) {
  for (const auto& skill : skills) {
    if (skill.source.empty() || skill.skillId.empty() || skill.name.empty() || skill.id.empty() || skill.installs < 0) {
      std::abort();
    }
  }
  if (orvanta::Json::parse(orvanta::jsonText(skills)).get<std::vector<orvanta::PlazzaSkill>>() != skills) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast)
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  check(orvanta::PlazzaAPI::parseLeaderboardHTML(text));
  try {
    check(orvanta::PlazzaAPI::parseSearchJSON(text));
  } catch (const orvanta::SkillsError& error) {
    if (error.kind() != orvanta::SkillsError::Kind::network) std::abort();
  }
  return 0;
}
