#include "engine/Reconciliation.h"

#include <algorithm>
#include <map>

#include <fmt/format.h>

#include "content/ContentHash.h"
#include "content/Scanner.h"
#include "engine/LibraryRecovery.h"
#include "files/FS.h"
#include "foundations/Clock.h"
#include "foundations/Text.h"
#include "foundations/Uuid.h"
#include "sources/GitSource.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

// A folder that was replaced by a link is gone: the link may lead anywhere. So is one of which only caches are left,
// which no snapshot holds.
bool isThere(const fs::path& folder) { return FS::isDirectory(folder) && SkillMetadata::isValidSkillDir(folder); }

// What is not one line of text is not taken from a manifest.
std::optional<std::string> plain(const std::optional<std::string>& text) {
  return text && Text::singleLine(*text) == *text ? text : std::nullopt;
}

std::vector<std::string> plain(std::vector<std::string> tags) {
  std::erase_if(tags, [](const std::string& tag) { return Text::singleLine(tag) != tag; });
  return tags;
}

void refuseOutwardLinks(const fs::path& folder, const char* consequence) {
  const auto links = GitSource::linksLeadingOut(folder);
  if (links.empty()) return;
  throw SkillsError::refused(
      fmt::format("its link '{}' leads out of the skill, {}. Remove the link in {} and pull again.",
                  Text::singleLine(links.front()), consequence, folder.string()));
}

std::string failureOf(std::string_view name, const SkillsError& error) {
  return fmt::format("{}: {}", Text::singleLine(name), error.message());
}

}  // namespace

// A folder that may be a skill's, and the record that it has.
struct Reconciliation::Candidate {
  fs::path folder;
  const SkillRecord* record = nullptr;
};

ReconcileReport Reconciliation::run(const Scope& scope, const OperationContext& context) {
  ReconcileReport report;
  const auto records = library_.store.allSkills();
  const auto candidates = candidatesAmong(records, scope);
  std::vector<fs::path> folders;
  for (const auto& candidate : candidates) folders.push_back(candidate.folder);
  const auto hashes = ContentHash::hashDirectories(folders, context);
  const auto entries = scope.manifest ? scope.manifest->byFolder() : Entries{};

  std::vector<SkillRecord> renewed;
  library_.transaction([&] {
    for (std::size_t i = 0; i < candidates.size(); ++i) {
      const auto& [folder, record] = candidates[i];
      const std::string name = record != nullptr ? record->name : folder.filename().string();
      try {
        if (!hashes[i]) throw SkillsError::io("its folder could not be read");
        if (record == nullptr) {
          report.added.push_back(add(folder, *hashes[i], entries));
        } else if (record->contentHash != hashes[i] || record->status == kSkillMissing) {
          renewed.push_back(renew(*record, *hashes[i], scope));
          report.renewed.push_back(name);
        }
      } catch (const SkillsError& error) {
        report.errors.push_back(failureOf(name, error));
      }
    }
    markMissing(records, report);
  });
  // Copies in agents' folders follow what is recorded by now.
  for (const SkillRecord& record : renewed) repair_.resyncCopyTargets(record);
  return report;
}

// Folders without a record, and recorded ones that can differ from theirs.
std::vector<Reconciliation::Candidate> Reconciliation::candidatesAmong(const std::vector<SkillRecord>& records,
                                                                       const Scope& scope) {
  auto candidates = newFolders(records);
  for (const SkillRecord& record : records) {
    const fs::path folder = record.centralPath;
    const bool mayDiffer = !scope.changedFolders || scope.changedFolders->contains(folder.filename().string());
    if ((mayDiffer || record.status == kSkillMissing) && isThere(folder)) candidates.push_back({folder, &record});
  }
  return candidates;
}

void Reconciliation::markMissing(const std::vector<SkillRecord>& records, ReconcileReport& report) {
  for (const SkillRecord& record : records) {
    if (record.status == kSkillMissing || isThere(record.centralPath)) continue;
    SkillRecord gone = record;
    gone.status = kSkillMissing;
    gone.updatedAt = nowMillis();
    library_.store.updateSkill(gone);
    report.missing.push_back(gone.name);
  }
}

std::vector<Reconciliation::Candidate> Reconciliation::newFolders(const std::vector<SkillRecord>& records) {
  std::set<std::string_view> recorded;
  for (const SkillRecord& record : records) recorded.insert(record.centralPath);
  auto names = FS::childNames(library_.paths.skills());
  std::sort(names.begin(), names.end());
  std::vector<Candidate> found;
  for (const auto& name : names) {
    const fs::path folder = library_.paths.skills() / name;
    // Skills in the library never begin with a dot: such names have meanings of their own.
    if (name.starts_with('.') || recorded.contains(comparablePath(folder))) continue;
    if (isThere(folder) && FS::isSkillDirInside(folder, folder)) found.push_back({folder, nullptr});
  }
  return found;
}

std::string Reconciliation::add(const fs::path& folder, const std::string& hash, const Entries& entries) {
  refuseOutwardLinks(folder, "so the skill was left unrecorded");
  const auto known = entries.find(folder.filename().string());
  const BackupManifest::Entry* const entry = known == entries.end() ? nullptr : known->second;
  const SkillMeta meta = SkillMetadata::parseSkillMd(folder);
  SkillRecord record;
  record.name = meta.name.value_or(folder.filename().string());
  record.description = meta.description;
  record.centralPath = comparablePath(folder);
  record.contentHash = hash;
  record.status = kSkillOk;
  record.createdAt = record.updatedAt = nowMillis();
  if (entry != nullptr) {
    record.sourceType = parseSourceType(entry->sourceType).value_or(SourceType::local);
    record.sourceRef = plain(entry->sourceRef);
    record.sourceRefResolved = plain(entry->sourceRefResolved);
    record.sourceBranch = plain(entry->sourceBranch);
    record.sourceSubpath = plain(entry->sourceSubpath);
    record.sourceRevision = plain(entry->sourceRevision);
    record.enabled = entry->enabled;
  }
  const bool keepsId = entry != nullptr && isUuid(Text::lowercase(entry->id)) && !library_.store.skill(entry->id);
  record.id = keepsId ? entry->id : newUuid();
  record.updateStatus = isRemote(record.sourceType) ? UpdateStatus::unknown : UpdateStatus::localOnly;
  library_.transaction([&] {
    library_.store.insertSkill(record);
    if (entry != nullptr) library_.store.setTags(record.id, plain(entry->tags));
  });
  return record.name;
}

SkillRecord Reconciliation::renew(const SkillRecord& record, const std::string& hash, const Scope& scope) {
  refuseOutwardLinks(record.centralPath, "so the skill was not read anew");
  const SkillMeta own{.name = record.name, .description = record.description};
  const bool mayBeRenamed = SkillMetadata::parseSkillMd(record.centralPath) != own;
  const auto before = mayBeRenamed && scope.metadataBefore ? scope.metadataBefore(record) : std::nullopt;
  SkillRecord found = record;
  found.status = kSkillOk;
  found.contentHash = hash;
  return skills_.refreshRecordFromDisk(found, before.value_or(own));
}

}  // namespace orvanta
