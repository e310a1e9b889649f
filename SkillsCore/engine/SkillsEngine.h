#pragma once

// The single entry point of the core: one library, every operation a user can ask for. A monitor: operations of several
// threads take turns, and an operation that changes something also holds the library's lock against other processes
// (waiting up to ten seconds, then `conflict`). Reading never waits for other processes.
//
// Contents
//   Library and settings   figures, settings, sync mode               engine/Library, engine/Dashboard
//   Place of the library   moving it to another folder                 engine/Relocation, MoveRecovery
//   Diagnostics            a report for whoever is asked for help      engine/Diagnostics
//   Agents                 the table of agents and the user's changes  engine/AgentSettings
//   Skills                 records, files, enabling, removal           engine/Skills, SkillActivation, SkillRemoval
//   Tags                   names that skills share                     engine/Tags
//   Installation           folders and archives into the library       engine/Installation
//   Git sources            repositories into the library               engine/GitInstallation
//   Community directory    listed skills: looking and installing      engine/Market
//   Sites                  skills that web sites publish              engine/SiteInstallation
//   Updates                what sources have newer                     engine/UpdateChecks, UpdateFetch, Updates
//   Deployment             links and copies in agents' folders         engine/Deployment, engine/Repair
//   Presets                named sets of skills, applied together      engine/Presets, PresetDemand, PresetApplication
//   Agents' folders        what lies there; import, adopt, delete      engine/AgentFolders, engine/Import
//   Projects               skills inside projects, both ways           engine/Projects, ProjectSkills, ProjectExchange
//   Backup                 the library as a Git repository             engine/BackupRecords, IncomingBackup,
//   Reconciliation Audit                  the log and its export                      engine/AuditLog
//
// Every operation may throw `SkillsError`: `database` when the records cannot be read or written, `io` when the system
// refuses. An operation that throws has changed nothing, unless it says otherwise. Unknown ids and keys are `notFound`.

#include <cstddef>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "agents/ToolAdapters.h"
#include "engine/IncomingUpdate.h"
#include "engine/Reports.h"
#include "engine/UpdateView.h"
#include "files/Paths.h"
#include "foundations/Models.h"
#include "foundations/Operation.h"
#include "platform/Host.h"
#include "sources/BackupManifest.h"
#include "sources/WellKnownIndex.h"

namespace orvanta {

class GitBackup;
struct GitSettings;
struct HTTPSettings;
struct MarketQuestion;
class PlazzaAPI;
class StagedSnapshot;

class SkillsEngine {
 public:
  // Opens the library, making it where there is none, brings its database up to date, and heals what a killed process
  // left in it. Throws what went wrong; then there is no engine.
  SkillsEngine(const Paths& paths, const UserFolders& user);
  ~SkillsEngine();
  SkillsEngine(const SkillsEngine&) = delete;
  SkillsEngine& operator=(const SkillsEngine&) = delete;

  // ── Library and settings ──
  // Where the library is, which opening may have found at another place: after a move that was cut short.
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

  // ── Place of the library ──
  // Moves the library to a folder that is empty or does not exist yet, and leads the links in agents' folders there;
  // the paths of this engine are the new ones afterwards. Its present place: nothing happens. Throws `invalidInput` for
  // a place where it cannot be, `conflict` while something works in it, `io` where there is no room, `refused` after a
  // requested stop. What fails when the library has arrived is reported.
  RelocationReport relocateLibrary(const std::filesystem::path& destination, const OperationContext& context);
  Plan planRelocation(const std::filesystem::path& destination);
  // Where the library at these paths is when a move that was cut short has been finished or taken back, which opening
  // it does as well. Throws `conflict` while it is being moved.
  static Paths settledPaths(const Paths& paths, const UserFolders& user);

  // ── Diagnostics ──
  // Writes a report for whoever is asked for help into the library's logs folder and returns the file. There is no
  // secret in it.
  std::filesystem::path exportDiagnostics(const OperationContext& context);

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

  // ── Network ──
  // Whether the system's key store has a token; it alone holds it. False as well where there is no key store.
  static bool hasGithubToken();
  // White space around it does not count; one that is then empty, or none, removes it. Whether the key store changed:
  // there may have been nothing to remove, or no key store. Throws `io` when the key store refuses, with the token
  // there as it was, and when a stop ends the wait for it.
  bool setGithubToken(const std::optional<std::string>& token, const OperationContext& context = {});
  // Absent: whatever the system says.
  std::optional<std::string> proxyURL();

