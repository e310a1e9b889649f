#pragma once

// The workspaces that the user registered: projects and linked agents' folders. Only the records; what lies in the
// folders is the matter of ProjectComparison and ProjectExchange.

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "engine/Library.h"
#include "engine/Workspace.h"
#include "sources/ProjectScanner.h"

namespace orvanta {

class Projects {
 public:
  explicit Projects(Library& library) : library_(library) {}

  // Throws `notFound`.
  Workspace require(const std::string& id);
  std::vector<Workspace> all();
  std::vector<ProjectRecord> records();
  Workspace workspace(const ProjectRecord& record);

  // Both throw `conflict` for what is registered already, `invalidInput` for what lies in the library.
  ProjectRecord add(const std::filesystem::path& path, const std::optional<std::string>& name);
  ProjectRecord addLinked(const std::string& agentKey);
  void remove(const std::string& id);
  void reorder(const std::vector<std::string>& ids);

  // What a scan for more of them needs to know.
  struct Search {
    std::vector<ToolAdapter> adapters;
    ProjectScanner::ScanScope scope;
  };
  Search search();

 private:
  void requireNew(const std::filesystem::path& path);
  ProjectRecord insert(ProjectRecord record, const std::string& action);

  Library& library_;
};

}  // namespace orvanta
