// JSON in the library's database, which another program may have changed or somebody else may have made: it is read as
// it would be written again, or named as unreadable.

#include "agents/ToolAdapters.h"
#include "foundations/ForeignJSON.h"
#include "foundations/Text.h"
#include "fuzz/Fuzzing.h"
#include "persistence/SkillStore.h"

namespace {

using namespace orvanta;  // NOLINT(google-build-using-namespace)
using fuzzing::require;

void write(SkillStore& store, const ToolOverrides& overrides) {
  store.setJSONSetting("custom_tool_paths", std::optional(overrides.pathOverrides));
  store.setJSONSetting("custom_tool_project_paths", std::optional(overrides.projectPathOverrides));
  store.setJSONSetting("custom_tools", std::optional(overrides.customTools));
  store.setJSONSetting("disabled_tools", std::optional(overrides.disabled));
  store.setJSONSetting("agent_order", std::optional(overrides.order));
}

void checkOverrides(SkillStore& store) {
  const auto overrides = store.toolOverrides();
  require(ToolAdapters::all(overrides).size() == ToolAdapters::builtin().size() + overrides.customTools.size());
  write(store, overrides);
  require(store.toolOverrides() == overrides);
}

// As the answers of the community directory are kept.
void checkKeptAnswer(std::string_view text) {
  try {
    const auto skills = parseForeignJSON(text).get<std::vector<PlazzaSkill>>();
    require(Json::parse(jsonText(skills)).get<std::vector<PlazzaSkill>>() == skills);
  } catch (const Json::exception&) {
    return;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static SkillStore store = SkillStore::inMemory();
  const auto text = fuzzing::textOf(data, size);
  for (const std::string key :
       {"custom_tool_paths", "custom_tool_project_paths", "custom_tools", "disabled_tools", "agent_order"}) {
    write(store, {});
    store.setSetting(key, std::string(text));
    fuzzing::allowing(SkillsError::Kind::database, [] { checkOverrides(store); });
  }
  store.setSetting("any", std::string(text));
  fuzzing::allowing(SkillsError::Kind::database, [] {
    const auto json = store.jsonSetting<Json>("any");
    store.setJSONSetting("any", json);
    require(store.jsonSetting<Json>("any") == json);
  });
  checkKeptAnswer(text);
  return 0;
}
