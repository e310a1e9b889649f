// The backup, as the engine offers it. Git works on the files under a reservation, so that nobody else changes the
// library but everybody may read; turns are taken only for the records. A remote is waited for with neither.

#include <algorithm>
#include <future>
#include <iterator>
#include <set>

#include <fmt/format.h>

#include "engine/FolderChanges.h"
#include "engine/IncomingBackup.h"
#include "engine/SkillsEngineState.h"
#include "engine/StagedSnapshot.h"
#include "files/FS.h"
#include "files/FileReader.h"
#include "files/TreeWalk.h"
#include "foundations/Text.h"
#include "sources/GitBackup.h"
#include "sources/GitClient.h"
#include "sources/GitSource.h"
#include "sources/StagingFolder.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

constexpr const char* kRemote = "backup_remote";
constexpr const char* kAutomatic = "backup_auto_commit";

void requireInitialized(const GitBackup& backup) {
  if (!backup.isRepository()) throw SkillsError::invalidInput("Backup is not initialized");
}

// What is in the way of a file that comes in, at its path, above or below, and is not leaving itself.
std::optional<std::string> obstacleTo(const fs::path& root, const std::string& path,
                                      const std::set<std::string>& leaving) {
  for (auto end = path.find('/');; end = path.find('/', end + 1)) {
    const std::string part = path.substr(0, end);
    const auto kind = FS::kind(root / part);
    if (kind == FS::Kind::absent) return std::nullopt;
    if (kind != FS::Kind::directory) return leaving.contains(part) ? std::nullopt : std::optional(part);
    if (end == std::string::npos) break;
  }
  const UniqueFd folder = openFolder(root / path);
  for (const auto& entry : listTree(folder.get(), root / path, [](std::string_view) { return false; })) {
    const std::string inside = path + "/" + entry.relativePath;
    if (entry.kind != TreeEntry::Kind::directory && !leaving.contains(inside)) return inside;
  }
  return std::nullopt;
}

// After a snapshot, what stands there without being in it is ignored here; git would overwrite it without a word.
void refuseOverwriting(const GitBackup& backup, const std::string& from, const std::string& to,
                       const OperationContext& context) {
  const auto gone = backup.addedPaths(to, from, context);
  const std::set<std::string> leaving(gone.begin(), gone.end());
  for (const auto& path : backup.addedPaths(from, to, context)) {
    const auto obstacle = obstacleTo(backup.root(), path, leaving);
    if (!obstacle) continue;
    throw SkillsError::refused(
        fmt::format("{} is ignored by the backup here, and would be overwritten by the other "
                    "snapshot's. Move it away, then try again; nothing was changed.",
                    Text::repairUTF8((backup.root() / *obstacle).string())));
  }
}

}  // namespace

GitBackup SkillsEngine::gitBackup(const OperationContext& context) {
  return {state_->paths().skills(), gitSettings(context)};
}

// For whoever holds the reservation: the backup, with what killed processes left put right.
GitBackup SkillsEngine::readyBackup(const OperationContext& context) {
  GitBackup backup = gitBackup(context);
  requireInitialized(backup);
  settleBackup(backup, context);
  backup.refuseUnfinished(context);
  return backup;
}

template <typename Work>
auto SkillsEngine::withBackupRecords(Work work) {
  const Turn turn(state_->mutex);
  return work(state_->components.backup);
}

void SkillsEngine::noteBackup(const std::string& action, const std::optional<std::string>& detail, bool success) {
  const Turn turn(state_->mutex);
  state_->library.store.logAudit({.action = action, .success = success, .detail = detail});
}

// ── Looking ──

BackupStatus SkillsEngine::backupStatus(const OperationContext& context) {
  BackupStatus status = gitBackup(context).status(context);
  const Turn turn(state_->mutex);
  status.pendingConflicts = state_->components.backup.conflictNames();
  return status;
}

std::vector<BackupCommit> SkillsEngine::backupHistory(std::size_t limit, const OperationContext& context) {
  const GitBackup backup = gitBackup(context);
  requireInitialized(backup);
  return backup.history(limit, context);
}

BackupManifest SkillsEngine::buildManifest() {
  const Turn turn(state_->mutex);
  return state_->components.backup.manifest();
}

bool SkillsEngine::isBackupAutomatic() { return setting(kAutomatic) == "true"; }

void SkillsEngine::setBackupAutomatic(bool automatic) {
  const State::ChangeTurn turn(*state_);
  state_->library.store.setSetting(kAutomatic, automatic ? "true" : "false");
  state_->library.store.logAudit({.action = kAutomatic, .detail = automatic ? "on" : "off"});
}

// ── Snapshots ──

