#pragma once

// Skills from folders and archives into the library. Reading and copying happens in `prepare`, on all cores and without
// the library's lock; `settle` gives every skill its place and writes all records in one transaction.

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/Library.h"
#include "engine/Reports.h"
#include "engine/Skills.h"
#include "foundations/Operation.h"
#include "foundations/SkillsError.h"
#include "sources/Installer.h"
#include "sources/StagingFolder.h"

namespace orvanta {

// One skill that is to be installed.
struct InstallRequest {
  std::filesystem::path folder;
  std::optional<std::string> name;
  SkillSource source;
  std::string action;  // for the audit log
};

// The requests made ready; the copies go when this goes.
struct PreparedInstall {
  struct Item {
    InstallRequest request;
    std::optional<Installer::PreparedSkill> skill;
    std::optional<SkillsError> failure;  // with neither, a stop was requested first
  };

  std::unique_ptr<StagingFolder> staging;
  std::vector<Item> items;
};

class Installation {
 public:
  Installation(Library& library, Skills& skills) : library_(library), skills_(skills) {}

  // Requests for folders on the user's disk.
  static std::vector<InstallRequest> localRequests(const std::vector<std::filesystem::path>& folders,
                                                   const std::optional<std::string>& name = std::nullopt);

  // Needs no turn: touches only the staging folder. What is no folder, or lies in the library, is a failure of its
  // item.
  static PreparedInstall prepare(const Paths& paths, std::vector<InstallRequest> requests,
                                 const OperationContext& context);
  // The same for requests that come bit by bit: adds them to what was prepared before.
  static void prepareAlso(PreparedInstall& prepared, const Paths& paths, std::vector<InstallRequest> requests,
                          const OperationContext& context);
  // The places that the prepared skills get, by item, looked for under the library's lock; they are noted in the
  // staging folder, so that a later start can take back what a killed process left there.
  static std::vector<Installer::Destination> assignPlaces(const Paths& paths, const PreparedInstall& prepared);
  // Gives the prepared skills their places and records. Failures of single skills are reported; if the records cannot
  // be written the folders are taken out again and the error is thrown.
  InstallReport settle(const PreparedInstall& prepared);
  // The same for one skill alone, whose failure is thrown.
  SkillSummary settleOne(const PreparedInstall& prepared);

  // The same checks and names as `prepare`, with nothing copied.
  Plan plan(const std::vector<InstallRequest>& requests);
  // One step of such a plan; notes the place it takes.
  PlannedStep planOne(const InstallRequest& request, Installer::Taken& taken);

 private:
  Library& library_;
  Skills& skills_;
};

// Unpacks an archive below the user's temporary folder and finds the one skill in it.
class UnpackedArchive {
 public:
  // Throws `invalidInput` or `io`, with nothing left behind.
  UnpackedArchive(const std::filesystem::path& archive, const UserFolders& user, const std::stop_token& stop);
  ~UnpackedArchive();
  UnpackedArchive(const UnpackedArchive&) = delete;
  UnpackedArchive& operator=(const UnpackedArchive&) = delete;

  [[nodiscard]] InstallRequest request(const std::optional<std::string>& name) const;

 private:
  struct Contents;
  std::unique_ptr<Contents> contents_;
};

}  // namespace orvanta
