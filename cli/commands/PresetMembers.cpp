#include <algorithm>

#include <fmt/format.h>

#include "cli/Format.h"
#include "cli/Names.h"
#include "cli/Plans.h"
#include "cli/commands/Common.h"
#include "cli/commands/Presets.h"

namespace orvanta::cli {

namespace {

struct SkillsOptions {
  std::string preset;
  std::vector<std::string> skills;
};

struct RemoveOptions {
  std::string preset;
  std::string skill;
};

struct ToggleOptions {
  std::string preset;
  std::string skill;
  std::string agent;
  std::string choice;
  bool dryRun = false;
};

ExitStatus add(Session& session, const SkillsOptions& options) {
  SkillsEngine& engine = session.engine();
  const Preset preset = presetNamed(engine, options.preset);
  const auto records = skillsNamed(engine, options.skills);
  session.change([&](const OperationContext&) { engine.addSkillsToPreset(preset.id, idsOf(records)); });
  return showPreset(session, preset.id, fmt::format("{} now has {}.", inQuotes(preset.name), skillsAsText(records)));
}

ExitStatus set(Session& session, const SkillsOptions& options) {
  SkillsEngine& engine = session.engine();
  const Preset preset = presetNamed(engine, options.preset);
  const auto ids = skillIdsNamed(engine, options.skills);
  session.change([&](const OperationContext&) { engine.setPresetSkills(preset.id, ids); });
  return showPreset(session, preset.id,
                    fmt::format("{} now has exactly {}.", inQuotes(preset.name), counted(ids.size(), "skill")));
}

ExitStatus remove(Session& session, const RemoveOptions& options) {
  SkillsEngine& engine = session.engine();
  const Preset preset = presetNamed(engine, options.preset);
  const SkillRecord skill = skillNamed(engine, options.skill);
  if (std::find(preset.skillIds.begin(), preset.skillIds.end(), skill.id) == preset.skillIds.end()) {
    throw SkillsError::notFound(fmt::format("{} is not in {}.", inQuotes(skill.name), inQuotes(preset.name)));
  }
  session.change([&](const OperationContext&) { engine.removeSkillFromPreset(preset.id, skill.id); });
  return showPreset(session, preset.id,
                    fmt::format("{} is not in {} any more; where it is deployed it stays.", inQuotes(skill.name),
                                inQuotes(preset.name)));
}

// What the switch means at once in the active preset.
Plan planOf(SkillsEngine& engine, const std::string& skillId, const std::string& agent, bool isOn) {
  return isOn ? engine.planDeploy({skillId}, {agent}, false) : engine.planUndeploy({skillId}, {agent});
}

ExitStatus toggle(Session& session, const ToggleOptions& options) {
  SkillsEngine& engine = session.engine();
  const Preset preset = presetNamed(engine, options.preset);
  const SkillRecord skill = skillNamed(engine, options.skill);
  const std::string agent = agentNamed(engine, options.agent);
  const bool isOn = options.choice == "on";
  const bool isActive = engine.activePresetId() == preset.id;
  const Plan plan = isActive ? planOf(engine, skill.id, agent, isOn) : Plan{};
  if (options.dryRun) return showPlan(session, plan);
  const auto placed = session.change(
      [&](const OperationContext&) { return engine.setPresetSkillTool(preset.id, skill.id, agent, isOn); });
  std::string sentence = fmt::format("{} {} {} in {}", inQuotes(skill.name),
                                     isOn ? "is wanted for" : "is switched off for", agent, inQuotes(preset.name));
  if (placed && placed->changed) sentence += " and deployed to " + shortPath(placed->targetPath, session.user());
  if (!isOn && !plan.empty()) {
    const auto& why = plan.front().reason;
    sentence += why ? "; " + *why : " and taken out of its folder";
  }
  return showPreset(session, preset.id, sentence + ".");
}

Input& presetAndSkills(CommandLine& line, SkillsOptions& options) {
  presetArgument(line, options.preset);
  return line.argument("SKILL", options.skills, "Names of skills, ids, or at least four characters of an id",
                       Completes::skills);
}

}  // namespace

void setUpPresetAdd(CommandLine& line) {
  presetAndSkills(line, line.runs<SkillsOptions>(add)).required();
  line.example("orvanta preset add review lint pdf", "Two more skills, after those it has");
  line.explain("Nothing is deployed by this. 'orvanta preset apply' deploys what was added.");
}

void setUpPresetSet(CommandLine& line) {
  presetAndSkills(line, line.runs<SkillsOptions>(set));
  line.example("orvanta preset set review lint pdf", "Exactly these two, in this order");
  line.example("orvanta preset set review", "None at all");
  line.explain("No deployment is changed by this.");
}

void setUpPresetRemove(CommandLine& line) {
  RemoveOptions& options = line.runs<RemoveOptions>(remove);
  presetArgument(line, options.preset);
  skillArgument(line, options.skill);
  line.example("orvanta preset remove review pdf", "One skill fewer");
  line.explain("No deployment is changed by this; 'orvanta undeploy' takes a skill out of agents' folders.");
}

void setUpPresetToggle(CommandLine& line) {
  ToggleOptions& options = line.runs<ToggleOptions>(toggle);
  presetArgument(line, options.preset);
  skillArgument(line, options.skill);
  agentArgument(line, options.agent);
  line.argument("CHOICE", options.choice, "on or off").required().oneOf({"on", "off"});
  line.dryRunFlag(options.dryRun);
  line.example("orvanta preset toggle review pdf cursor off", "All agents but Cursor shall have it");
  line.explain("Changes to the active preset take effect immediately: the agent gets or loses the skill.");
}

}  // namespace orvanta::cli
