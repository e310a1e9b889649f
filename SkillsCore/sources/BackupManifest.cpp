#include "sources/BackupManifest.h"

#include <algorithm>

#include "foundations/ForeignJSON.h"

namespace orvanta {

namespace {

using Entry = BackupManifest::Entry;

void put(Json& json, const char* key, const std::optional<std::string>& text) {
  if (text) json[key] = *text;
}

std::optional<std::string> optionalText(const Json& json, const char* key) {
  const auto found = json.find(key);
  return found == json.end() || found->is_null() ? std::nullopt : std::optional(found->get<std::string>());
}

Json asJSON(const Entry& entry) {
  Json json{{"id", entry.id},           {"name", entry.name},
            {"dirName", entry.dirName}, {"sourceType", entry.sourceType},
            {"enabled", entry.enabled}, {"tags", entry.tags}};
  put(json, "description", entry.description);
  put(json, "sourceRef", entry.sourceRef);
  put(json, "sourceRefResolved", entry.sourceRefResolved);
  put(json, "sourceBranch", entry.sourceBranch);
  put(json, "sourceSubpath", entry.sourceSubpath);
  put(json, "sourceRevision", entry.sourceRevision);
  return json;
}

Entry entryIn(const Json& json) {
  Entry entry;
  json.at("id").get_to(entry.id);
  json.at("name").get_to(entry.name);
  json.at("dirName").get_to(entry.dirName);
  json.at("sourceType").get_to(entry.sourceType);
  json.at("enabled").get_to(entry.enabled);
  json.at("tags").get_to(entry.tags);
  entry.description = optionalText(json, "description");
  entry.sourceRef = optionalText(json, "sourceRef");
  entry.sourceRefResolved = optionalText(json, "sourceRefResolved");
  entry.sourceBranch = optionalText(json, "sourceBranch");
  entry.sourceSubpath = optionalText(json, "sourceSubpath");
  entry.sourceRevision = optionalText(json, "sourceRevision");
  return entry;
}

// The keys are sorted, so that what differs from one writing to the next stands before the skills.
std::string_view skillsIn(std::string_view text) {
  const auto at = text.find("\n  \"skills\": ");
  return at == std::string_view::npos ? std::string_view() : text.substr(at);
}

}  // namespace

std::optional<BackupManifest> BackupManifest::parse(std::string_view text) {
  const Json json = parseForeignJSON(text);
  try {
    BackupManifest manifest;
    const auto version = wholeNumber(json.at("version"));
    if (!version) return std::nullopt;
    manifest.version = *version;
    if (manifest.isOfLaterFormat()) return manifest;
    const auto exportedAt = wholeNumber(json.at("exportedAt"));
    if (!exportedAt) return std::nullopt;
    manifest.exportedAt = *exportedAt;
    json.at("device").get_to(manifest.device);
    const Json& skills = json.at("skills");
    if (!skills.is_array()) return std::nullopt;
    for (const Json& skill : skills) manifest.skills.push_back(entryIn(skill));
    return manifest;
  } catch (const Json::exception&) {
    return std::nullopt;
  }
}

std::string BackupManifest::text() const {
  Json entries = Json::array();
  for (const Entry& entry : skills) entries.push_back(asJSON(entry));
  const Json json{{"version", version}, {"exportedAt", exportedAt}, {"device", device}, {"skills", std::move(entries)}};
  return jsonText(json, 2) + "\n";
}

bool BackupManifest::saysTheSame(std::string_view a, std::string_view b) {
  return !skillsIn(a).empty() && skillsIn(a) == skillsIn(b);
}

std::map<std::string_view, const Entry*> BackupManifest::byFolder() const {
  std::map<std::string_view, const Entry*> entries;
  for (const Entry& entry : skills) entries.try_emplace(entry.dirName, &entry);
  return entries;
}

BackupManifest BackupManifest::joinedWith(const BackupManifest& other) const {
  BackupManifest joined = *this;
  const auto own = byFolder();
  std::copy_if(other.skills.begin(), other.skills.end(), std::back_inserter(joined.skills),
               [&](const Entry& entry) { return !own.contains(entry.dirName); });
  return joined;
}

}  // namespace orvanta