  // ── Git sources ──
  // A Git source is a URL (https, http, ssh, git@), a GitHub link into a tree, or "OWNER/REPO". Throws `invalidInput`
  // for what is none, `git` when git fails, `notFound` when the source holds nothing of the kind.
  GitPreview previewGit(const std::string& url, const OperationContext& context);
  // Goes on past failures of single skills. Links that lead out of a skill are left behind.
  InstallReport installGit(const std::string& url, const GitChoice& choice, const OperationContext& context);
  Plan planInstallGit(const std::string& url, const GitChoice& choice, const OperationContext& context);

  // ── Community directory ──
  // Answers are kept for an hour (leaderboards) or ten minutes (searches), each directory's apart. Throws `network`
  // when the directory has to be asked and gives no answer that can be read.
  std::vector<PlazzaSkill> leaderboard(LeaderboardKind kind, bool forceRefresh, const OperationContext& context);
  // At most `limit` skills, the best match first; never more than 100. White space around the query does not count;
  // `invalidInput` when nothing is left of it.
  std::vector<PlazzaSkill> searchMarket(const std::string& query, std::size_t limit, const OperationContext& context);
  void clearMarketCache();
  // Installs one listed skill from its repository on GitHub, given as "OWNER/REPO". Throws `invalidInput` for what can
  // be no repository or skill there, and as `installGit`.
  SkillSummary installFromPlazza(const std::string& source, const std::string& skillId,
                                 const std::optional<std::string>& name, const OperationContext& context);
  Plan planInstallFromPlazza(const std::string& source, const std::string& skillId,
                             const std::optional<std::string>& name, const OperationContext& context);

  // ── Sites ──
  // The skills that a web site publishes. Throws `invalidInput` for what is no bare domain, `notFound` for a site that
  // publishes none, `network` when it cannot be reached or read.
  WellKnownIndex fetchWellKnown(const std::string& domain, const OperationContext& context);
  // Goes on past failures of single skills; `name` is for one skill alone.
  InstallReport installWellKnown(const WellKnownIndex& index, const std::vector<WellKnownIndex::Entry>& entries,
                                 const std::optional<std::string>& name, const OperationContext& context);
  Plan planInstallWellKnown(const WellKnownIndex& index, const std::vector<WellKnownIndex::Entry>& entries,
                            const std::optional<std::string>& name, const OperationContext& context);

  // ── Updates ──
  // Asks the skill's source whether it has something newer, and records the answer.
  UpdateStatus checkUpdate(const std::string& id, const OperationContext& context);
  // The same for these skills, or all, up to `concurrency` sources at once; goes on past failures.
  UpdateCheckReport checkUpdates(const std::optional<std::vector<std::string>>& ids, std::size_t concurrency,
                                 const OperationContext& context);
  // What an update would bring, with nothing changed or recorded. Throws why there is none to be had.
  IncomingUpdate previewUpdate(const std::string& id, const OperationContext& context);
  UpdateView viewOf(const IncomingUpdate& update, const OperationContext& context);
  // Fetches updates of these skills without bringing them in; goes on past failures, which are recorded unless this
  // is for a preview. Each repository is cloned once.
  FetchedUpdates fetchUpdates(const std::vector<std::string>& ids, FetchPurpose purpose,
                              const OperationContext& context);
  // The same for one skill that was installed from a folder on this disk; `invalidInput` for any other.
  FetchedUpdates fetchReimport(const std::string& id, FetchPurpose purpose, const OperationContext& context);
  // Brings in what was fetched, each skill as a whole or not at all, and reports it with what could not be fetched.
  // Changes made by hand in the library are overwritten: who must be asked is for the caller to decide.
  UpdateReport applyUpdates(const FetchedUpdates& fetched, const OperationContext& context);
  Plan planUpdates(const FetchedUpdates& fetched);
  // Both in one. `refused` when changes made by hand in the library would be lost.
  SkillSummary updateSkill(const std::string& id, const OperationContext& context);
  SkillSummary reimportFromSource(const std::string& id, const OperationContext& context);
  // All skills for which a check has found something newer, but those that were changed by hand.
  ApplyReport updateAll(const OperationContext& context);
  std::vector<std::string> idsWithUpdates();
  // The skill no longer comes from anywhere.
  SkillSummary detachSource(const std::string& id);
  // The skill comes from this Git source from now on, from the folder `subpath` in it. Nothing is fetched.
  SkillSummary relinkSource(const std::string& id, const std::string& url, const std::optional<std::string>& subpath);

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

