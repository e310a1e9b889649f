#pragma once

// Bringing skills from agents' folders into the library, and adopting them: putting a managed deployment in the place
// of the original. What an adoption would lose is refused, and the original goes only when all records are written.

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "engine/AgentFolders.h"
#include "engine/AgentSettings.h"
#include "engine/FolderChanges.h"
#include "engine/Installation.h"
#include "engine/Library.h"
#include "engine/Reports.h"
#include "engine/Skills.h"
#include "foundations/Operation.h"

namespace orvanta {

class Import {
 public:
  Import(Library& library, AgentSettings& agents, AgentFolders& folders, Skills& skills)
      : library_(library), agents_(agents), folders_(folders), skills_(skills) {}

  SkillSummary importUnmanaged(const std::filesystem::path& path, const std::string& tool, bool adopt);
  Plan planImport(const std::filesystem::path& path, const std::string& tool, bool adopt);
  InstallReport importDiscovered(const std::vector<DiscoveredGroup>& groups, bool adopt,
                                 const OperationContext& context);

 private:
  // A folder that a managed deployment is to replace.
  struct Original {
    std::filesystem::path path;
    std::string tool;
  };
  // One skill on its way into the library.
  struct Job {
    InstallRequest request;
    std::vector<Original> originals;
    std::string name;
    std::string tool;
  };
  // One that has its place there.
  struct Arrived {
    const Job* job = nullptr;
    InstalledDirectory installed;
    bool isNew = false;
  };
  struct Outcome {
    std::vector<SkillRecord> records;
    std::vector<std::string> errors;
    std::optional<SkillsError> failure;  // the first of them
    bool interrupted = false;
    bool isAlone = false;  // it was the one skill that was asked for

    void fail(const std::string& name, const SkillsError& error);
  };
  class Adoption;
  using Attempt = std::function<void(const DiscoveredGroup&, const std::function<void()>&)>;

  std::filesystem::path requireImportable(const std::filesystem::path& path, const std::string& tool);
  Original requireAdoptable(const std::filesystem::path& path, const std::string& tool);
  InstallRequest request(const std::filesystem::path& path) const;
  void addOriginals(Job& job, const DiscoveredGroup& group, const Attempt& attempt);
  Outcome run(const std::vector<Job>& jobs, const std::string& action, const OperationContext& context);
  std::vector<SkillRecord> record(std::vector<Arrived>& arrived, const std::string& action);
  void adopt(const std::vector<Arrived>& arrived, Outcome& outcome);
  std::vector<Adoption> preparedAdoptions(const std::vector<Arrived>& arrived, Outcome& outcome);
  static void makeAll(FolderChanges& changes, std::vector<Adoption>& adoptions, Outcome& outcome);
  void recordAdoptions(FolderChanges& changes, std::vector<Adoption>& adoptions);
  void forget(const Arrived& arrived, const SkillRecord& skill);

  Library& library_;
  AgentSettings& agents_;
  AgentFolders& folders_;
  Skills& skills_;
};

}  // namespace orvanta
