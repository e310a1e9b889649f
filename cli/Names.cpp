#include "cli/Names.h"

#include <algorithm>
#include <set>

#include <fmt/format.h>

#include "cli/Format.h"
#include "files/Paths.h"
#include "foundations/SkillsError.h"
#include "foundations/Text.h"

namespace orvanta::cli {

namespace {

constexpr std::size_t kShortestIdPrefix = 4;

// "claude-code", "Claude Code" and "claude_code" are one agent to whoever types it.
std::string agentName(std::string_view text) {
  std::string name(text);
  std::replace_if(
      name.begin(), name.end(), [](char byte) { return byte == '-' || byte == ' '; }, '_');
  return name;
}

NameTable skillTable(const std::vector<SkillRecord>& records) {
  std::vector<Named> entries;
  entries.reserve(records.size());
  for (const SkillRecord& record : records) entries.push_back({record.id, {record.name}, record.centralPath});
  return {"skill", "orvanta list", NameTable::Ids::byPrefix, std::move(entries)};
}

NameTable agentTable(const std::vector<ToolAdapter>& adapters) {
  std::vector<Named> entries;
  for (const ToolAdapter& adapter : adapters) {
    entries.push_back(
        {adapter.key, {adapter.key, agentName(adapter.key), agentName(adapter.displayName)}, adapter.displayName});
  }
  return {"agent", "orvanta agent list", NameTable::Ids::whole, std::move(entries)};
}

NameTable presetTable(const std::vector<Preset>& presets) {
  std::vector<Named> entries;
  for (const Preset& preset : presets) {
    entries.push_back({preset.id, {preset.name}, counted(preset.skillIds.size(), "skill")});
  }
  return {"preset", "orvanta preset list", NameTable::Ids::byPrefix, std::move(entries)};
}

NameTable projectTable(const std::vector<ProjectRecord>& records) {
  std::vector<Named> entries;
  for (const ProjectRecord& record : records) entries.push_back({record.id, {record.name}, record.path});
  return {"project", "orvanta project list", NameTable::Ids::byPrefix, std::move(entries)};
}

// The id of the project in the folder that is named; a text that names no such folder stays what it is.
std::string idInFolder(const std::vector<ProjectRecord>& records, const std::string& text) {
  const bool isPath = text == "." || text == ".." || text.find('/') != std::string::npos;
  if (!isPath) return text;
  const std::string folder = comparablePath(text);
  const auto isThere = [&](const ProjectRecord& record) { return comparablePath(record.path) == folder; };
  const auto found = std::find_if(records.begin(), records.end(), isThere);
  return found == records.end() ? text : found->id;
}

template <typename Entry>
std::vector<Entry> entriesNamed(const std::vector<Entry>& entries, const NameTable& table,
                                const std::vector<std::string>& names) {
  std::vector<Entry> found;
  std::set<std::size_t> taken;
  for (const std::string& name : names) {
    const std::size_t position = table.find(name);
    if (taken.insert(position).second) found.push_back(entries[position]);
  }
  return found;
}

}  // namespace

NameTable::NameTable(std::string noun, std::string listing, Ids ids, std::vector<Named> entries)
    : noun_(std::move(noun)), listing_(std::move(listing)), ids_(ids), entries_(std::move(entries)) {
  for (std::size_t i = 0; i < entries_.size(); ++i) {
    byId_.emplace(Text::lowercase(entries_[i].id), i);
    for (const std::string& name : entries_[i].names) {
      auto& positions = byName_[Text::comparisonKey(name)];
      if (positions.empty() || positions.back() != i) positions.push_back(i);
    }
  }
}

std::size_t NameTable::find(const std::string& text) const {
  const auto found = matches(text);
  if (found.empty()) throwUnknown(text);
  if (found.size() > 1) throwAmbiguous(text, found);
  return found.front();
}

std::vector<std::size_t> NameTable::matches(const std::string& text) const {
  const std::string lower = Text::lowercase(text);
  if (const auto whole = byId_.find(lower); whole != byId_.end()) return {whole->second};
  if (const auto named = byName_.find(Text::comparisonKey(text)); named != byName_.end()) return named->second;
  std::vector<std::size_t> found;
  if (ids_ == Ids::whole || text.size() < kShortestIdPrefix) return found;
  for (const auto& [id, position] : byId_) {
    if (id.starts_with(lower)) found.push_back(position);
  }
  return found;
}

std::string NameTable::nearest(const std::string& text) const {
  std::vector<std::string> names;
  for (const Named& entry : entries_) names.push_back(entry.names.front());
  return nearestName(text, names);
}

void NameTable::throwUnknown(const std::string& text) const {
  const std::string near = nearest(text);
  const std::string hint = near.empty() ? "" : fmt::format(" Did you mean '{}'?", near);
  throw SkillsError::notFound(
      Text::singleLine(fmt::format("There is no {} '{}'.{} '{}' shows all.", noun_, text, hint, listing_)));
}

void NameTable::throwAmbiguous(const std::string& text, const std::vector<std::size_t>& found) const {
  std::string message =
      Text::singleLine(fmt::format("'{}' fits {} {}s. Name one by its id:", text, found.size(), noun_));
  for (const std::size_t position : found) {
    const Named& entry = entries_[position];
    message += "\n  " + Text::singleLine(fmt::format("{}  {}  {}", entry.id, entry.names.front(), entry.where));
  }
  throw SkillsError::conflict(message);
}

std::vector<SkillRecord> skillsNamed(SkillsEngine& engine, const std::vector<std::string>& names) {
  const auto records = engine.skills();
  return entriesNamed(records, skillTable(records), names);
}

SkillRecord skillNamed(SkillsEngine& engine, const std::string& name) { return skillsNamed(engine, {name}).front(); }

std::vector<std::string> skillIdsNamed(SkillsEngine& engine, const std::vector<std::string>& names) {
  std::vector<std::string> ids;
  for (SkillRecord& record : skillsNamed(engine, names)) ids.push_back(std::move(record.id));
  return ids;
}

std::vector<std::string> agentsNamed(SkillsEngine& engine, const std::vector<std::string>& names) {
  const auto adapters = engine.adapters();
  const NameTable table = agentTable(adapters);
  std::vector<std::string> keys;
  for (const std::string& name : names) {
    const bool isKey = std::any_of(adapters.begin(), adapters.end(), [&](const auto& a) { return a.key == name; });
    const std::string& key = adapters[table.find(isKey ? name : agentName(name))].key;
    if (std::find(keys.begin(), keys.end(), key) == keys.end()) keys.push_back(key);
  }
  return keys;
}

std::string agentNamed(SkillsEngine& engine, const std::string& name) { return agentsNamed(engine, {name}).front(); }

std::vector<std::string> activeAgents(SkillsEngine& engine) {
  std::vector<std::string> keys;
  for (const ToolInfo& tool : engine.tools()) {
    if (tool.isActive()) keys.push_back(tool.key);
  }
  if (keys.empty()) {
    throw SkillsError::notFound(
        "No agent is installed and switched on. 'orvanta agent list' shows the agents that Orvanta knows, "
        "'orvanta agent add' adds one of your own.");
  }
  return keys;
}

std::vector<Preset> presetsNamed(SkillsEngine& engine, const std::vector<std::string>& names) {
  const auto presets = engine.presets();
  return entriesNamed(presets, presetTable(presets), names);
}

Preset presetNamed(SkillsEngine& engine, const std::string& name) { return presetsNamed(engine, {name}).front(); }

std::vector<ProjectRecord> projectsNamed(SkillsEngine& engine, const std::vector<std::string>& names) {
  const auto records = engine.projectRecords();
  std::vector<std::string> namesOrIds;
  for (const std::string& name : names) namesOrIds.push_back(idInFolder(records, name));
  return entriesNamed(records, projectTable(records), namesOrIds);
}

ProjectRecord projectNamed(SkillsEngine& engine, const std::string& name) {
  return projectsNamed(engine, {name}).front();
}

std::vector<DiscoveredGroup> groupsNamed(const std::vector<DiscoveredGroup>& groups,
                                         const std::vector<std::string>& names) {
  std::vector<Named> entries;
  for (const DiscoveredGroup& group : groups) {
    entries.push_back({group.id(), {group.name}, group.locations.empty() ? "" : group.locations[0].foundPath});
  }
  const NameTable table("discovered skill", "orvanta discover", NameTable::Ids::byPrefix, std::move(entries));
  return entriesNamed(groups, table, names);
}

std::string nearestName(const std::string& text, const std::vector<std::string>& candidates) {
  const std::string wanted = Text::comparisonKey(text);
  const std::string* nearest = nullptr;
  std::size_t smallest = std::max<std::size_t>(2, wanted.size() / 3) + 1;
  for (const std::string& candidate : candidates) {
    const std::string key = Text::comparisonKey(candidate);
    const std::size_t distance = key.starts_with(wanted) && wanted.size() > 2 ? 1 : Text::editDistance(wanted, key);
    if (distance < smallest && distance < std::max(wanted.size(), key.size())) {
      smallest = distance;
      nearest = &candidate;
    }
  }
  return nearest == nullptr ? "" : *nearest;
}

}  // namespace orvanta::cli
