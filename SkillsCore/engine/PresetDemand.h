#pragma once

// What presets want of the library as it is now. Read once, by a constant number of queries, and asked for any number
// of presets.

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "engine/Library.h"

namespace orvanta {

class PresetDemand {
 public:
  explicit PresetDemand(Library& library);

  // Each enabled member, in the preset's order, for each active agent in display order that is not switched off for it.
  // Members that are no longer in the library want nothing.
  [[nodiscard]] std::vector<SkillToolPair> desiredPairs(const Preset& preset) const;

  // How many of these pairs there are, and how many of them are deployed.
  [[nodiscard]] PresetActivation activation(const Preset& preset) const;

 private:
  // Lets a map be asked with texts that are no strings.
  struct TextHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>{}(text); }
  };
  template <typename Value>
  using ByText = std::unordered_map<std::string, Value, TextHash, std::equal_to<>>;

  // The active agents that hold a skill, by their position, and their number.
  struct Holders {
    std::vector<bool> isHolder;
    std::int64_t count = 0;
  };

  std::vector<std::string> agents_;
  ByText<std::size_t> positions_;
  ByText<Holders> enabledSkills_;
};

}  // namespace orvanta
