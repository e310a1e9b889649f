#pragma once

// The folders in which the skills of one workspace lie, and the guard that keeps every operation inside of them.

#include <filesystem>
#include <string>
#include <vector>

#include "agents/ToolAdapters.h"
#include "foundations/Models.h"
#include "platform/Host.h"

namespace orvanta {

class Workspace {
 public:
  // One agent's folder for skills, or for its disabled skills.
  struct Folder {
    std::filesystem::path path;     // as it is spelled
    std::filesystem::path real;     // with its links resolved
    std::filesystem::path sibling;  // where its skills go when they are disabled, or enabled; empty where nowhere
    std::string agent;
    std::string agentName;
    bool isRecursive = false;
    bool holdsEnabled = true;
    bool leadsOutside = false;  // out of the project, by a link
    bool isRepeated = false;    // another agent's folder is the same on the disk, and counts
  };

  // Of agents that share a folder the first counts; `adapters` has the active ones first.
  Workspace(ProjectRecord record, const std::vector<ToolAdapter>& adapters, const UserFolders& user);

  [[nodiscard]] const ProjectRecord& record() const { return record_; }
  [[nodiscard]] const std::vector<Folder>& folders() const { return folders_; }
  [[nodiscard]] bool exists() const;

  // All of them, each once.
  [[nodiscard]] std::vector<std::filesystem::path> roots() const;

  // The folder in which the location lies, as it is spelled and with its links resolved. Throws `refused` where there
  // is none.
  [[nodiscard]] const Folder& folderOf(const std::filesystem::path& location) const;

  void assertInside(const std::filesystem::path& location) const { static_cast<void>(folderOf(location)); }

  // Throws `notFound` when the workspace's own folder is gone.
  void requireExists() const;

 private:
  void addFolders(const ToolAdapter& adapter, const std::filesystem::path& enabled,
                  const std::filesystem::path& disabled);

  ProjectRecord record_;
  std::vector<Folder> folders_;
};

// The agents in the order in which folders that several of them share are given to them: the active ones first, each
// group in display order.
std::vector<ToolAdapter> adaptersByPrecedence(const ToolOverrides& overrides, const UserFolders& user);

// Where a linked agent's disabled skills go.
std::filesystem::path disabledSibling(const std::filesystem::path& skillsFolder);

}  // namespace orvanta