  // ── Presets ──
  std::vector<Preset> presets();
  Preset preset(const std::string& id);
  // `invalidInput` for a name with nothing in it, `conflict` for one that another preset has, letter case and Unicode
  // composition ignored. Empty descriptions and icons count as absent.
  Preset createPreset(const std::string& name, const std::optional<std::string>& description,
                      const std::optional<std::string>& icon);
  // An id that no preset has changes nothing.
  void updatePreset(const std::string& id, const std::string& name, const std::optional<std::string>& description,
                    const std::optional<std::string>& icon);
  // Deployments stay as they are.
  void deletePreset(const std::string& id);
  void reorderPresets(const std::vector<std::string>& ids);
  // Named "NAME copy", or with the first number that is free.
  Preset duplicatePreset(const std::string& id);
  // Changes of the members change no deployment.
  void setPresetSkills(const std::string& presetId, const std::vector<std::string>& skillIds);
  void addSkillsToPreset(const std::string& presetId, const std::vector<std::string>& skillIds);
  void removeSkillFromPreset(const std::string& presetId, const std::string& skillId);
  // Notes whether the agent shall have the skill. In the active preset it gets or loses it at once, and what was
  // deployed is returned; the choice stays noted when that fails.
  std::optional<Placement> setPresetSkillTool(const std::string& presetId, const std::string& skillId,
                                              const std::string& tool, bool enabled);
  // What the preset wants: each enabled member for each active agent that is not switched off for it, skill by skill.
  std::vector<SkillToolPair> desiredPairs(const Preset& preset);
  PresetActivation presetActivation(const Preset& preset);
  // By preset. A constant number of queries.
  std::map<std::string, PresetActivation> presetActivations();
  // Deploys what the preset wants and makes it the active one; `exclusive` first takes out every other deployment. Goes
  // on past failures. The user's choices of agents in presets stay what they are. A stop between two pairs leaves what
  // was done by then.
  ApplyReport applyPreset(const std::string& id, bool exclusive, const OperationContext& context);
  Plan planApplyPreset(const std::string& id, bool exclusive);
  // Takes out what the preset wants; it is no longer the active one.
  ApplyReport deactivatePreset(const std::string& id, const OperationContext& context);
  Plan planDeactivatePreset(const std::string& id);
  std::optional<std::string> activePresetId();
  void setActivePreset(const std::optional<std::string>& id);

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

  // ── Projects ──
  // The workspaces as they are recorded, without a look at their files.
  std::vector<ProjectRecord> projectRecords();
  // With the comparison of all their skills with the library.
  std::vector<ProjectInfo> projects(const OperationContext& context);
  // The skills of one workspace, by agent in display order; what agents share is listed once.
  std::vector<ProjectSkill> projectSkills(const std::string& id, const OperationContext& context);
  // `conflict` for a folder that is registered already, `invalidInput` for one inside the library. The folder's own
  // name is used where none is given.
  ProjectRecord addProject(const std::filesystem::path& path, const std::optional<std::string>& name);
  // The agent's global folder as a workspace.
  ProjectRecord addLinkedWorkspace(const std::string& agentKey);
  // No file of the workspace is touched.
  void removeProject(const std::string& id);
  void reorderProjects(const std::vector<std::string>& ids);
  // Folders at most `maxDepth` levels below `root` that hold skills of agents, by path. Links are not followed.
  std::vector<ScannedProject> scanForProjects(const std::filesystem::path& root, int maxDepth,
                                              const OperationContext& context);
  // The operations on one skill take its absolute path; `refused` for a path that is no skill inside the workspace.
  SkillSummary importProjectSkill(const std::string& projectId, const std::filesystem::path& path,
                                  const OperationContext& context);
  Plan planImportProjectSkill(const std::string& projectId, const std::filesystem::path& path);
  // Every skill to every agent; goes on past failures.
  ApplyReport exportToProject(const std::string& projectId, const ProjectExport& request,
                              const OperationContext& context);
  Plan planExportToProject(const std::string& projectId, const ProjectExport& request);
  // Pull: the project's copy becomes what the library holds. Links into the library are left alone.
  void updateProjectSkillFromCenter(const std::string& projectId, const std::filesystem::path& path);
  Plan planUpdateProjectSkillFromCenter(const std::string& projectId, const std::filesystem::path& path);
  // Push: the library's skill becomes what the project holds, and its copies in agents' folders follow.
  SkillSummary updateCenterFromProject(const std::string& projectId, const std::filesystem::path& path);
  Plan planUpdateCenterFromProject(const std::string& projectId, const std::filesystem::path& path);
  // Moves the skill to the folder of disabled skills, or back. `conflict` when something stands there.
  void setProjectSkillEnabled(const std::string& projectId, const std::filesystem::path& path, bool enabled);
  Plan planSetProjectSkillEnabled(const std::string& projectId, const std::filesystem::path& path, bool enabled);
  // A link goes, never what it points to; a managed deployment is undeployed.
  void deleteProjectSkill(const std::string& projectId, const std::filesystem::path& path);
  Plan planDeleteProjectSkill(const std::string& projectId, const std::filesystem::path& path);
  // The agents' folders of a workspace and those of its disabled skills; whether they exist is not asked.
  std::vector<std::filesystem::path> workspaceRoots(const ProjectRecord& record);
  // Throws `refused` for a location outside of them, as it is spelled or by way of a link.
  void assertInsideWorkspace(const std::filesystem::path& location, const ProjectRecord& record);

