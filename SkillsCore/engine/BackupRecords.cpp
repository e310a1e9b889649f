#include "engine/BackupRecords.h"

#include <algorithm>

#include "foundations/Clock.h"
#include "foundations/Text.h"
#include "platform/Host.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

constexpr const char* kUnsettled = "backup_unsettled";
constexpr const char* kReconciled = "backup_reconciled";

BackupManifest::Entry entryOf(const SkillRecord& record) {
  return {.id = record.id,
          .name = record.name,
          .description = record.description,
          .dirName = fs::path(record.centralPath).filename().string(),
          .sourceType = std::string(rawValue(record.sourceType)),
          .sourceRef = record.sourceRef,
          .sourceRefResolved = record.sourceRefResolved,
          .sourceBranch = record.sourceBranch,
          .sourceSubpath = record.sourceSubpath,
          .sourceRevision = record.sourceRevision,
          .enabled = record.enabled,
          .tags = {}};
}

}  // namespace

BackupManifest BackupRecords::manifest() {
  auto tags = library_.store.tagsBySkill();
  BackupManifest manifest{.exportedAt = nowMillis() / 1000, .device = deviceName(), .skills = {}};
  for (const auto& record : library_.store.allSkills()) {
    manifest.skills.push_back(entryOf(record));
    const auto own = tags.find(record.id);
    if (own != tags.end()) manifest.skills.back().tags = std::move(own->second);
  }
  // An order that a rename does not change, so that two writings of it differ as little as possible.
  std::sort(manifest.skills.begin(), manifest.skills.end(),
            [](const auto& a, const auto& b) { return a.dirName < b.dirName; });
  return manifest;
}

void BackupRecords::begin(const Change& change) {
  Json json{{"to", change.to}};
  if (change.from) json["from"] = *change.from;
  library_.store.setJSONSetting(kUnsettled, std::optional(json));
}

void BackupRecords::begin(const Change& change, FolderChanges& made) {
  library_.transaction([&] {
    made.recorded();
    begin(change);
  });
}

void BackupRecords::settle() { library_.store.setSetting(kUnsettled, std::nullopt); }

std::optional<BackupRecords::Change> BackupRecords::unsettled() {
  const auto json = library_.store.jsonSetting<Json>(kUnsettled);
  if (!json || !json->is_object()) return std::nullopt;
  const auto textAt = [&](const char* key) {
    const auto found = json->find(key);
    return found != json->end() && found->is_string() ? std::optional(found->get<std::string>()) : std::nullopt;
  };
  return Change{.from = textAt("from"), .to = textAt("to").value_or("")};
}

std::optional<std::string> BackupRecords::reconciledCommit() { return library_.store.setting(kReconciled); }

void BackupRecords::setReconciledCommit(const std::string& commit) { library_.store.setSetting(kReconciled, commit); }

std::vector<std::string> BackupRecords::noteConflicts(const std::set<std::string>& paths,
                                                      const std::string& theirCommit) {
  std::set<std::string> folders;
  for (const auto& path : paths) folders.insert(path.substr(0, path.find('/')));
  std::vector<SkillStore::PendingConflict> conflicts;
  for (const auto& folder : folders) {
    const auto record = library_.store.skillAtPath(comparablePath(library_.paths.skills() / folder));
    conflicts.push_back({.skillId = record ? record->id : Text::repairUTF8(folder),
                         .theirsCommit = theirCommit,
                         .theirsPath = Text::repairUTF8(folder)});
  }
  library_.store.setPendingConflicts(conflicts);
  return conflictNames();
}

std::optional<std::string> BackupRecords::conflictingCommit() {
  const auto conflicts = library_.store.pendingConflicts();
  return conflicts.empty() ? std::nullopt : std::optional(conflicts.front().theirsCommit);
}

std::vector<std::string> BackupRecords::conflictNames() {
  std::vector<std::string> names;
  for (const auto& conflict : library_.store.pendingConflicts()) {
    const auto record = library_.store.skill(conflict.skillId);
    names.push_back(record ? record->name : conflict.theirsPath);
  }
  return names;
}

}  // namespace orvanta
