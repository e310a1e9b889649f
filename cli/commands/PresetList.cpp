#include <algorithm>
#include <map>

#include <fmt/format.h>

#include "cli/Format.h"
#include "cli/Names.h"
#include "cli/Output.h"
#include "cli/Table.h"
#include "cli/commands/Common.h"
#include "cli/commands/Presets.h"
#include "foundations/Text.h"

namespace orvanta::cli {

namespace {

using TextsBySkill = std::map<std::string, std::vector<std::string>>;

struct ShowOptions {
  std::string preset;
};

struct ReorderOptions {
  std::vector<std::string> presets;
};

Cell nameCell(const Preset& preset, bool isActive) {
  if (isActive) return {preset.name + " (active)", Style::good};
  return {preset.name, Style::strong};
}

Cell deployedCell(const PresetActivation& activation) {
  if (activation.total == 0) return {"-", Style::faint};
  return {deployedText(activation), activation.isComplete() ? Style::good : Style::plain};
}

ExitStatus list(Session& session) {
  SkillsEngine& engine = session.engine();
  const auto presets = engine.presets();
  auto activations = engine.presetActivations();
  const std::string active = engine.activePresetId().value_or("");
  if (session.json()) {
    JsonArray array(session.out().stream());
    for (const Preset& preset : presets) {
      array.add(presetAsJson(preset, activations[preset.id], preset.id == active));
    }
    return ExitStatus::done;
  }
  Table table({{"NAME", true}, {"SKILLS", false, true}, {"DEPLOYED"}, {"DESCRIPTION", true}});
  for (const Preset& preset : presets) {
    table.add({nameCell(preset, preset.id == active), fmt::format("{}", preset.skillIds.size()),
               deployedCell(activations[preset.id]), preset.description.value_or("")});
  }
  table.write(session.out());
  if (presets.empty()) {
    session.out().line("There is no preset. 'orvanta preset create NAME SKILL…' makes one.");
  }
  return ExitStatus::done;
}

TextsBySkill wantedAgents(SkillsEngine& engine, const Preset& preset) {
  TextsBySkill agents;
  for (SkillToolPair& pair : engine.desiredPairs(preset)) agents[pair.skillId].push_back(std::move(pair.tool));
  return agents;
}

std::string switchedOffFor(const Preset& preset, const std::string& skillId) {
  const auto toggles = preset.toolToggles.find(skillId);
  if (toggles == preset.toolToggles.end()) return "";
  std::vector<std::string> agents;
  for (const auto& [agent, isWanted] : toggles->second) {
    if (!isWanted) agents.push_back(agent);
  }
  return Text::join(agents, ", ");
}

void writeMembers(Session& session, const Preset& preset) {
  auto agents = wantedAgents(session.engine(), preset);
  std::map<std::string, SkillRecord> records;
  for (SkillRecord& record : session.engine().skills()) records.emplace(record.id, std::move(record));
  const auto wantedCell = [&](const std::string& id) -> Cell {
    const auto found = records.find(id);
    if (found == records.end()) return {"not in the library any more", Style::bad};
    if (!found->second.enabled) return {"disabled", Style::faint};
    return agents[id].empty() ? Cell("-", Style::faint) : Cell(Text::join(agents[id], ", "));
  };
  Table table({{"SKILL", true}, {"AGENTS", true}, {"SWITCHED OFF FOR", true}});
  for (const std::string& id : preset.skillIds) {
    const auto found = records.find(id);
    table.add({{found == records.end() ? id : found->second.name, Style::strong},
               wantedCell(id),
               {switchedOffFor(preset, id), Style::warning}});
  }
  table.write(session.out());
  if (table.isEmpty()) session.out().line("It has no skills. 'orvanta preset add PRESET SKILL…' adds some.");
}

ExitStatus show(Session& session, const ShowOptions& options) {
  SkillsEngine& engine = session.engine();
  const Preset preset = presetNamed(engine, options.preset);
  const PresetActivation activation = engine.presetActivation(preset);
  const bool isActive = engine.activePresetId() == preset.id;
  const Terminal& out = session.out();
  if (session.json()) {
    writeJson(out.stream(), presetAsJson(preset, activation, isActive));
    return ExitStatus::done;
  }
  const auto fact = [&out](const char* title, const std::string& text) {
    out.line(fmt::format("  {:<12}{}", title, Text::singleLine(text)));
  };
  out.line(out.styled(Text::singleLine(preset.name), Style::strong));
  if (preset.description) fact("Description", *preset.description);
  if (preset.icon) fact("Icon", *preset.icon);
  fact("State", isActive ? "active" : "not active");
  fact("Deployed", deployedText(activation) + (activation.isComplete() ? ", complete" : ""));
  out.line("");
  writeMembers(session, preset);
  return ExitStatus::done;
}

ExitStatus reorder(Session& session, const ReorderOptions& options) {
  SkillsEngine& engine = session.engine();
  const auto ids = idsWithFirst(presetsNamed(engine, options.presets), engine.presets());
  session.change([&](const OperationContext&) { engine.reorderPresets(ids); });
  return list(session);
}

}  // namespace

Input& presetArgument(CommandLine& line, std::string& target) {
  return line
      .argument("PRESET", target, "A preset's name, its id, or at least four characters of its id", Completes::presets)
      .required();
}

std::optional<Preset> activePreset(SkillsEngine& engine) {
  const auto id = engine.activePresetId();
  if (!id) return std::nullopt;
  try {
    return engine.preset(*id);
  } catch (const SkillsError& error) {
    if (error.kind() != SkillsError::Kind::notFound) throw;
    return std::nullopt;  // deleted since
  }
}

std::string deployedText(const PresetActivation& activation) {
  return fmt::format("{} of {}", activation.active, activation.total);
}

Json presetAsJson(const Preset& preset, const PresetActivation& activation, bool isActive) {
  Json json = preset;
  json["activation"] = activation;
  json["isActive"] = isActive;
  return json;
}

Json presetReference(const Preset& preset) { return {{"id", preset.id}, {"name", preset.name}}; }

ExitStatus showPreset(Session& session, const std::string& id, const std::string& sentence) {
  SkillsEngine& engine = session.engine();
  const Preset preset = engine.preset(id);
  const PresetActivation activation = engine.presetActivation(preset);
  const bool isActive = engine.activePresetId() == id;
  if (session.json()) {
    writeJson(session.out().stream(), presetAsJson(preset, activation, isActive));
    return ExitStatus::done;
  }
  session.out().line(sentence);
  if (isActive && activation.active < activation.total) {
    session.note(fmt::format("It is active, with {} deployed. Next: orvanta preset apply {}", deployedText(activation),
                             inQuotes(preset.name)));
  }
  return ExitStatus::done;
}

void setUpPresetList(CommandLine& line) {
  line.runs(list);
  line.example("orvanta preset list", "Every preset, and how much of it is deployed");
  line.explain(
      "A preset is a named set of skills and the agents they should be deployed to. Applying one deploys everything it "
      "needs. DEPLOYED counts pairs of a skill and an agent.");
}

void setUpPresetShow(CommandLine& line) {
  presetArgument(line, line.runs<ShowOptions>(show).preset);
  line.example("orvanta preset show review", "Its skills, and the agents that shall have each");
}

void setUpPresetReorder(CommandLine& line) {
  ReorderOptions& options = line.runs<ReorderOptions>(reorder);
  line.argument("PRESET", options.presets, "The presets that come first, in this order", Completes::presets).required();
  line.example("orvanta preset reorder review writing", "List these two before all others");
}

}  // namespace orvanta::cli
