#include "engine/AuditLog.h"

#include "files/FS.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

constexpr std::int64_t kExportedEntries = 10'000;

// The keys of the export are older than those of the records' JSON form, and readers of exports rely on them.
Json exported(const AuditEntry& entry) {
  Json json{{"id", entry.id}, {"ts", entry.timestamp}, {"action", entry.action}, {"success", entry.success}};
  if (entry.skillId) json["skill_id"] = *entry.skillId;
  if (entry.skillName) json["skill_name"] = *entry.skillName;
  if (entry.tool) json["tool"] = *entry.tool;
  if (entry.detail) json["detail"] = *entry.detail;
  return json;
}

}  // namespace

fs::path AuditLog::exportEntries() {
  Json array = Json::array();
  for (const auto& entry : library_.store.auditEntries(kExportedEntries, 0)) array.push_back(exported(entry));
  FS::createDirectories(library_.paths.logs());
  fs::path file = FS::freeStampedFile(library_.paths.logs(), "audit-", ".json");
  FS::writeAtomically(file, jsonText(array, 2) + "\n");
  return file;
}

void AuditLog::clear() {
  library_.transaction([&] {
    library_.store.clearAudit();
    library_.store.logAudit({.action = "clear_log"});
  });
}

}  // namespace orvanta
