// Feeds arbitrary bytes to the readers of the community directory's answers.

#include "foundations/ModelsJSON.h"
#include "foundations/Text.h"
#include "fuzz/Fuzzing.h"
#include "sources/PlazzaAPI.h"

namespace {

using namespace orvanta;  // NOLINT(google-build-using-namespace)
using fuzzing::require;

void check(const std::vector<PlazzaSkill>& skills) {
  for (const auto& skill : skills) {
    require(!skill.source.empty() && !skill.skillId.empty() && !skill.name.empty() && !skill.id.empty());
    require(skill.installs >= 0);
    for (const auto& text : {skill.source, skill.skillId, skill.name, skill.id}) require(Text::isValidUTF8(text));
  }
  require(Json::parse(jsonText(skills)).get<std::vector<PlazzaSkill>>() == skills);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto text = fuzzing::textOf(data, size);
  check(PlazzaAPI::parseLeaderboardHTML(text));
  fuzzing::allowing(SkillsError::Kind::network, [&] { check(PlazzaAPI::parseSearchJSON(text)); });
  return 0;
}
