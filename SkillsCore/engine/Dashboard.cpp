#include "engine/Dashboard.h"

#include <numeric>

#include "agents/ToolAdapters.h"
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

DashboardStats dashboardStats(Library& library) {
  SQLiteConnection& db = library.store.connection();
  const ToolOverrides overrides = library.store.toolOverrides();
  std::int64_t installed = 0;
  for (const auto& adapter : ToolAdapters::all(overrides)) installed += adapter.isInstalled(library.user) ? 1 : 0;
  return {.totalSkills = db.scalarInt("SELECT COUNT(*) FROM skills"),
          .enabledSkills = db.scalarInt("SELECT COUNT(*) FROM skills WHERE enabled != 0"),
          .installedAgents = installed,
          .activeAgents = static_cast<std::int64_t>(ToolAdapters::active(overrides, library.user).size()),
          .presets = db.scalarInt("SELECT COUNT(*) FROM scenarios"),
          .projects = db.scalarInt("SELECT COUNT(*) FROM projects"),
          .updatesAvailable = db.scalarInt("SELECT COUNT(*) FROM skills WHERE update_status = 'available'"),
          .brokenTargets = db.scalarInt("SELECT COUNT(*) FROM skill_targets WHERE status = 'error'"),
          .tags = db.scalarInt("SELECT COUNT(DISTINCT tag) FROM skill_tags"),
          .librarySizeBytes = sizeOfSkills(library.paths.skills())};
}

}  // namespace orvanta