void SkillsEngine::initBackup(const OperationContext& context) {
  const State::ChangeReservation reservation(*state_);
  const GitBackup backup = gitBackup(context);
  backup.initialize(context);
  stageWithManifest(backup, context);
  backup.commitStaged("Initialize skills backup from " + deviceName(), context);
  noteBackup("backup_init", std::nullopt);
}

bool SkillsEngine::backupNow(const std::optional<std::string>& message, const OperationContext& context) {
  const State::ChangeReservation reservation(*state_);
  return snapshot(readyBackup(context), message, context);
}

// What the present manifest knows of folders that have no record yet, as after a pull by plain git, is not lost.
void SkillsEngine::keepUnrecorded(BackupManifest& manifest, const GitBackup& backup) {
  const auto recorded = manifest.byFolder();
  std::set<std::string> unrecorded;
  for (auto& name : FS::childNames(backup.root())) {
    if (!name.starts_with('.') && !recorded.contains(name)) unrecorded.insert(std::move(name));
  }
  const auto present = unrecorded.empty() ? std::nullopt : backup.readManifest();
  if (!present) return;
  BackupManifest kept;
  std::copy_if(present->skills.begin(), present->skills.end(), std::back_inserter(kept.skills),
               [&](const auto& entry) { return unrecorded.contains(entry.dirName); });
  manifest = manifest.joinedWith(kept);
}

// Git looks at the files while the manifest is made. Returns how many skills it names.
std::size_t SkillsEngine::stageWithManifest(const GitBackup& backup, const OperationContext& context) {
  auto staging = std::async(std::launch::async, [&] { backup.stage(context); });
  BackupManifest manifest = buildManifest();
  keepUnrecorded(manifest, backup);
  const bool isWritten = backup.writeManifest(manifest);
  staging.get();
  if (isWritten) backup.stageManifest(context);
  return manifest.skills.size();
}

bool SkillsEngine::snapshot(const GitBackup& backup, const std::optional<std::string>& message,
                            const OperationContext& context) {
  const bool hasSettled = recordSettledConflicts(backup, context);
  const std::size_t count = stageWithManifest(backup, context);
  const std::string text = message.value_or(fmt::format("Backup {} skills from {}", count, deviceName()));
  const bool isNew = backup.commitStaged(text, context);
  noteBackup("backup_commit", isNew ? text : "nothing to commit");
  if (hasSettled) withBackupRecords([](BackupRecords& records) { records.clearConflicts(); });
  return isNew;
}

// After the user has merged by hand what was in conflict. What came in by that is known to the other side's manifest
// alone, which is about to be overwritten. Whether there was anything.
bool SkillsEngine::recordSettledConflicts(const GitBackup& backup, const OperationContext& context) {
  const auto theirs = withBackupRecords([](BackupRecords& records) { return records.conflictingCommit(); });
  if (!theirs) return false;
  if (!backup.isMerging(*theirs, context) && !backup.isAncestor(*theirs, "HEAD", context)) return false;
  const Reconciliation::Scope scope{.manifest = backup.manifestIn(*theirs, context)};
  const Turn turn(state_->mutex);
  state_->components.reconciliation.run(scope, context);
  return true;
}

// ── The remote ──

void SkillsEngine::setBackupRemote(const std::optional<std::string>& url, const OperationContext& context) {
  const State::ChangeReservation reservation(*state_);
  const GitBackup backup = readyBackup(context);
  backup.setRemote(url, context);
  const auto remote = backup.remoteURL(context);
  const Turn turn(state_->mutex);
  // Git alone keeps what the address holds of a user name and password.
  state_->library.store.setSetting(kRemote, remote ? std::optional(GitSource::withoutCredentials(*remote)) : remote);
  state_->components.backup.clearConflicts();
  state_->library.store.logAudit(
      {.action = "backup_set_remote", .detail = remote ? std::optional(GitSource::masked(*remote)) : std::nullopt});
}

void SkillsEngine::pushBackup(const OperationContext& context) {
  const GitBackup backup = gitBackup(context);
  {
    const State::ChangeReservation reservation(*state_);
    snapshot(readyBackup(context), std::nullopt, context);
  }
  backup.push(context);
  noteBackup("backup_push", std::nullopt);
}

ReconcileReport SkillsEngine::pullBackup(const OperationContext& context) {
  const GitBackup backup = gitBackup(context);
  {
    const State::ChangeReservation reservation(*state_);
    readyBackup(context);
  }
  const std::string commit = backup.fetch(context);
  const State::ChangeReservation reservation(*state_);
  readyBackup(context);
  snapshot(backup, std::nullopt, context);
  const std::string head = backup.requireHead(context);
  if (!backup.isAncestor(commit, head, context)) {
    goOver(backup, head, mergedWithIncoming(backup, head, commit, context), context);
  }
  backup.followRemote(context);
  ReconcileReport report = reconcile(backup, head, context);
  withBackupRecords([](BackupRecords& records) { records.clearConflicts(); });
  noteBackup("backup_pull", fmt::format("+{} skills, {} missing", report.added.size(), report.missing.size()));
  return report;
}

