#pragma once

// Disabling, enabling and deleting the skills that lie in a workspace. What the library deployed there stays true to
// its records: it is undeployed, or left alone.

#include <filesystem>
#include <string>
#include <vector>

#include "engine/Deployment.h"
#include "engine/Library.h"
#include "engine/ProjectComparison.h"
#include "engine/Reports.h"
#include "engine/Workspace.h"

namespace orvanta {

class ProjectSkillMoves {
 public:
  ProjectSkillMoves(Library& library, Deployment& deployment) : library_(library), deployment_(deployment) {}

  // To the folder of disabled skills, or back. Nothing to do is no error.
  void setEnabled(const Workspace& workspace, const std::filesystem::path& path, bool enabled);
  Plan planSetEnabled(const Workspace& workspace, const std::filesystem::path& path, bool enabled);

  void erase(const Workspace& workspace, const std::filesystem::path& path);
  Plan planErase(const Workspace& workspace, const std::filesystem::path& path);

 private:
  struct Move {
    ProjectSkill skill;
    std::filesystem::path folder;   // of the workspace, in which it lies
    std::filesystem::path sibling;  // in which it is to lie
    std::filesystem::path destination;
    bool isDone = false;  // already
  };
  struct Removal {
    ProjectSkill skill;
    std::vector<SkillToolPair> deployments;  // recorded at the place
  };

  // Both throw what refuses the change, with nothing changed.
  Move checkMove(const Workspace& workspace, const std::filesystem::path& path, bool enabled);
  Removal checkRemoval(const Workspace& workspace, const std::filesystem::path& path);
  void undeploy(const Removal& removal);

  Library& library_;
  Deployment& deployment_;
};

}  // namespace orvanta
