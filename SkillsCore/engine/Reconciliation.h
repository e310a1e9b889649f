#pragma once

// Brings the records in line with the files after the backup changed them: new skill folders are recorded, with what
// the manifest knows of them, changed ones are read anew, and those that are gone are marked.
//
// The files may have been written by anybody. A folder with links that lead out of it is not recorded.

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "content/SkillMetadata.h"
#include "engine/Library.h"
#include "engine/Repair.h"
#include "engine/Reports.h"
#include "engine/Skills.h"
#include "foundations/Operation.h"
#include "sources/BackupManifest.h"

namespace orvanta {

class Reconciliation {
 public:
  Reconciliation(Library& library, Skills& skills, Repair& repair)
      : library_(library), skills_(skills), repair_(repair) {}

  struct Scope {
    std::optional<BackupManifest> manifest = {};
    // The folders that can differ from their records; none: all. What is missing is noticed in any case.
    std::optional<std::set<std::string>> changedFolders = {};
    // What a skill said of itself before its folder changed; without it, its record speaks for it.
    std::function<std::optional<SkillMeta>(const SkillRecord&)> metadataBefore = {};
  };

  // Goes on past failures of single skills.
  ReconcileReport run(const Scope& scope, const OperationContext& context);

 private:
  struct Candidate;
  using Entries = std::map<std::string_view, const BackupManifest::Entry*>;

  std::vector<Candidate> newFolders(const std::vector<SkillRecord>& records);
  std::vector<Candidate> candidatesAmong(const std::vector<SkillRecord>& records, const Scope& scope);
  // Returns the skill's name.
  std::string add(const std::filesystem::path& folder, const std::string& hash, const Entries& entries);
  SkillRecord renew(const SkillRecord& record, const std::string& hash, const Scope& scope);
  void markMissing(const std::vector<SkillRecord>& records, ReconcileReport& report);

  Library& library_;
  Skills& skills_;
  Repair& repair_;
};

}  // namespace orvanta