std::string SkillsEngine::mergedWithIncoming(const GitBackup& backup, const std::string& head,
                                             const std::string& commit, const OperationContext& context) {
  const bool isForeign = !backup.mergeBase(head, commit, context);
  judgeIncoming(backup, commit, isForeign, context);
  try {
    return backup.merged(head, commit, context);
  } catch (const BackupConflict& conflict) {
    const auto names =
        withBackupRecords([&](BackupRecords& records) { return records.noteConflicts(conflict.paths(), commit); });
    const std::string list = Text::singleLine(Text::join(names, ", "));
    noteBackup("backup_pull", "Merge conflict: " + list, false);
    throw SkillsError::conflict(fmt::format("{} Both sides changed: {}", conflict.message(), list));
  }
}

// The folders of the skills change, then git's history follows. Until the records say that all folders have changed,
// whatever goes wrong takes them back; from then on the next start finishes the rest.
void SkillsEngine::goOver(const GitBackup& backup, const std::string& from, const std::string& to,
                          const OperationContext& context) {
  if (from == to) return;
  refuseOverwriting(backup, from, to, context);
  StagedSnapshot staged(backup, from, to, context);
  putInPlace(staged, from, to);
  try {
    backup.moveTo(from, to, {});  // even when a stop was requested
  } catch (const SkillsError& error) {
    throw SkillsError::git(error.message() + ". The files are the snapshot's already; the next command does the rest.");
  }
}

void SkillsEngine::putInPlace(StagedSnapshot& staged, const std::string& from, const std::string& to) {
  const Turn turn(state_->mutex);
  FolderChanges changes(state_->library);
  std::vector<TargetChange> folders = staged.changes();
  changes.makeTogether(folders);
  staged.requireUntouched(folders);
  state_->components.backup.begin({.from = from, .to = to}, changes);
  for (auto& folder : folders) folder.keep();
}

Plan SkillsEngine::planPullBackup(const OperationContext& context) {
  const GitBackup backup = gitBackup(context);
  requireInitialized(backup);
  const std::string commit = backup.fetch(context);
  const auto head = backup.headCommit(context);
  const auto base = head ? backup.mergeBase(*head, commit, context) : std::nullopt;
  judgeIncoming(backup, commit, head && !base, context);
  return planChange(backup, base, commit, context);
}

// ── Going back ──

ReconcileReport SkillsEngine::restoreBackup(const std::string& id, const OperationContext& context) {
  const State::ChangeReservation reservation(*state_);
  const GitBackup backup = readyBackup(context);
  const std::string commit = backup.commitNamed(id, context);
  judgeIncoming(backup, commit, false, context);
  snapshot(backup, std::nullopt, context);
  const std::string head = backup.requireHead(context);
  goOver(backup, head, backup.restored(commit, head, context), context);
  ReconcileReport report = reconcile(backup, head, context);
  noteBackup("backup_restore", commit);
  return report;
}

Plan SkillsEngine::planRestoreBackup(const std::string& id, const OperationContext& context) {
  const GitBackup backup = gitBackup(context);
  requireInitialized(backup);
  const std::string commit = backup.commitNamed(id, context);
  judgeIncoming(backup, commit, false, context);
  return planChange(backup, backup.headCommit(context), commit, context);
}

// ── An empty library ──

ReconcileReport SkillsEngine::restoreLibraryFromRemote(const std::string& url, const OperationContext& context) {
  GitSource::validate(url);
  const std::string address = GitSource::parse(url).cloneURL;
  requireEmptyLibrary();
  // Made whole elsewhere: what is cloned takes the place of the skills folder in one step.
  const StagingFolder staging(state_->paths().repoCache());
  const GitBackup incoming(staging.slot(0), gitSettings(context));
  incoming.clone(address, context);
  const std::string commit = incoming.headCommit(context).value_or("");
  judgeIncoming(incoming, commit, true, context);
  incoming.checkOut(context);

  const State::ChangeReservation reservation(*state_);
  requireEmptyLibrary();
  {
    const Turn turn(state_->mutex);
    state_->components.backup.begin({.from = std::nullopt, .to = commit});
    state_->library.store.setSetting(kRemote, GitSource::withoutCredentials(address));
  }
  FS::removeAny(state_->paths().skills() / ".DS_Store");
  FS::replaceEmptyFolder(incoming.root(), state_->paths().skills());
  FS::flushFolder(state_->paths().base());
  ReconcileReport report = reconcile(gitBackup(context), std::nullopt, context);
  noteBackup("backup_clone", GitSource::masked(address));
  return report;
}

