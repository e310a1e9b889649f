#pragma once

// Which AI coding agents exist, where each keeps its skills, and whether it is present on this machine. A fixed table
// and the user's changes to it; nothing is stored here, and the file system is only asked whether paths exist.

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundations/Models.h"
#include "platform/Host.h"

namespace orvanta {

struct ToolAdapter {
  std::string key;
  std::string displayName;
  std::string relativeSkillsDir;                 // global skills folder, relative to home
  std::string relativeDetectDir;                 // its existence means that the agent is installed
  std::vector<std::string> additionalScanDirs;   // searched for skills the agent already holds, never deployed into
  std::optional<std::string> overrideSkillsDir;  // the user's folder instead; may begin with "~"
  bool isCustom = false;
  bool recursiveScan = false;  // its folder is searched below the first level
  std::optional<std::string> projectRelativeSkillsDirOverride;
  ToolCategory category = ToolCategory::coding;

  [[nodiscard]] const std::string& projectRelativeSkillsDir() const {
    return projectRelativeSkillsDirOverride ? *projectRelativeSkillsDirOverride : relativeSkillsDir;
  }
  [[nodiscard]] bool hasPathOverride() const { return overrideSkillsDir.has_value(); }

  // The global skills folder in force. Asks the file system at every call, so that what appears meanwhile is seen.
  [[nodiscard]] std::filesystem::path skillsDir(const UserFolders& user) const;

  // Custom and moved agents are always installed; others when their detection folder exists.
  [[nodiscard]] bool isInstalled(const UserFolders& user) const;

  [[nodiscard]] std::vector<std::filesystem::path> additionalExistingScanDirs(const UserFolders& user) const;

  // `skillsDir`, then each existing extra folder that differs from it.
  [[nodiscard]] std::vector<std::filesystem::path> allScanDirs(const UserFolders& user) const;

  // Where a home-relative folder may lie: below home and, for ".config/…", below the configuration folder too.
  static std::vector<std::filesystem::path> candidatePaths(std::string_view relative, const UserFolders& user);

  // The first candidate at which something exists, else the first.
  static std::filesystem::path selectExistingOrDefault(const std::vector<std::filesystem::path>& candidates);

  friend bool operator==(const ToolAdapter&, const ToolAdapter&) = default;
};

namespace ToolAdapters {

using Overrides = ToolOverrides;

// The built-in agents in their built-in order.
const std::vector<ToolAdapter>& builtin();

// Every agent with the user's changes applied, in display order: those in `order` first, then built-in, then custom.
// A custom agent that uses a built-in key is listed beside it.
std::vector<ToolAdapter> all(const Overrides& overrides);

// Those of `all` that are installed and not switched off.
std::vector<ToolAdapter> active(const Overrides& overrides, const UserFolders& user);

// The first of `all` whose key is exactly `key`.
std::optional<ToolAdapter> find(std::string_view key, const Overrides& overrides);

}  // namespace ToolAdapters
}  // namespace orvanta
