#pragma once

// What the verbs of the noun "project" share: how a project and a skill in it are named.

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "cli/CommandLine.h"
#include "cli/Session.h"
#include "foundations/ModelsJSON.h"

namespace orvanta::cli {

Input& projectArgument(CommandLine& line, std::string& target);

// What a verb on one skill is told.
struct ProjectSkillOptions {
  std::string project;
  std::string path;
  bool dryRun = false;
};

void projectAndPath(CommandLine& line, ProjectSkillOptions& options);

// One skill of a project as it was named.
struct ChosenSkill {
  ProjectRecord project;
  std::filesystem::path path;
  std::optional<ProjectSkill> skill;  // none when the project has no skill there

  [[nodiscard]] std::string name() const { return skill ? skill->name : path.filename().string(); }
};

// The path is looked for below the project's folder and below the working folder; the name of a skill or its path below
// the agent's folder will do where only one skill has it. Throws `conflict` and lists their paths when several have.
// What fits nothing becomes a path below the project's folder, about which the engine says what is wrong.
ChosenSkill chosenSkill(const ProjectRecord& project, const std::vector<ProjectSkill>& skills,
                        const std::string& typed);
ChosenSkill chosenSkill(Session& session, const ProjectSkillOptions& options);

// The skill after a change that left it so; just its path when it cannot be found there any more.
Json skillAfterChange(Session& session, const ChosenSkill& chosen, bool enabled);

}  // namespace orvanta::cli
