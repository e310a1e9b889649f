#pragma once

// The single entry point of the core: one library, every operation a user can ask for. A monitor: operations of several
// threads take turns, and an operation that changes something also holds the library's lock against other processes
// (waiting up to ten seconds, then `conflict`). Reading never waits for other processes.
//
// Contents
//   Library and settings   figures, settings, sync mode               engine/Library, engine/Dashboard
//   Agents                 the table of agents and the user's changes  engine/AgentSettings
//   Skills                 records, files, tags, enabling, removal     engine/Skills, SkillActivation, SkillRemoval,
//   Tags Installation           folders and archives into the library       engine/Installation Deployment links and
//   copies in agents' folders         engine/Deployment, engine/Repair Agents' folders        what lies there; import,
//   adopt, delete      engine/AgentFolders, engine/Import Audit                  the log and its export engine/AuditLog
//
// Every operation may throw `SkillsError`: `database` when the records cannot be read or written, `io` when the system
// refuses. An operation that throws has changed nothing, unless it says otherwise. Unknown ids and keys are `notFound`.

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "agents/ToolAdapters.h"
#include "engine/Reports.h"
#include "files/Paths.h"
#include "foundations/Models.h"
#include "foundations/Operation.h"
#include "platform/Host.h"

namespace orvanta {

class SkillsEngine {
 public:
  // Opens the library, making it where there is none, brings its database up to date, and heals what a killed process
  // left in it. Throws what went wrong; then there is no engine.
  SkillsEngine(const Paths& paths, const UserFolders& user);
  ~SkillsEngine();
  SkillsEngine(const SkillsEngine&) = delete;
  SkillsEngine& operator=(const SkillsEngine&) = delete;

  // ── Library and settings ──
  [[nodiscard]] const Paths& paths() const;
  [[nodiscard]] const UserFolders& userFolders() const;
  [[nodiscard]] bool isRelocated() const;
  DashboardStats dashboardStats();
  std::optional<std::string> setting(const std::string& key);
  // An absent value deletes the key. Values are not checked here.
  void setSetting(const std::string& key, const std::optional<std::string>& value);
  std::map<std::string, std::string> settings();
  SyncMode syncMode();
  // Applies to later deployments; existing ones are not converted.
  void setSyncMode(SyncMode mode);

  // ── Agents ──
  std::vector<ToolAdapter> adapters();
  ToolAdapter adapter(const std::string& key);
  std::vector<ToolInfo> tools();
  void setToolEnabled(const std::string& key, bool enabled);
  // An absent path goes back to the agent's own folder. Placements in the old folder stay until the skill is deployed
  // again. `invalidInput` for a path that is empty, relative, or inside the library.
  void setToolPath(const std::string& key, const std::optional<std::string>& path);
  // Relative to a project's root. `invalidInput` for a path that is empty, absolute or leaves the project.
  void setToolProjectPath(const std::string& key, const std::optional<std::string>& path);
  // These agents first, in this order; `notFound` for an unknown key.
  void setToolOrder(const std::vector<std::string>& keys);
  // Adds the agent or replaces the one with its key. `invalidInput` or `conflict` for what is not a usable agent.
  void saveCustomTool(const CustomToolDefinition& definition);
  // Forgets the agent and its deployments; the folders placed there stay. Returns how many deployments were forgotten.
  std::size_t removeCustomTool(const std::string& key);

  // ── Skills ──
  std::vector<SkillRecord> skills();
  std::vector<SkillSummary> summaries(const std::vector<SkillRecord>& records);
  SkillSummary summary(const std::string& id);
  // The agents that hold each skill (deployments in status "ok"), by skill id: what a list needs, without the rest of
  // the deployment records.
  std::map<std::string, std::vector<std::string>> deployedToolsBySkill();
  std::map<std::string, std::vector<std::string>> tagsBySkill();
  std::vector<SkillFileEntry> skillFiles(const std::string& id);
  // The text of one file; nothing when it is not UTF-8 text. `invalidInput` for a path that leaves the skill's folder
  // by
  // ".." or through a link, `notFound` for one that is not there.
  std::optional<std::string> skillFileText(const std::string& id, const std::string& relativePath);
  SkillSummary updateSkillInfo(const std::string& id, const std::string& name,
                               const std::optional<std::string>& description);
  // Disabling takes the skill out of all agents' folders and remembers where it was; enabling puts it back.
  SkillSummary setSkillEnabled(const std::string& id, bool enabled);
  // Each skill as a whole or not at all, all in one transaction; goes on past failures.
  ActivationReport setSkillsEnabled(const std::vector<std::string>& ids, bool enabled, const OperationContext& context);
  Plan planSetSkillEnabled(const std::string& id, bool enabled);
  void removeSkill(const std::string& id, bool deleteFiles);
  RemovalReport removeSkills(const std::vector<std::string>& ids, bool deleteFiles, const OperationContext& context);
  Plan planRemoveSkills(const std::vector<std::string>& ids, bool deleteFiles);

