#include <algorithm>

#include <fmt/format.h>

#include "cli/Format.h"
#include "cli/Names.h"
#include "cli/commands/Common.h"
#include "cli/commands/Projects.h"
#include "foundations/Text.h"

namespace orvanta::cli {

namespace {

namespace fs = std::filesystem;

using Skills = std::vector<ProjectSkill>;

// Both are absolute when what was typed is.
std::vector<std::string> placesOf(const ProjectRecord& project, const std::string& typed) {
  return {comparablePath(fs::path(project.path) / typed), comparablePath(typed)};
}

const ProjectSkill* skillAt(const Skills& skills, const std::string& path) {
  const auto isThere = [&](const ProjectSkill& skill) { return comparablePath(skill.path) == path; };
  const auto found = std::find_if(skills.begin(), skills.end(), isThere);
  return found == skills.end() ? nullptr : &*found;
}

Skills skillsCalled(const Skills& skills, const std::string& typed) {
  const std::string wanted = Text::comparisonKey(typed);
  Skills called;
  for (const ProjectSkill& skill : skills) {
    if (Text::comparisonKey(skill.name) == wanted || skill.relativePath == typed) called.push_back(skill);
  }
  return called;
}

[[noreturn]] void throwSeveral(const std::string& typed, const Skills& skills) {
  std::string message =
      Text::singleLine(fmt::format("'{}' fits {} skills of the project. Name one by its path:", typed, skills.size()));
  for (const ProjectSkill& skill : skills) message += "\n  " + Text::singleLine(skill.path);
  throw SkillsError::conflict(message);
}

}  // namespace

Input& projectArgument(CommandLine& line, std::string& target) {
  return line
      .argument("PROJECT", target, "A project's name, its folder, its id, or at least four characters of its id",
                Completes::projects)
      .required();
}

void projectAndPath(CommandLine& line, ProjectSkillOptions& options) {
  projectArgument(line, options.project);
  line.argument("PATH", options.path, "The skill's folder, or its name where only one skill of the project has it",
                Completes::files)
      .required();
  line.dryRunFlag(options.dryRun);
}

ChosenSkill chosenSkill(const ProjectRecord& project, const Skills& skills, const std::string& typed) {
  const auto places = placesOf(project, typed);
  for (const std::string& place : places) {
    if (const ProjectSkill* skill = skillAt(skills, place)) return {project, skill->path, *skill};
  }
  const Skills called = skillsCalled(skills, typed);
  if (called.size() > 1) throwSeveral(typed, called);
  if (called.empty()) return {project, places.front(), std::nullopt};
  return {project, called.front().path, called.front()};
}

ChosenSkill chosenSkill(Session& session, const ProjectSkillOptions& options) {
  SkillsEngine& engine = session.engine();
  const ProjectRecord project = projectNamed(engine, options.project);
  const auto skills =
      lookedAt(session, [&](const OperationContext& context) { return engine.projectSkills(project.id, context); });
  return chosenSkill(project, skills, options.path);
}

Json skillAfterChange(Session& session, const ChosenSkill& chosen, bool enabled) {
  const auto skills = session.change(
      [&](const OperationContext& context) { return session.engine().projectSkills(chosen.project.id, context); });
  const auto isIt = [&](const ProjectSkill& skill) {
    return chosen.skill && skill.agent == chosen.skill->agent && skill.relativePath == chosen.skill->relativePath &&
           skill.enabled == enabled;
  };
  const auto found = std::find_if(skills.begin(), skills.end(), isIt);
  return found == skills.end() ? Json{{"path", fsPath(chosen.path)}} : Json(*found);
}

}  // namespace orvanta::cli
