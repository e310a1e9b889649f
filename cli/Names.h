#pragma once

// How things are named on the command line: by name without regard to letter case, by id, or by the beginning of an id.
// A text that fits nothing is `notFound` and suggests the nearest name; one that fits several things is a `conflict`
// and lists them with their ids.

#include <string>
#include <unordered_map>
#include <vector>

#include "engine/SkillsEngine.h"

namespace orvanta::cli {

struct Named {
  std::string id;
  std::vector<std::string> names;
  std::string where;  // tells namesakes apart
};

class NameTable {
 public:
  enum class Ids {
    byPrefix,  // four characters or more stand for an id
    whole,
  };

  // `noun` is what one of them is called and `listing` the command that shows them all.
  NameTable(std::string noun, std::string listing, Ids ids, std::vector<Named> entries);

  // The position of the one entry that is meant.
  [[nodiscard]] std::size_t find(const std::string& text) const;

 private:
  [[nodiscard]] std::vector<std::size_t> matches(const std::string& text) const;
  [[nodiscard]] std::string nearest(const std::string& text) const;
  [[noreturn]] void throwUnknown(const std::string& text) const;
  [[noreturn]] void throwAmbiguous(const std::string& text, const std::vector<std::size_t>& found) const;

  std::string noun_;
  std::string listing_;
  Ids ids_;
  std::vector<Named> entries_;
  std::unordered_map<std::string, std::size_t> byId_;
  std::unordered_map<std::string, std::vector<std::size_t>> byName_;
};

// The things named, each once, in the order of the names.
std::vector<SkillRecord> skillsNamed(SkillsEngine& engine, const std::vector<std::string>& names);
SkillRecord skillNamed(SkillsEngine& engine, const std::string& name);
std::vector<std::string> skillIdsNamed(SkillsEngine& engine, const std::vector<std::string>& names);

// Agents by key or display name; "-", "_" and spaces count as the same. Returns their keys.
std::vector<std::string> agentsNamed(SkillsEngine& engine, const std::vector<std::string>& names);
std::string agentNamed(SkillsEngine& engine, const std::string& name);

// Agents that are installed and switched on. Throws `notFound` when there are none.
std::vector<std::string> activeAgents(SkillsEngine& engine);

// Presets by name or id.
std::vector<Preset> presetsNamed(SkillsEngine& engine, const std::vector<std::string>& names);
Preset presetNamed(SkillsEngine& engine, const std::string& name);

// Projects by name or id, or by the path of their folder: a text with a "/" in it, "." or "..".
std::vector<ProjectRecord> projectsNamed(SkillsEngine& engine, const std::vector<std::string>& names);
ProjectRecord projectNamed(SkillsEngine& engine, const std::string& name);

// Groups of discovered skills, by name or the beginning of their fingerprint.
std::vector<DiscoveredGroup> groupsNamed(const std::vector<DiscoveredGroup>& groups,
                                         const std::vector<std::string>& names);

// The candidate that was probably meant; empty when none is near.
std::string nearestName(const std::string& text, const std::vector<std::string>& candidates);

}  // namespace orvanta::cli
