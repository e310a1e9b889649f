#pragma once

// Tags as users type them, normalised before they reach the records.

#include <string>
#include <vector>

#include "engine/Library.h"

namespace orvanta {

class Tags {
 public:
  explicit Tags(Library& library) : library_(library) {}

  void set(const SkillRecord& skill, const std::vector<std::string>& tags);
  void add(const SkillRecord& skill, const std::vector<std::string>& tags);
  void remove(const SkillRecord& skill, const std::vector<std::string>& tags);
  // Throws `notFound` when no skill has the tag.
  void rename(const std::string& from, const std::string& to);
  void erase(const std::string& tag);

 private:
  std::string requireExisting(const std::string& tag);

  Library& library_;
};

}  // namespace orvanta
