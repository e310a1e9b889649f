#include "engine/Skills.h"

#include <unordered_map>

#include "content/ContentHash.h"
#include "content/SkillMetadata.h"
#include "files/FS.h"
#include "foundations/Clock.h"
#include "foundations/SkillsError.h"
#include "foundations/Text.h"
#include "foundations/Uuid.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kLargestShownFile = std::size_t{16} << 20;

std::vector<std::string> groupOf(const std::map<std::string, std::vector<std::string>>& groups, const std::string& id) {
  const auto found = groups.find(id);
  return found == groups.end() ? std::vector<std::string>{} : found->second;
}

// The file that a path inside a skill names. Throws when it leaves the folder or passes through a link.
fs::path fileInside(const fs::path& folder, const std::string& relativePath) {
  const fs::path relative = fs::path(relativePath).lexically_normal();
  if (relative.empty() || relative == "." || relative.is_absolute() || *relative.begin() == "..") {
    throw SkillsError::invalidInput("'" + relativePath + "' is not a path inside the skill; give one relative to " +
                                    folder.string());
  }
  fs::path path = folder;
  for (const auto& part : relative) {
    path /= part;
    if (FS::kind(path) == FS::Kind::symlink) {
      throw SkillsError::invalidInput("'" + relativePath + "' is or passes through a link, which is not followed");
    }
  }
  if (FS::kind(path) == FS::Kind::absent) {
    throw SkillsError::notFound("There is no file '" + relativePath + "' in " + folder.string());
  }
  return path;
}

}  // namespace

SkillRecord Skills::require(const std::string& id) {
  auto record = library_.store.skill(id);
  if (!record) throw SkillsError::notFound("Skill not found: " + id);
  return *std::move(record);
}

SkillSummary Skills::summary(const std::string& id) { return summaries({require(id)}).front(); }

std::vector<SkillSummary> Skills::summaries(const std::vector<SkillRecord>& records) {
  std::vector<std::string> ids;
  ids.reserve(records.size());
  for (const auto& record : records) ids.push_back(record.id);
  const auto tags = library_.store.tagsBySkill(ids);
  const auto presetIds = library_.store.presetIdsBySkill();

  std::vector<SkillSummary> result;
  result.reserve(records.size());
  std::unordered_multimap<std::string, std::size_t> places;
  for (const auto& record : records) {
    places.emplace(record.id, result.size());
    result.push_back({record, groupOf(tags, record.id), {}, groupOf(presetIds, record.id)});
  }
  library_.store.forEachTarget(ids, [&](const SkillTarget& target) {
    const auto [begin, end] = places.equal_range(target.skillId);
    for (auto place = begin; place != end; ++place) result[place->second].targets.push_back(target);
  });
  return result;
}

std::vector<SkillFileEntry> Skills::files(const std::string& id) {
  std::vector<SkillFileEntry> files;
  for (const auto& entry : ContentHash::listContentFiles(require(id).centralPath)) {
    files.push_back({entry.relativePath, entry.size, entry.isExecutable()});
  }
  return files;
}

std::optional<std::string> Skills::fileText(const std::string& id, const std::string& relativePath) {
  auto text = FS::readText(fileInside(require(id).centralPath, relativePath), kLargestShownFile);
  if (!text || !Text::isValidUTF8(*text)) return std::nullopt;
  return text;
}

SkillSummary Skills::updateInfo(const std::string& id, const std::string& name,
                                const std::optional<std::string>& description) {
  SkillRecord record = require(id);
  const std::string trimmed(Text::trim(name));
  if (trimmed.empty()) throw SkillsError::invalidInput("Name cannot be empty");
  if (!Text::isValidUTF8(trimmed) || !Text::isValidUTF8(description.value_or(""))) {
    throw SkillsError::invalidInput("The name and the description must be valid UTF-8");
  }
  record.name = trimmed;
  record.description = description;
  record.updatedAt = nowMillis();
  library_.transaction([&] {
    library_.store.updateSkill(record);
    library_.store.logAudit({.action = "edit_skill", .skillId = record.id, .skillName = record.name});
  });
  return summary(id);
}

SkillRecord Skills::storeInstalled(const InstalledDirectory& installed, const Arrival& arrival) {
  SkillStore& store = library_.store;
  const std::string centralPath = comparablePath(installed.destination);
  auto existing = store.skillAtPath(centralPath);
  if (!existing) {
    const SkillMeta meta = SkillMetadata::parseSkillMd(installed.destination);
    const SkillSource& source = arrival.source;
    SkillRecord record;
    record.id = newUuid();
    record.name = arrival.name.value_or(meta.name.value_or(installed.name));
    record.description = meta.description;
    record.sourceType = source.type;
    record.sourceRef = source.ref;
    record.sourceRefResolved = source.resolved;
    record.sourceSubpath = source.subpath;
    record.sourceBranch = source.branch;
    record.sourceRevision = source.revision;
    record.centralPath = centralPath;
    record.contentHash = installed.contentHash;
    record.createdAt = record.updatedAt = nowMillis();
    store.insertSkill(record);
    existing = std::move(record);
  } else if (existing->contentHash != installed.contentHash) {
    existing->contentHash = installed.contentHash;
    existing->updatedAt = nowMillis();
    store.updateSkill(*existing);
  }
  store.logAudit(
      {.action = arrival.action,
       .skillId = existing->id,
       .skillName = existing->name,
       .tool = arrival.tool,
       .detail = installed.reused ? std::optional<std::string>("already in the library") : arrival.source.ref});
  return *std::move(existing);
}

SkillMeta Skills::metadataBefore(const SkillRecord& record, const fs::path& folder) {
  const bool isAsRecorded = FS::resolvesToDirectory(folder) && ContentHash::hashDirectory(folder) == record.contentHash;
  return isAsRecorded ? SkillMetadata::parseSkillMd(folder)
                      : SkillMeta{.name = record.name, .description = record.description};
}

SkillRecord Skills::refreshRecordFromDisk(const SkillRecord& record, const SkillMeta& before) {
  SkillRecord fresh = record;
  const SkillMeta meta = SkillMetadata::parseSkillMd(record.centralPath);
  const bool isRenamed = before.name && record.name != before.name;
  if (!isRenamed) fresh.name = meta.name.value_or(record.name);
  if (record.description == before.description) fresh.description = meta.description;
  fresh.contentHash = ContentHash::hashDirectory(record.centralPath);
  fresh.updatedAt = nowMillis();
  library_.store.updateSkill(fresh);
  return fresh;
}

}  // namespace orvanta