  std::vector<TagCount> allTags();
  // Tags are trimmed, lower-cased and unique. `invalidInput` for a name with nothing in it.
  SkillSummary setTags(const std::string& skillId, const std::vector<std::string>& tags);
  SkillSummary addTags(const std::string& skillId, const std::vector<std::string>& tags);
  SkillSummary removeTags(const std::string& skillId, const std::vector<std::string>& tags);
  // On every skill; `notFound` when no skill has the tag.
  void renameTag(const std::string& from, const std::string& to);
  void deleteTag(const std::string& tag);

  // ── Installation ──
  // Copies one skill folder into the library. `name` overrides the skill's own.
  SkillSummary installLocal(const std::filesystem::path& folder, const std::optional<std::string>& name);
  // Every skill at or below a folder, `maxDepth` levels deep; goes on past failures.
  InstallReport installFolder(const std::filesystem::path& folder, int maxDepth, const OperationContext& context);
  // The chosen skill folders; goes on past failures.
  InstallReport installFolders(const std::vector<std::filesystem::path>& folders, const OperationContext& context);
  // The one skill in a ".zip" or ".skill" file.
  SkillSummary installArchive(const std::filesystem::path& archive, const std::optional<std::string>& name,
                              const OperationContext& context);
  // The skill folders that `installFolder` would install.
  std::vector<std::filesystem::path> findSkills(const std::filesystem::path& folder, int maxDepth);
  Plan planInstall(const std::vector<std::filesystem::path>& folders, const std::optional<std::string>& name);
  Plan planInstallArchive(const std::filesystem::path& archive, const std::optional<std::string>& name,
                          const OperationContext& context);

  // ── Deployment ──
  // `force` replaces a folder that the library did not place. Returns what stands there now.
  Placement deploy(const std::string& skillId, const std::string& tool, bool force);
  // Never fails because files could not be removed: the note says so.
  Placement undeploy(const std::string& skillId, const std::string& tool);
  // Every pair, skill by skill; goes on past failures. Unknown skills and agents are errors of their pairs.
  PlacementReport deploy(const std::vector<std::string>& skillIds, const std::vector<std::string>& tools, bool force,
                         const OperationContext& context);
  // Pairs without a deployment are passed over.
  PlacementReport undeploy(const std::vector<std::string>& skillIds, const std::vector<std::string>& tools,
                           const OperationContext& context);
  // Makes the set of agents that hold the skill exactly `tools`. When some cannot get it, the others have it, nothing
  // is taken out, and the failures are thrown as one `refused`.
  void setDeployedTools(const std::string& skillId, const std::set<std::string>& tools);
  Plan planDeploy(const std::vector<std::string>& skillIds, const std::vector<std::string>& tools, bool force);
  Plan planUndeploy(const std::vector<std::string>& skillIds, const std::vector<std::string>& tools);
  // Fixes broken links and refreshes stale copies; goes on past failures.
  ApplyReport repairDeployments(const OperationContext& context);
  Plan planRepair();

  // ── Agents' folders ──
  std::vector<AgentSkillEntry> agentEntries(const std::string& tool);
  // Copies a folder from an agent's folder into the library; `adopt` then replaces it by a managed deployment.
  SkillSummary importUnmanaged(const std::filesystem::path& path, const std::string& tool, bool adopt);
  Plan planImport(const std::filesystem::path& path, const std::string& tool, bool adopt);
  void deleteUnmanaged(const std::filesystem::path& path, const std::string& tool);
  Plan planDeleteUnmanaged(const std::filesystem::path& path, const std::string& tool);
  // Skills in the folders of all active agents that the library does not hold, grouped by content and name.
  std::vector<DiscoveredGroup> discover(const OperationContext& context);
  // Imports one member of each chosen group and, with `adopt`, replaces every member by a managed deployment.
  // `invalidInput` when nothing is chosen; goes on past failures.
  InstallReport importDiscovered(const std::vector<DiscoveredGroup>& groups, bool adopt,
                                 const OperationContext& context);

  // ── Audit ──
  std::vector<AuditEntry> auditEntries(std::int64_t limit, std::int64_t offset);
  // Writes the newest 10,000 entries as JSON into the library's logs folder and returns the file.
  std::filesystem::path exportAudit();
  void clearAudit();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace orvanta
