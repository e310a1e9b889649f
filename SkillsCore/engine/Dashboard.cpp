#include "engine/Dashboard.h"

#include <algorithm>
#include <numeric>

#include "content/ContentHash.h"
#include "engine/LibraryRecovery.h"
#include "files/FS.h"
#include "foundations/Parallel.h"

namespace orvanta {

namespace {

// The size of the skills folder, skill by skill on all cores; what waits there during an operation does not count.
std::int64_t sizeOfSkills(const std::filesystem::path& skills) {
  std::vector<std::filesystem::path> folders = FS::children(skills);
  std::erase_if(folders, [](const auto& folder) {
    const std::string name = folder.filename().string();
    return ContentHash::isIgnored(name) || isSetAside(name) || !FS::isDirectory(folder);
  });
  std::vector<std::int64_t> sizes(folders.size());
  parallelFor(folders.size(), [&](std::size_t i) { sizes[i] = FS::directorySize(folders[i]); });
  return std::accumulate(sizes.begin(), sizes.end(), std::int64_t{0});
}

}  // namespace

DashboardStats dashboardStats(Library& library, AgentSettings& agents) {
  SQLiteConnection& db = library.store.connection();
  const auto tools = agents.tools();
  const auto countTools = [&](auto matches) {
    return static_cast<std::int64_t>(std::count_if(tools.begin(), tools.end(), matches));
  };
  return {.totalSkills = db.scalarInt("SELECT COUNT(*) FROM skills"),
          .enabledSkills = db.scalarInt("SELECT COUNT(*) FROM skills WHERE enabled != 0"),
          .installedAgents = countTools([](const ToolInfo& tool) { return tool.installed; }),
          .activeAgents = countTools([](const ToolInfo& tool) { return tool.isActive(); }),
          .presets = db.scalarInt("SELECT COUNT(*) FROM scenarios"),
          .projects = db.scalarInt("SELECT COUNT(*) FROM projects"),
          .updatesAvailable = db.scalarInt("SELECT COUNT(*) FROM skills WHERE update_status = 'available'"),
          .brokenTargets = db.scalarInt("SELECT COUNT(*) FROM skill_targets WHERE status = 'error'"),
          .tags = db.scalarInt("SELECT COUNT(DISTINCT tag) FROM skill_tags"),
          .librarySizeBytes = sizeOfSkills(library.paths.skills())};
}

}  // namespace orvanta
