#include "engine/Tags.h"

#include <algorithm>

#include "foundations/SkillsError.h"
#include "foundations/Text.h"

namespace orvanta {

namespace {

std::string normalised(const std::string& tag) {
  if (!Text::isValidUTF8(tag)) throw SkillsError::invalidInput("A tag must be valid UTF-8");
  std::string name = Text::lowercase(Text::trim(Text::singleLine(tag)));
  if (name.empty()) throw SkillsError::invalidInput("A tag cannot be empty");
  return name;
}

std::vector<std::string> normalised(const std::vector<std::string>& tags) {
  std::vector<std::string> names;
  std::transform(tags.begin(), tags.end(), std::back_inserter(names), [](const auto& tag) { return normalised(tag); });
  return names;
}

}  // namespace

void Tags::set(const SkillRecord& skill, const std::vector<std::string>& tags) {
  const auto names = normalised(tags);
  library_.store.setTags(skill.id, names);
  library_.store.logAudit(
      {.action = "set_tags", .skillId = skill.id, .skillName = skill.name, .detail = Text::join(names, ", ")});
}

void Tags::add(const SkillRecord& skill, const std::vector<std::string>& tags) {
  auto all = library_.store.tags(skill.id);
  all.insert(all.end(), tags.begin(), tags.end());
  set(skill, all);
}

void Tags::remove(const SkillRecord& skill, const std::vector<std::string>& tags) {
  const auto unwanted = normalised(tags);
  auto kept = library_.store.tags(skill.id);
  std::erase_if(kept,
                [&](const auto& tag) { return std::find(unwanted.begin(), unwanted.end(), tag) != unwanted.end(); });
  set(skill, kept);
}

void Tags::rename(const std::string& from, const std::string& to) {
  const std::string newName = normalised(to);
  const std::string oldName = requireExisting(from);
  if (newName == oldName) return;
  library_.store.renameTag(oldName, newName);
  library_.store.logAudit({.action = "rename_tag", .detail = oldName + " → " + newName});
}

void Tags::erase(const std::string& tag) {
  const std::string name = requireExisting(tag);
  library_.store.deleteTag(name);
  library_.store.logAudit({.action = "delete_tag", .detail = name});
}

std::string Tags::requireExisting(const std::string& tag) {
  std::string name = normalised(tag);
  const auto all = library_.store.allTags();
  const bool exists = std::any_of(all.begin(), all.end(), [&](const TagCount& known) { return known.tag == name; });
  if (!exists) throw SkillsError::notFound("No skill has the tag '" + name + "'");
  return name;
}

}  // namespace orvanta
