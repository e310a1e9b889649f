#include "engine/Installation.h"

#include <mutex>

#include "content/TreeTransfer.h"
#include "files/Paths.h"
#include "foundations/Parallel.h"
#include "foundations/SkillsError.h"
#include "foundations/Text.h"

namespace orvanta {

namespace fs = std::filesystem;

using Action = PlannedStep::Action;

namespace {

std::string folderName(const InstallRequest& request) { return fs::path(fsPath(request.folder)).filename().string(); }

std::optional<std::string> givenName(const InstallRequest& request) {
  const std::string name(Text::trim(request.name.value_or("")));
  return name.empty() ? std::nullopt : std::optional(name);
}

void requireInstallable(const Paths& paths, const fs::path& folder) {
  if (!FS::resolvesToDirectory(folder)) throw SkillsError::invalidInput(folder.string() + " is not a directory");
  if (isInside(folder, paths.base()) || isInside(FS::resolved(folder), FS::resolved(paths.base()))) {
    throw SkillsError::invalidInput(folder.string() + " is already inside the library");
  }
}

}  // namespace

std::vector<InstallRequest> Installation::localRequests(const std::vector<fs::path>& folders,
                                                        const std::optional<std::string>& name) {
  std::vector<InstallRequest> requests;
  for (const auto& folder : folders) {
    const fs::path location = standardized(folder);
    requests.push_back({.folder = location,
                        .name = name,
                        .source = {.type = SourceType::local,
                                   .ref = location.string(),
                                   .resolved = {},
                                   .branch = {},
                                   .subpath = {},
                                   .revision = {}},
                        .action = "install_local"});
  }
  return requests;
}

PreparedInstall Installation::prepare(const Paths& paths, std::vector<InstallRequest> requests,
                                      const OperationContext& context) {
  PreparedInstall prepared;
  prepareAlso(prepared, paths, std::move(requests), context);
  return prepared;
}

void Installation::prepareAlso(PreparedInstall& prepared, const Paths& paths, std::vector<InstallRequest> requests,
                               const OperationContext& context) {
  if (!prepared.staging) prepared.staging = std::make_unique<StagingFolder>(paths.skills());
  const std::size_t first = prepared.items.size();
  for (auto& request : requests) prepared.items.push_back({std::move(request), {}, {}});
  std::mutex progress;
  std::size_t finished = first;
  parallelFor(requests.size(), [&](std::size_t i) {
    if (context.stop.stop_requested()) return;
    auto& item = prepared.items[first + i];
    try {
      requireInstallable(paths, item.request.folder);
      item.skill =
          Installer::prepare(item.request.folder, item.request.name, paths.skills(), prepared.staging->slot(first + i));
    } catch (const SkillsError& error) {
      item.failure = error;
    }
    const std::lock_guard lock(progress);
    context.report("Installing", ++finished, prepared.items.size());
  });
}

std::vector<Installer::Destination> Installation::assignPlaces(const Paths& paths, const PreparedInstall& prepared) {
  std::vector<Installer::Destination> destinations(prepared.items.size());
  Installer::Taken taken;
  std::vector<StagingFolder::Announced> arriving;
  for (std::size_t i = 0; i < prepared.items.size(); ++i) {
    const auto& skill = prepared.items[i].skill;
    if (!skill) continue;
    destinations[i] = Installer::uniqueDestination(paths.skills(), skill->name, skill->contentHash, taken);
    taken.emplace(destinations[i].path, skill->contentHash);
    if (destinations[i].reuse || !skill->staged) continue;
    arriving.push_back({.name = destinations[i].path.filename().string(),
                        .identity = FS::identity(*skill->staged),
                        .stamp = measureTree(*skill->staged).stamp});
  }
  if (!arriving.empty()) {
    prepared.staging->announce(arriving);
    FS::flushTree(paths.skills());
  }
  return destinations;
}

InstallReport Installation::settle(const PreparedInstall& prepared) {
  InstallReport report;
  const auto destinations = assignPlaces(library_.paths, prepared);
  std::vector<std::pair<InstalledDirectory, const InstallRequest*>> installed;
  for (std::size_t i = 0; i < prepared.items.size(); ++i) {
    const auto& item = prepared.items[i];
    if (item.failure) report.errors.push_back(folderName(item.request) + ": " + item.failure->message());
    if (!item.failure && !item.skill) report.interrupted = true;
    if (!item.skill) continue;
    try {
      installed.emplace_back(Installer::settle(*item.skill, destinations[i]), &item.request);
    } catch (const SkillsError& error) {
      report.errors.push_back(folderName(item.request) + ": " + error.message());
    }
  }
  std::vector<SkillRecord> records;
  try {
    FS::flushFolder(library_.paths.skills());
    library_.transaction([&] {
      for (const auto& [directory, request] : installed) {
        records.push_back(skills_.storeInstalled(
            directory,
            {.source = request->source, .name = givenName(*request), .action = request->action, .tool = {}}));
        if (directory.reused) report.reusedIds.push_back(records.back().id);
      }
    });
  } catch (...) {
    for (const auto& [directory, request] : installed) Installer::unsettle(directory);
    throw;
  }
  report.installed = skills_.summaries(records);
  return report;
}

SkillSummary Installation::settleOne(const PreparedInstall& prepared) {
  InstallReport report = settle(prepared);
  if (!report.installed.empty()) return std::move(report.installed.front());
  if (report.interrupted) throw SkillsError::io("Stopped before anything was installed");
  const auto& failure = prepared.items.front().failure;
  throw failure ? *failure : SkillsError::io(report.errors.front());
}

Plan Installation::plan(const std::vector<InstallRequest>& requests) {
  Plan plan;
  Installer::Taken taken;
  for (const auto& request : requests) plan.push_back(planOne(request, taken));
  return plan;
}

PlannedStep Installation::planOne(const InstallRequest& request, Installer::Taken& taken) {
  PlannedStep step{.action = Action::refused,
                   .skillName = folderName(request),
                   .skillId = {},
                   .tool = {},
                   .path = request.folder.string(),
                   .reason = {}};
  try {
    requireInstallable(library_.paths, request.folder);
    const auto expected = Installer::expect(request.folder, request.name, library_.paths.skills(), taken);
    taken.emplace(expected.destination, expected.contentHash);
    step.skillName = expected.name;
    step.path = expected.destination.string();
    step.action = expected.reused ? Action::keep : Action::place;
    if (expected.reused) step.reason = "already in the library";
  } catch (const SkillsError& error) {
    step.reason = error.message();
  }
  return step;
}

}  // namespace orvanta