  // ── Backup ──
  // The skills folder as a Git repository of the user's. Throws `git` when git fails, `invalidInput` "Backup is not
  // initialized" where there is none yet, and `conflict` while it waits for the user, as in the middle of a merge. What
  // is reported as done has been flushed to the disk.

  // Never fails as a whole: what cannot be found out is empty.
  BackupStatus backupStatus(const OperationContext& context = {});
  // Newest first.
  std::vector<BackupCommit> backupHistory(std::size_t limit, const OperationContext& context = {});
  BackupManifest buildManifest();
  // Also where there is a repository already.
  void initBackup(const OperationContext& context);
  // Takes a snapshot; false when nothing has changed since the last one.
  bool backupNow(const std::optional<std::string>& message, const OperationContext& context);
  // None, or nothing but white space, removes it.
  void setBackupRemote(const std::optional<std::string>& url, const OperationContext& context);
  // Takes a snapshot and sends all there are. `invalidInput` "No backup remote configured", here and below.
  void pushBackup(const OperationContext& context);
  // Takes a snapshot and brings in the remote's, as a whole or not at all. `conflict` when both changed the same
  // skills, which are then pending conflicts, and `refused` for what must not come into the library.
  ReconcileReport pullBackup(const OperationContext& context);
  // What a pull would change; only the repository learns of the remote's snapshots.
  Plan planPullBackup(const OperationContext& context);
  // The files become those of a snapshot, given by digits of its id, as a new snapshot on top. What no snapshot held
  // is in one of its own before.
  ReconcileReport restoreBackup(const std::string& id, const OperationContext& context);
  Plan planRestoreBackup(const std::string& id, const OperationContext& context);
  // Fills a library that is empty; `conflict` for any other.
  ReconcileReport restoreLibraryFromRemote(const std::string& url, const OperationContext& context);
  // Whether a face that stays open takes snapshots by itself after changes.
  bool isBackupAutomatic();
  void setBackupAutomatic(bool automatic);
  // Brings all records in line with the files in the skills folder.
  ReconcileReport reconcileLibraryWithDisk(const OperationContext& context);

  // ── Audit ──
  std::vector<AuditEntry> auditEntries(std::int64_t limit, std::int64_t offset);
  // Writes the newest 10,000 entries as JSON into the library's logs folder and returns the file.
  std::filesystem::path exportAudit();
  void clearAudit();

 private:
  struct State;

  PlazzaAPI plazza(const OperationContext& context);
  std::vector<PlazzaSkill> answerTo(const MarketQuestion& question, bool forceRefresh, const OperationContext& context);
  std::vector<SkillRecord> skillsWithIds(const std::vector<std::string>& ids);
  std::vector<SkillRecord> knownSkills(const std::vector<std::string>& ids, std::map<std::string, std::string>& errors);
  bool bringIn(const IncomingUpdate& update);
  SkillSummary bringInOne(const FetchedUpdates& fetched, const OperationContext& context);
  GitBackup gitBackup(const OperationContext& context);
  GitBackup readyBackup(const OperationContext& context);
  template <typename Work>
  auto withBackupRecords(Work work);
  bool recordSettledConflicts(const GitBackup& backup, const OperationContext& context);
  std::string mergedWithIncoming(const GitBackup& backup, const std::string& head, const std::string& commit,
                                 const OperationContext& context);
  void goOver(const GitBackup& backup, const std::string& from, const std::string& to, const OperationContext& context);
  void putInPlace(StagedSnapshot& staged, const std::string& from, const std::string& to);
  static void keepUnrecorded(BackupManifest& manifest, const GitBackup& backup);
  std::size_t stageWithManifest(const GitBackup& backup, const OperationContext& context);
  bool snapshot(const GitBackup& backup, const std::optional<std::string>& message, const OperationContext& context);
  void settleBackup(const GitBackup& backup, const OperationContext& context);
  void settleInterruptedBackup();
  ReconcileReport reconcile(const GitBackup& backup, const std::optional<std::string>& before,
                            const OperationContext& context);
  Plan planChange(const GitBackup& backup, const std::optional<std::string>& from, const std::string& to,
                  const OperationContext& context);
  void requireEmptyLibrary();
  void noteBackup(const std::string& action, const std::optional<std::string>& detail, bool success = true);
  GitSettings gitSettings(const OperationContext& context);
  HTTPSettings httpSettings(const OperationContext& context);

  std::unique_ptr<State> state_;
};

}  // namespace orvanta
