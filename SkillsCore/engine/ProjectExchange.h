#pragma once

// Moving skills between the library and a workspace: export, import, pull (the project's copy becomes what the library
// holds) and push (the other way round). Links into the library are the same on both sides and are left alone.

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "engine/Deployment.h"
#include "engine/Installation.h"
#include "engine/Library.h"
#include "engine/ProjectComparison.h"
#include "engine/Repair.h"
#include "engine/Reports.h"
#include "engine/Skills.h"
#include "engine/Workspace.h"
#include "foundations/Operation.h"

namespace orvanta {

class ProjectExchange {
 public:
  ProjectExchange(Library& library, Skills& skills, Deployment& deployment, Repair& repair)
      : library_(library), skills_(skills), deployment_(deployment), repair_(repair) {}

  // Every skill for every agent; goes on past failures. Into a linked agent's folder skills are deployed.
  ApplyReport exportSkills(const Workspace& workspace, const ProjectExport& request, const OperationContext& context);
  Plan planExport(const Workspace& workspace, const ProjectExport& request);

  InstallRequest importRequest(const Workspace& workspace, const std::filesystem::path& path);

  void pull(const Workspace& workspace, const std::filesystem::path& path);
  Plan planPull(const Workspace& workspace, const std::filesystem::path& path);

  SkillSummary push(const Workspace& workspace, const std::filesystem::path& path);
  Plan planPush(const Workspace& workspace, const std::filesystem::path& path);

 private:
  // The two sides of an exchange.
  struct Counterparts {
    ProjectSkill own;
    SkillRecord center;
    bool isLink = false;                   // to the library's folder
    std::vector<SkillTarget> deployments;  // recorded at the workspace's side, as far as a pull needs to know

    [[nodiscard]] bool isSame() const { return isLink || own.syncStatus == ProjectSyncStatus::inSync; }
    // Why nothing needs to be done.
    [[nodiscard]] std::string reason() const { return isLink ? "a link into the library" : "the same already"; }
  };

  Counterparts counterparts(const Workspace& workspace, const std::filesystem::path& path);
  // Both throw what refuses the exchange, with nothing changed.
  Counterparts checkPull(const Workspace& workspace, const std::filesystem::path& path);
  Counterparts checkPush(const Workspace& workspace, const std::filesystem::path& path);
  static PlannedStep stepFor(const Counterparts& pair, const std::optional<std::string>& tool, const std::string& path);
  ApplyReport deployInto(const Workspace& workspace, const ProjectExport& request, const OperationContext& context);

  Library& library_;
  Skills& skills_;
  Deployment& deployment_;
  Repair& repair_;
};

}  // namespace orvanta
