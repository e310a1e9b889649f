#include "engine/SkillsEngine.h"

#include <algorithm>

#include "content/Scanner.h"
#include "engine/Dashboard.h"
#include "engine/LibraryRecovery.h"
#include "engine/Pairs.h"
#include "engine/SkillsEngineState.h"

namespace orvanta {

namespace fs = std::filesystem;

SkillsEngine::SkillsEngine(const Paths& paths, const UserFolders& user)
    : state_(std::make_unique<State>(settledLibrary(paths, user), user)) {
  // A move may have begun just when the library was opened.
  const Paths settled = settledLibrary(state_->paths(), user);
  if (settled != state_->paths()) state_ = std::make_unique<State>(settled, user);
  {
    const Turn turn(state_->mutex);
    state_->library.store.toolOverrides();  // settings that cannot be read are found at the start, not half-way
    healLibrary(state_->library);
  }
  settleInterruptedBackup();
}

SkillsEngine::~SkillsEngine() = default;

// ── Library and settings ──

const Paths& SkillsEngine::paths() const { return state_->paths(); }

const UserFolders& SkillsEngine::userFolders() const { return state_->user; }

bool SkillsEngine::isRelocated() const { return state_->paths().isRelocated(state_->user); }

DashboardStats SkillsEngine::dashboardStats() {
  const Turn turn(state_->mutex);
  return orvanta::dashboardStats(state_->library);
}

std::optional<std::string> SkillsEngine::setting(const std::string& key) {
  const Turn turn(state_->mutex);
  return state_->library.store.setting(key);
}

void SkillsEngine::setSetting(const std::string& key, const std::optional<std::string>& value) {
  const State::ChangeTurn turn(*state_);
  state_->library.store.setSetting(key, value);
  // Values can hold credentials, so the log names the key alone.
  state_->library.store.logAudit({.action = "set_setting", .detail = key});
}

std::map<std::string, std::string> SkillsEngine::settings() {
  const Turn turn(state_->mutex);
  return state_->library.store.settings();
}

SyncMode SkillsEngine::syncMode() {
  const Turn turn(state_->mutex);
  return state_->library.store.syncMode();
}

void SkillsEngine::setSyncMode(SyncMode mode) {
  const State::ChangeTurn turn(*state_);
  state_->library.store.setSetting("sync_mode", std::string(rawValue(mode)));
  state_->library.store.logAudit({.action = "set_sync_mode", .detail = std::string(rawValue(mode))});
}

// ── Agents ──

std::vector<ToolAdapter> SkillsEngine::adapters() {
  const Turn turn(state_->mutex);
  return state_->components.agents.adapters();
}

ToolAdapter SkillsEngine::adapter(const std::string& key) {
  const Turn turn(state_->mutex);
  return state_->components.agents.adapter(key);
}

std::vector<ToolInfo> SkillsEngine::tools() {
  const Turn turn(state_->mutex);
  return state_->components.agents.tools();
}

void SkillsEngine::setToolEnabled(const std::string& key, bool enabled) {
  const State::ChangeTurn turn(*state_);
  state_->components.agents.setToolEnabled(key, enabled);
}

void SkillsEngine::setToolPath(const std::string& key, const std::optional<std::string>& path) {
  const State::ChangeTurn turn(*state_);
  state_->components.agents.setToolPath(key, path);
}

void SkillsEngine::setToolProjectPath(const std::string& key, const std::optional<std::string>& path) {
  const State::ChangeTurn turn(*state_);
  state_->components.agents.setToolProjectPath(key, path);
}

void SkillsEngine::setToolOrder(const std::vector<std::string>& keys) {
  const State::ChangeTurn turn(*state_);
  state_->components.agents.setToolOrder(keys);
}

void SkillsEngine::saveCustomTool(const CustomToolDefinition& definition) {
  const State::ChangeTurn turn(*state_);
  state_->components.agents.saveCustomTool(definition);
}

std::size_t SkillsEngine::removeCustomTool(const std::string& key) {
  const State::ChangeTurn turn(*state_);
  return state_->components.agents.removeCustomTool(key);
}

// ── Skills ──

std::vector<SkillRecord> SkillsEngine::skills() {
  const Turn turn(state_->mutex);
  return state_->library.store.allSkills();
}

std::vector<SkillSummary> SkillsEngine::summaries(const std::vector<SkillRecord>& records) {
  const Turn turn(state_->mutex);
  return state_->components.skills.summaries(records);
}

SkillSummary SkillsEngine::summary(const std::string& id) {
  const Turn turn(state_->mutex);
  return state_->components.skills.summary(id);
}

std::map<std::string, std::vector<std::string>> SkillsEngine::deployedToolsBySkill() {
  const Turn turn(state_->mutex);
  return state_->library.store.deployedToolsBySkill();
}

std::map<std::string, std::vector<std::string>> SkillsEngine::tagsBySkill() {
  const Turn turn(state_->mutex);
  return state_->library.store.tagsBySkill();
}

std::vector<SkillFileEntry> SkillsEngine::skillFiles(const std::string& id) {
  const Turn turn(state_->mutex);
  return state_->components.skills.files(id);
}

std::optional<std::string> SkillsEngine::skillFileText(const std::string& id, const std::string& relativePath) {
  const Turn turn(state_->mutex);
  return state_->components.skills.fileText(id, relativePath);
}

SkillSummary SkillsEngine::updateSkillInfo(const std::string& id, const std::string& name,
                                           const std::optional<std::string>& description) {
  const State::ChangeTurn turn(*state_);
  return state_->components.skills.updateInfo(id, name, description);
}

SkillSummary SkillsEngine::setSkillEnabled(const std::string& id, bool enabled) {
  const State::ChangeTurn turn(*state_);
  state_->components.activation.setEnabled(id, enabled);
  return state_->components.skills.summary(id);
}

ActivationReport SkillsEngine::setSkillsEnabled(const std::vector<std::string>& ids, bool enabled,
                                                const OperationContext& context) {
  const State::ChangeTurn turn(*state_);
  return state_->components.activation.setEnabled(ids, enabled, context);
}

Plan SkillsEngine::planSetSkillEnabled(const std::string& id, bool enabled) {
  const Turn turn(state_->mutex);
  return state_->components.activation.planSetEnabled(id, enabled);
}

void SkillsEngine::removeSkill(const std::string& id, bool deleteFiles) {
  const State::ChangeTurn turn(*state_);
  state_->components.removal.remove(id, deleteFiles);
}

RemovalReport SkillsEngine::removeSkills(const std::vector<std::string>& ids, bool deleteFiles,
                                         const OperationContext& context) {
  const State::ChangeTurn turn(*state_);
  return state_->components.removal.remove(ids, deleteFiles, context);
}

Plan SkillsEngine::planRemoveSkills(const std::vector<std::string>& ids, bool deleteFiles) {
  const Turn turn(state_->mutex);
  return state_->components.removal.plan(ids, deleteFiles);
}

std::vector<TagCount> SkillsEngine::allTags() {
  const Turn turn(state_->mutex);
  return state_->library.store.allTags();
}

SkillSummary SkillsEngine::setTags(const std::string& skillId, const std::vector<std::string>& tags) {
  const State::ChangeTurn turn(*state_);
  state_->components.tags.set(state_->components.skills.require(skillId), tags);
  return state_->components.skills.summary(skillId);
}

SkillSummary SkillsEngine::addTags(const std::string& skillId, const std::vector<std::string>& tags) {
  const State::ChangeTurn turn(*state_);
  state_->components.tags.add(state_->components.skills.require(skillId), tags);
  return state_->components.skills.summary(skillId);
}

SkillSummary SkillsEngine::removeTags(const std::string& skillId, const std::vector<std::string>& tags) {
  const State::ChangeTurn turn(*state_);
  state_->components.tags.remove(state_->components.skills.require(skillId), tags);
  return state_->components.skills.summary(skillId);
}

void SkillsEngine::renameTag(const std::string& from, const std::string& to) {
  const State::ChangeTurn turn(*state_);
  state_->components.tags.rename(from, to);
}

void SkillsEngine::deleteTag(const std::string& tag) {
  const State::ChangeTurn turn(*state_);
  state_->components.tags.erase(tag);
}

// ── Installation ──
// Copies are made ready before the turn: they touch only a staging folder, which no other operation looks into. What
// the library holds is looked at again when they are given their places.

SkillSummary SkillsEngine::installLocal(const fs::path& folder, const std::optional<std::string>& name) {
  const auto prepared = Installation::prepare(state_->paths(), Installation::localRequests({folder}, name), {});
  const State::ChangeTurn turn(*state_);
  return state_->components.installation.settleOne(prepared);
}

InstallReport SkillsEngine::installFolder(const fs::path& folder, int maxDepth, const OperationContext& context) {
  const auto found = findSkills(folder, maxDepth);
  if (!found.empty()) return installFolders(found, context);
  InstallReport report;
  report.errors.push_back("No SKILL.md found under " + folder.string());
  return report;
}

InstallReport SkillsEngine::installFolders(const std::vector<fs::path>& folders, const OperationContext& context) {
  const auto prepared = Installation::prepare(state_->paths(), Installation::localRequests(folders), context);
  const State::ChangeTurn turn(*state_);
  return state_->components.installation.settle(prepared);
}

SkillSummary SkillsEngine::installArchive(const fs::path& archive, const std::optional<std::string>& name,
                                          const OperationContext& context) {
  const UnpackedArchive unpacked(archive, state_->user, context.stop);
  const auto prepared = Installation::prepare(state_->paths(), {unpacked.request(name)}, context);
  const State::ChangeTurn turn(*state_);
  return state_->components.installation.settleOne(prepared);
}

std::vector<fs::path> SkillsEngine::findSkills(const fs::path& folder, int maxDepth) {
  auto found = FS::findSkillDirs(folder, maxDepth, {".git"});
  std::sort(found.begin(), found.end());  // the system's own order means nothing to a reader
  return found;
}

Plan SkillsEngine::planInstall(const std::vector<fs::path>& folders, const std::optional<std::string>& name) {
  const Turn turn(state_->mutex);
  return state_->components.installation.plan(Installation::localRequests(folders, name));
}

Plan SkillsEngine::planInstallArchive(const fs::path& archive, const std::optional<std::string>& name,
                                      const OperationContext& context) {
  const UnpackedArchive unpacked(archive, state_->user, context.stop);
  const Turn turn(state_->mutex);
  return state_->components.installation.plan({unpacked.request(name)});
}

// ── Deployment ──

Placement SkillsEngine::deploy(const std::string& skillId, const std::string& tool, bool force) {
  const State::ChangeTurn turn(*state_);
  return state_->components.deployment.deploy(skillId, tool, force);
}

Placement SkillsEngine::undeploy(const std::string& skillId, const std::string& tool) {
  const State::ChangeTurn turn(*state_);
  return state_->components.deployment.undeploy(skillId, tool);
}

PlacementReport SkillsEngine::deploy(const std::vector<std::string>& skillIds, const std::vector<std::string>& tools,
                                     bool force, const OperationContext& context) {
  const State::ChangeTurn turn(*state_);
  return state_->components.deployment.deploy({.pairs = pairsOf(skillIds, tools), .force = force}, Asker::hand,
                                              context);
}

PlacementReport SkillsEngine::undeploy(const std::vector<std::string>& skillIds, const std::vector<std::string>& tools,
                                       const OperationContext& context) {
  const State::ChangeTurn turn(*state_);
  return state_->components.deployment.undeploy(pairsOf(skillIds, tools), Asker::hand, context);
}

void SkillsEngine::setDeployedTools(const std::string& skillId, const std::set<std::string>& tools) {
  const State::ChangeTurn turn(*state_);
  state_->components.deployment.setDeployedTools(skillId, tools);
}

Plan SkillsEngine::planDeploy(const std::vector<std::string>& skillIds, const std::vector<std::string>& tools,
                              bool force) {
  const Turn turn(state_->mutex);
  return state_->components.deployment.planDeploy({.pairs = pairsOf(skillIds, tools), .force = force});
}

Plan SkillsEngine::planUndeploy(const std::vector<std::string>& skillIds, const std::vector<std::string>& tools) {
  const Turn turn(state_->mutex);
  return state_->components.deployment.planUndeploy(pairsOf(skillIds, tools));
}

ApplyReport SkillsEngine::repairDeployments(const OperationContext& context) {
  const State::ChangeTurn turn(*state_);
  return state_->components.repair.repairDeployments(context);
}

Plan SkillsEngine::planRepair() {
  const Turn turn(state_->mutex);
  return state_->components.repair.plan();
}

// ── Agents' folders ──

std::vector<AgentSkillEntry> SkillsEngine::agentEntries(const std::string& tool) {
  const Turn turn(state_->mutex);
  return state_->components.folders.entries(tool);
}

SkillSummary SkillsEngine::importUnmanaged(const fs::path& path, const std::string& tool, bool adopt) {
  const State::ChangeTurn turn(*state_);
  return state_->components.import.importUnmanaged(path, tool, adopt);
}

Plan SkillsEngine::planImport(const fs::path& path, const std::string& tool, bool adopt) {
  const Turn turn(state_->mutex);
  return state_->components.import.planImport(path, tool, adopt);
}

void SkillsEngine::deleteUnmanaged(const fs::path& path, const std::string& tool) {
  const State::ChangeTurn turn(*state_);
  state_->components.folders.deleteUnmanaged(path, tool);
}

Plan SkillsEngine::planDeleteUnmanaged(const fs::path& path, const std::string& tool) {
  const Turn turn(state_->mutex);
  return state_->components.folders.planDelete(path, tool);
}

std::vector<DiscoveredGroup> SkillsEngine::discover(const OperationContext& context) {
  const Turn turn(state_->mutex);
  return state_->components.folders.discover(context);
}

InstallReport SkillsEngine::importDiscovered(const std::vector<DiscoveredGroup>& groups, bool adopt,
                                             const OperationContext& context) {
  const State::ChangeTurn turn(*state_);
  return state_->components.import.importDiscovered(groups, adopt, context);
}

// ── Audit ──

std::vector<AuditEntry> SkillsEngine::auditEntries(std::int64_t limit, std::int64_t offset) {
  const Turn turn(state_->mutex);
  return state_->library.store.auditEntries(limit, offset);
}

fs::path SkillsEngine::exportAudit() {
  const Turn turn(state_->mutex);
  state_->requireInPlace();
  return state_->components.audit.exportEntries();
}

void SkillsEngine::clearAudit() {
  const State::ChangeTurn turn(*state_);
  state_->components.audit.clear();
}

}  // namespace orvanta
