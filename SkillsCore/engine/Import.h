#pragma once

// Bringing skills from agents' folders into the library, and adopting them: putting a managed deployment in the place of
// the original. What an adoption would lose is refused, and the original goes only when all records are written.

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "engine/AgentFolders.h"
#include "engine/AgentSettings.h"
#include "engine/Installation.h"
#include "engine/Library.h"
#include "engine/Presets.h"
#include "engine/Reports.h"
#include "engine/Skills.h"
#include "foundations/Operation.h"

namespace orvanta {

class Import {
 public:
  Import(Library& library, AgentSettings& agents, AgentFolders& folders, Skills& skills, Presets& presets)
      : library_(library), agents_(agents), folders_(folders), skills_(skills), presets_(presets) {}

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
    const PreparedInstall::Item* item = nullptr;
    std::vector<Original> originals;
    std::string tool;
  };
  // One job with its files in place, until its records are written.
  class Settled;

  std::filesystem::path requireImportable(const std::filesystem::path& path, const std::string& tool);
  Original requireAdoptable(const std::filesystem::path& path, const std::string& tool);
  InstallRequest request(const std::filesystem::path& path) const;
  std::unique_ptr<Settled> settle(const Job& job);
  // Writes the records of all settled skills at once and makes their changes final.
  std::vector<SkillRecord> record(const std::vector<std::unique_ptr<Settled>>& settled, const std::string& action);

  Library& library_;
  AgentSettings& agents_;
  AgentFolders& folders_;
  Skills& skills_;
  Presets& presets_;
};

}  // namespace orvanta
