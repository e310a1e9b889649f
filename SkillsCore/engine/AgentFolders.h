#pragma once

// What lies in agents' folders besides what was deployed there: listing it, and deleting it at the user's wish.
// Bringing it into the library is the matter of Import.

#include <filesystem>
#include <string>
#include <vector>

#include "engine/AgentSettings.h"
#include "engine/Library.h"
#include "engine/Reports.h"
#include "foundations/Operation.h"

namespace orvanta {

class AgentFolders {
 public:
  AgentFolders(Library& library, AgentSettings& agents) : library_(library), agents_(agents) {}

  // The skill folders in the agent's folder, then the recorded ones that are gone.
  std::vector<AgentSkillEntry> entries(const std::string& tool);

  std::vector<DiscoveredGroup> discover(const OperationContext& context);

  // Deletes what stands at the path. Throws `refused` for a path outside the agent's folder, also by way of a link, and
  // for what a deployment record names, holds or lies in.
  void deleteUnmanaged(const std::filesystem::path& path, const std::string& tool);
  Plan planDelete(const std::filesystem::path& path, const std::string& tool);

  // Throws `refused` when a deployment record names the path, a folder above it or something below it.
  void requireUnmanaged(const std::filesystem::path& path);

 private:
  std::filesystem::path requireDeletable(const std::filesystem::path& path, const ToolAdapter& adapter);

  Library& library_;
  AgentSettings& agents_;
};

// The standardised path, which must lie below one of the agent's folders as it is spelled and with its links resolved,
// and not be one of them, nor be, hold or lie in the library. Throws `refused` otherwise.
std::filesystem::path requireInside(const std::filesystem::path& path,
                                    const std::vector<std::filesystem::path>& folders, const ToolAdapter& adapter,
                                    const Paths& library);

}  // namespace orvanta
