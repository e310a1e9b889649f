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
    std::string obstacle;     // why nothing in it is the workspace's; empty when all is well
    bool isRepeated = false;  // another agent's folder is the same on the disk, and counts
  };

  // Of agents that share a folder the first counts; `adapters` has the active ones first. `library` is the library's
  // base folder, into which no workspace reaches.
  Workspace(const ProjectRecord& record, const std::vector<ToolAdapter>& adapters, const UserFolders& user,
            const std::filesystem::path& library);

  // That of a linked workspace names the folder that its agent has now.
  [[nodiscard]] const ProjectRecord& record() const { return record_; }
  [[nodiscard]] const std::vector<Folder>& folders() const { return folders_; }
  [[nodiscard]] bool exists() const;

  // All of them, each once.
  [[nodiscard]] std::vector<std::filesystem::path> roots() const;

  // The folder in which the location lies, as it is spelled and with its links resolved. Throws `refused` where there
  // is none, and for what belongs to the library.
  [[nodiscard]] const Folder& folderOf(const std::filesystem::path& location) const;

  void assertInside(const std::filesystem::path& location) const { static_cast<void>(folderOf(location)); }

  // Whether the location is the library's, which can lie inside one of the folders.
  [[nodiscard]] bool isLibrarys(const std::filesystem::path& location) const;

  // Throws `notFound` when the workspace's own folder is gone.
  void requireExists() const;

 private:
  void addFolders(const ToolAdapter& adapter, const std::filesystem::path& enabled,
                  const std::filesystem::path& disabled);
  [[nodiscard]] std::string obstacleAt(const std::filesystem::path& path, const std::filesystem::path& real) const;

  ProjectRecord record_;
  std::filesystem::path library_;  // with its links resolved
  std::vector<Folder> folders_;
};

// The record of a workspace as it is now: a linked one follows its agent to another folder.
ProjectRecord currentRecord(ProjectRecord record, const std::vector<ToolAdapter>& adapters, const UserFolders& user);

// The agents in the order in which folders that several of them share are given to them: the active ones first, each
// group in display order.
std::vector<ToolAdapter> adaptersByPrecedence(const ToolOverrides& overrides, const UserFolders& user);

// Where the disabled skills of a folder go.
std::filesystem::path disabledSibling(const std::filesystem::path& skillsFolder);

}  // namespace orvanta
