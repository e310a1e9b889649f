#pragma once

// What bulk operations and plans give back to the faces.

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundations/Models.h"
#include "foundations/SkillsError.h"

namespace orvanta {

// One deployment that was made, found in place, or taken out.
struct Placement {
  std::string skillId;
  std::string skillName;
  std::string tool;
  std::string targetPath;
  SyncMode mode = SyncMode::symlink;
  bool changed = true;              // false: all was in place already (deploy), or the files were left (undeploy)
  std::optional<std::string> note;  // why files were left: "kept: …", "preserved: …"

  friend bool operator==(const Placement&, const Placement&) = default;
};

// Outcome of deploying or undeploying many pairs. Failures read "SKILL → AGENT: " and the error's text.
struct PlacementReport {
  std::vector<Placement> done;
  std::size_t untouched = 0;  // of those: in place and recorded so already
  std::vector<std::string> errors;
  bool interrupted = false;  // stopped on request between two pairs; what is in `done` is done and recorded
};

struct InstallReport {
  std::vector<SkillSummary> installed;
  std::vector<std::string> reusedIds;  // those of `installed` that the library held already with the same content
  std::vector<std::string> errors;
  bool interrupted = false;
};

// The figures of a deployment alone: what was touched or recorded anew counts as deployed.
ApplyReport asApplied(const PlacementReport& placed);

// Library skills that are to be placed in a workspace.
struct ProjectExport {
  std::vector<std::string> skillIds;
  std::vector<std::string> agents;  // keys
  SyncMode mode = SyncMode::copy;   // copies travel with the project, links work on this machine only
  bool force = false;               // replaces folders of the same name
};

// What of a Git repository is to be installed.
struct GitChoice {
  std::optional<std::vector<std::string>> relativePaths = {};  // below the source's folder; none: all skills there
  std::optional<std::string> name = {};                        // for one skill alone
  std::optional<std::string> skillId = {};  // the one skill of this name, wherever it lies; no paths are given then
};

// Outcome of looking for updates.
struct UpdateCheckReport {
  std::map<std::string, UpdateStatus> statuses;  // by skill id; of those that were checked, and those that failed
  std::map<std::string, std::string> errors;     // by skill id
  bool interrupted = false;                      // skills without a status were not reached
};

// Outcome of bringing updates in.
struct UpdateReport {
  struct Failure {
    std::string skillId;
    std::string skillName;
    SkillsError error;
  };
  std::vector<std::string> updatedIds;
  std::vector<std::string> unchangedIds;  // there was nothing new in them
  std::vector<Failure> failures;
  bool interrupted = false;

  // The figures alone, updated as deployed and unchanged as skipped.
  [[nodiscard]] ApplyReport asApplied() const;
};

// Outcome of bringing the records in line with the files. Skills by name; failures read "SKILL: " and the error's text.
struct ReconcileReport {
  std::vector<std::string> added;
  std::vector<std::string> renewed;  // their content changed, or they are back
  std::vector<std::string> missing;  // their folders are gone
  std::vector<std::string> errors;

  // The figures alone: added as deployed, missing as removed.
  [[nodiscard]] ApplyReport asApplied() const;
};

// Outcome of enabling or disabling many skills. Failures read "SKILL: " and the error's text.
struct ActivationReport {
  std::vector<std::string> changedIds;
  std::vector<std::string> errors;
  std::optional<SkillsError> failure;  // the first of them
  bool interrupted = false;
};

struct RemovalReport {
  std::vector<std::string> removed;  // ids
  std::vector<std::string> notes;    // what was left in agents' folders, and why
  std::vector<std::string> errors;
  bool interrupted = false;
};

// Outcome of moving the library.
struct RelocationReport {
  std::filesystem::path from;
  std::filesystem::path to;
  bool moved = false;                   // false: it was there already
  std::size_t relinked = 0;             // links in agents' folders that lead to the new place now
  std::vector<std::string> errors;      // links that could not be re-pointed, and what the next start tries again
  std::vector<std::string> leftBehind;  // names in the old folder that are not the library's
  bool isChosen = false;                // programs that are told of no folder use this library
};

// One thing an operation would do, made by the checks that the operation itself runs first.
struct PlannedStep {
  enum class Action { place, replace, keep, remove, refused };

  Action action = Action::place;
  std::string skillName;
  std::optional<std::string> skillId;
  std::optional<std::string> tool;
  std::string path;                   // what would be placed, replaced, kept or removed
  std::optional<std::string> reason;  // why it is refused or kept

  friend bool operator==(const PlannedStep&, const PlannedStep&) = default;
};
std::string_view rawValue(PlannedStep::Action action);

using Plan = std::vector<PlannedStep>;

}  // namespace orvanta