void SkillsEngine::requireEmptyLibrary() {
  const auto names = FS::childNames(state_->paths().skills());
  const bool hasFiles = std::any_of(names.begin(), names.end(), [](const auto& name) { return name != ".DS_Store"; });
  const Turn turn(state_->mutex);
  if (!hasFiles && state_->library.store.skillIds().empty()) return;
  throw SkillsError::conflict("The library is not empty. Initialize backup and set the remote instead, then pull.");
}

// ── Records and files ──

ReconcileReport SkillsEngine::reconcileLibraryWithDisk(const OperationContext& context) {
  const GitBackup backup = gitBackup(context);
  const State::ChangeTurn turn(*state_);
  return state_->components.reconciliation.run({.manifest = backup.readManifest()}, context);
}

// After git has changed the files, which were those of the snapshot `before`. Hashed are only those folders that differ
// now from then, or then from the snapshot with which the records were in line the last time.
ReconcileReport SkillsEngine::reconcile(const GitBackup& backup, const std::optional<std::string>& before,
                                        const OperationContext& context) {
  const auto head = backup.headCommit(context);
  const auto known = withBackupRecords([](BackupRecords& records) { return records.reconciledCommit(); });
  Reconciliation::Scope scope{.manifest = backup.readManifest()};
  if (head && before && known && backup.isAncestor(*known, *before, context)) {
    scope.changedFolders = backup.changedFolders(known, *before, context);
    scope.changedFolders->merge(backup.changedFolders(before, *head, context));
  }
  scope.metadataBefore = [&](const SkillRecord& record) -> std::optional<SkillMeta> {
    const std::string file = fs::path(record.centralPath).filename().string() + "/SKILL.md";
    const auto text = before ? backup.textIn(*before, file, context) : std::nullopt;
    return text ? std::optional(SkillMetadata::parseMeta(*text)) : std::nullopt;
  };
  const Turn turn(state_->mutex);
  ReconcileReport report = state_->components.reconciliation.run(scope, context);
  if (head && report.errors.empty()) state_->components.backup.setReconciledCommit(*head);
  state_->components.backup.settle();
  return report;
}

// Finishes what a killed process, or a failure, left of going over to another snapshot.
void SkillsEngine::settleBackup(const GitBackup& backup, const OperationContext& context) {
  backup.makeReady(context);
  const auto change = withBackupRecords([](BackupRecords& records) { return records.unsettled(); });
  if (!change) return;
  if (change->from) backup.moveTo(*change->from, change->to, context);
  reconcile(backup, change->from, context);
}

// At a start. Does nothing while another process changes the library; what fails is tried again by the next backup.
void SkillsEngine::settleInterruptedBackup() {
  const auto isUnsettled = [&] {
    return withBackupRecords([](BackupRecords& records) { return records.unsettled().has_value(); });
  };
  if (!isUnsettled()) return;
  const auto lock = LibraryLock::tryAcquire(state_->paths().lock());
  if (!lock) return;
  try {
    const Turn turn(state_->mutex);
    healFolderChanges(state_->library);
  } catch (const SkillsError&) {
    return;
  }
  if (!isUnsettled()) return;
  try {
    const GitBackup backup = gitBackup({});
    if (backup.isRepository()) {
      settleBackup(backup, {});
    } else {
      withBackupRecords([](BackupRecords& records) { records.settle(); });
    }
  } catch (const SkillsError&) {
    return;
  }
}

// What would become of the skills if what differs between two snapshots came into the files.
Plan SkillsEngine::planChange(const GitBackup& backup, const std::optional<std::string>& from, const std::string& to,
                              const OperationContext& context) {
  std::set<std::string> there;
  for (const auto& item : backup.tree(to, context)) there.insert(item.path.substr(0, item.path.find('/')));
  Plan plan;
  for (const auto& folder : backup.changedFolders(from, to, context)) {
    if (folder.starts_with('.')) continue;
    const fs::path place = state_->paths().skills() / folder;
    const auto action = !there.contains(folder) ? PlannedStep::Action::remove
                        : FS::exists(place)     ? PlannedStep::Action::replace
                                                : PlannedStep::Action::place;
    plan.push_back({.action = action,
                    .skillName = Text::repairUTF8(folder),
                    .skillId = {},
                    .tool = {},
                    .path = Text::repairUTF8(place.string()),
                    .reason = {}});
  }
  return plan;
}

}  // namespace orvanta
