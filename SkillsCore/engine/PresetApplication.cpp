#include "engine/PresetApplication.h"

#include <algorithm>
#include <set>

#include "agents/ToolAdapters.h"
#include "engine/PresetDemand.h"
#include "foundations/SkillsError.h"

namespace orvanta {

namespace {

// What stands in its place is left as it is, so that applying again costs nothing.
DeployRequest requestFor(std::vector<SkillToolPair> pairs) { return {.pairs = std::move(pairs), .keepsIntact = true}; }

}  // namespace

ApplyReport PresetApplication::apply(const std::string& id, bool exclusive, const OperationContext& context) {
  const Preset preset = presets_.require(id);
  auto pairs = PresetDemand(library_).desiredPairs(preset);
  ApplyReport report;
  const bool interrupted = exclusive && takeOut(deploymentsBeside(pairs), context, report);
  if (!interrupted) {
    library_.store.setActivePresetId(id);
    const ApplyReport placed = asApplied(deployment_.deploy(requestFor(std::move(pairs)), Asker::preset, context));
    report.deployed = placed.deployed;
    report.skipped = placed.skipped;
    report.errors.insert(report.errors.end(), placed.errors.begin(), placed.errors.end());
  }
  log("apply_preset", preset, report);
  return report;
}

Plan PresetApplication::planApply(const std::string& id, bool exclusive) {
  auto pairs = PresetDemand(library_).desiredPairs(presets_.require(id));
  Plan plan;
  if (exclusive) plan = deployment_.planUndeploy(deploymentsBeside(pairs));
  const Plan placements = DeployBatch(library_, requestFor(std::move(pairs))).plan(plan);
  plan.insert(plan.end(), placements.begin(), placements.end());
  return plan;
}

ApplyReport PresetApplication::deactivate(const std::string& id, const OperationContext& context) {
  const Preset preset = presets_.require(id);
  ApplyReport report;
  const bool interrupted = takeOut(PresetDemand(library_).desiredPairs(preset), context, report);
  if (!interrupted && library_.store.activePresetId() == id) library_.store.setActivePresetId(std::nullopt);
  log("deactivate_preset", preset, report);
  return report;
}

Plan PresetApplication::planDeactivate(const std::string& id) {
  return deployment_.planUndeploy(PresetDemand(library_).desiredPairs(presets_.require(id)));
}

std::optional<Placement> PresetApplication::setSkillTool(const std::string& id, const std::string& skillId,
                                                         const std::string& tool, bool enabled) {
  const Preset preset = presets_.require(id);
  const auto& members = preset.skillIds;
  if (std::find(members.begin(), members.end(), skillId) == members.end()) {
    throw SkillsError::notFound("Skill is not in this preset");
  }
  if (!ToolAdapters::find(tool, library_.store.toolOverrides())) {
    throw SkillsError::notFound("Agent not found: " + tool);
  }
  library_.store.setPresetSkillTool(id, skillId, tool, enabled);
  library_.store.logAudit({.action = "set_preset_tool",
                           .skillId = skillId,
                           .skillName = preset.name,
                           .tool = tool,
                           .detail = enabled ? "on" : "off"});
  if (library_.store.activePresetId() != id) return std::nullopt;
  if (enabled) return deployment_.deploy(skillId, tool, /*force=*/false);
  const PlacementReport taken = deployment_.undeploy({{skillId, tool}}, Asker::hand, {});
  if (!taken.errors.empty()) throw SkillsError::io(taken.errors.front());
  return std::nullopt;
}

std::vector<SkillToolPair> PresetApplication::deploymentsBeside(const std::vector<SkillToolPair>& pairs) {
  const std::set<SkillToolPair> wanted(pairs.begin(), pairs.end());
  std::vector<SkillToolPair> others;
  for (auto& target : library_.store.allTargets()) {
    SkillToolPair pair{std::move(target.skillId), std::move(target.tool)};
    if (!wanted.contains(pair)) others.push_back(std::move(pair));
  }
  return others;
}

bool PresetApplication::takeOut(const std::vector<SkillToolPair>& pairs, const OperationContext& context,
                                ApplyReport& report) {
  const PlacementReport taken = deployment_.undeploy(pairs, Asker::preset, context);
  report.removed = static_cast<std::int64_t>(taken.done.size() - taken.errors.size());
  report.errors = taken.errors;
  return taken.interrupted;
}

void PresetApplication::log(const std::string& action, const Preset& preset, const ApplyReport& report) {
  library_.store.logAudit({.action = action,
                           .skillName = preset.name,
                           .detail = preset.name + ": +" + std::to_string(report.deployed) + " -" +
                                     std::to_string(report.removed) + " =" + std::to_string(report.skipped) + ", " +
                                     std::to_string(report.errors.size()) + " errors"});
}

}  // namespace orvanta
