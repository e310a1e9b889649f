#pragma once

// Finds objects that describe skills anywhere in a page, be they JSON or JSON inside a string of a script.

#include <functional>
#include <string_view>

namespace orvanta {

// The texts as they stand in the page; none has a quote or a backslash in it, and `installs` is digits.
struct ScriptedSkill {
  std::string_view source;
  std::string_view skillId;
  std::string_view name;
  std::string_view installs;
};

// In the page's order. Takes less than a second whatever the page holds: an object that takes too long to read is
// passed over, and a page made of such ends early.
void forEachSkillInScripts(std::string_view page, const std::function<void(const ScriptedSkill&)>& body);

}  // namespace orvanta
