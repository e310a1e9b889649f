#include "engine/Import.h"

#include <fcntl.h>

#include <algorithm>

#include "agents/SyncEngine.h"
#include "content/ContentHash.h"
#include "content/Sha256.h"
#include "content/SkillMetadata.h"
#include "files/FS.h"
#include "files/FileReader.h"
#include "foundations/Clock.h"
#include "foundations/SkillsError.h"
#include "foundations/Uuid.h"

namespace orvanta {

namespace fs = std::filesystem;

using Action = PlannedStep::Action;

namespace {

// The library keeps no version control of its skills' own, so a repository in the original would be lost with it.
void refuseRepository(const fs::path& folder) {
  if (FS::kind(folder) == FS::Kind::symlink) return;  // only the link is replaced
  const UniqueFd fd = openFolder(folder);
  const auto entries = listTree(fd.get(), folder, [](std::string_view) { return false; });
  const auto repository = std::find_if(entries.begin(), entries.end(), [](const TreeEntry& entry) {
    return fs::path(entry.relativePath).filename() == ".git";
  });
  if (repository == entries.end()) return;
  throw SkillsError::refused("Refusing to replace \"" + folder.string() + "\": it holds a Git repository (" +
                             repository->relativePath +
                             ") that the library would not keep. Import it without adopting, or move the repository away.");
}

bool sameBytes(const fs::path& a, const fs::path& b) {
  const auto hashOf = [](const fs::path& file) {
    FileReader reader(AT_FDCWD, file.native(), {});
    Sha256 digest;
    for (std::string_view block; !(block = reader.next()).empty();) digest.add(block);
    return digest.hex();
  };
  return hashOf(a) == hashOf(b);
}

// Equal fingerprints leave open what does not count towards them: caches, ignore files, empty folders. What of that the
// library's folder lacks would be lost with the original.
void refuseLoss(const fs::path& original, const fs::path& kept) {
  if (FS::kind(original) == FS::Kind::symlink) return;  // only the link is replaced
  const UniqueFd fd = openFolder(original);
  for (const auto& entry : listTree(fd.get(), original, [](std::string_view name) { return name == ".DS_Store"; })) {
    const fs::path counterpart = kept / entry.relativePath;
    const bool isFile = entry.kind == TreeEntry::Kind::file;
    const bool isThere = isFile ? FS::kind(counterpart) == FS::Kind::file : FS::exists(counterpart);
    if (isThere && (!isFile || sameBytes(original / entry.relativePath, counterpart))) continue;
    throw SkillsError::refused("Refusing to replace \"" + original.string() + "\": the library's folder lacks its " +
                               entry.relativePath + ". Move that away, or import without adopting.");
  }
}

}  // namespace

class Import::Settled {
 public:
  Settled(const Job& job, const fs::path& skillsFolder)
      : job_(job), installed_(Installer::settle(*job.item->skill, skillsFolder)) {}
  ~Settled() {
    if (kept_) return;
    changes_.clear();  // the originals come back before the library's folder goes
    Installer::unsettle(installed_);
  }
  Settled(const Settled&) = delete;
  Settled& operator=(const Settled&) = delete;

  void replaceOriginals(SkillStore& store) {
    const auto known = store.skillAtPath(comparablePath(installed_.destination));
    if (known && !known->enabled && !job_.originals.empty()) {
      throw SkillsError::refused("'" + known->name + "' is in the library but disabled; enable it first");
    }
    for (const auto& original : job_.originals) {
      const auto deployed = known ? store.target(known->id, original.tool) : std::nullopt;
      replace(original, deployed, store.syncMode());
    }
  }

  void keep() {
    kept_ = true;
    for (auto& change : changes_) change.keep();
  }

  [[nodiscard]] const Job& job() const { return job_; }
  [[nodiscard]] const InstalledDirectory& installed() const { return installed_; }
  // The deployments that took the originals' places; the skill's id is not known to them yet.
  [[nodiscard]] const std::vector<SkillTarget>& targets() const { return targets_; }

 private:
  void replace(const Original& original, const std::optional<SkillTarget>& deployed, SyncMode mode) {
    if (ContentHash::hashDirectory(original.path) != installed_.contentHash) {
      throw SkillsError::conflict(original.path.string() +
                                  " changed while it was imported; nothing was replaced, try again");
    }
    refuseLoss(original.path, installed_.destination);
    // An agent that holds the skill elsewhere already needs no second one: the original only goes.
    if (deployed && deployed->status == kTargetOk && FS::resolvesToDirectory(deployed->targetPath)) {
      changes_.push_back(TargetChange::takeAway(original.path, FS::kind(original.path)));
      return;
    }
    SyncEngine::FolderResolver resolver;
    changes_.push_back(SyncEngine::place(installed_.destination, original.path, mode, ReplacePolicy::userConfirmed(),
                                         resolver));
    targets_.push_back({.id = newUuid(),
                        .skillId = {},
                        .tool = original.tool,
                        .targetPath = original.path.string(),
                        .mode = mode,
                        .status = std::string(kTargetOk),
                        .syncedAt = nowMillis(),
                        .lastError = {},
                        .sourceHash = installed_.contentHash});
  }

  const Job& job_;
  const InstalledDirectory installed_;
  std::vector<TargetChange> changes_;
  std::vector<SkillTarget> targets_;
  bool kept_ = false;
};

SkillSummary Import::importUnmanaged(const fs::path& path, const std::string& tool, bool adopt) {
  const fs::path folder = requireImportable(path, tool);
  Job job{.item = nullptr, .originals = {}, .tool = tool};
  if (adopt) job.originals.push_back(requireAdoptable(folder, tool));
  const PreparedInstall prepared = Installation::prepare(library_.paths, {request(folder)}, {});
  job.item = &prepared.items.front();
  std::vector<std::unique_ptr<Settled>> settled;
  settled.push_back(settle(job));
  return skills_.summary(record(settled, adopt ? "adopt" : "import_unmanaged").front().id);
}

Plan Import::planImport(const fs::path& path, const std::string& tool, bool adopt) {
  PlannedStep step{.action = Action::refused,
                   .skillName = path.filename().string(),
                   .skillId = {},
                   .tool = tool,
                   .path = path.string(),
                   .reason = {}};
  try {
    const fs::path folder = requireImportable(path, tool);
    if (adopt) requireAdoptable(folder, tool);
    const auto expected = Installer::expect(folder, std::nullopt, library_.paths.skills(), {});
    step.skillName = expected.name;
    step.path = expected.destination.string();
    step.action = expected.reused ? Action::keep : Action::place;
    if (expected.reused) step.reason = "already in the library";
    if (!adopt) return {step};
    PlannedStep original = step;
    original.action = Action::replace;
    original.path = folder.string();
    original.reason.reset();
    return {step, original};
  } catch (const SkillsError& error) {
    step.reason = error.message();
    return {step};
  }
}

InstallReport Import::importDiscovered(const std::vector<DiscoveredGroup>& groups, bool adopt,
                                       const OperationContext& context) {
  if (groups.empty()) throw SkillsError::invalidInput("Nothing to import");
  InstallReport report;
  const auto attempt = [&](const DiscoveredGroup& group, const auto& step) {
    try {
      step();
    } catch (const SkillsError& error) {
      report.errors.push_back(group.name + ": " + error.message());
    }
  };
  std::vector<InstallRequest> requests;
  std::vector<Job> jobs;
  std::vector<const DiscoveredGroup*> chosen;
  for (const auto& group : groups) {
    attempt(group, [&] {
      if (group.locations.empty()) throw SkillsError::notFound("no folder holds it any more");
      const auto& first = group.locations.front();
      requests.push_back(request(requireImportable(first.foundPath, first.tool)));
      jobs.push_back({.item = nullptr, .originals = {}, .tool = first.tool});
      chosen.push_back(&group);
      for (const auto& place : group.locations) {
        if (!adopt) return;
        attempt(group, [&] {
          jobs.back().originals.push_back(requireAdoptable(requireImportable(place.foundPath, place.tool), place.tool));
        });
      }
    });
  }
  const PreparedInstall prepared = Installation::prepare(library_.paths, std::move(requests), context);
  std::vector<std::unique_ptr<Settled>> settled;
  for (std::size_t i = 0; i < jobs.size(); ++i) {
    jobs[i].item = &prepared.items[i];
    report.interrupted = context.stop.stop_requested();
    if (report.interrupted) break;
    attempt(*chosen[i], [&] { settled.push_back(settle(jobs[i])); });
  }
  report.installed = skills_.summaries(record(settled, "import_discovered"));
  return report;
}

fs::path Import::requireImportable(const fs::path& path, const std::string& tool) {
  const ToolAdapter adapter = agents_.adapter(tool);
  fs::path folder = requireInside(path, adapter.allScanDirs(library_.user), adapter, library_.paths);
  folders_.requireUnmanaged(folder);
  if (!FS::resolvesToDirectory(folder)) throw SkillsError::invalidInput(folder.string() + " is not a directory");
  return folder;
}

// Extra folders that an agent only reads are adopted for the agent that owns them.
Import::Original Import::requireAdoptable(const fs::path& path, const std::string& tool) {
  const auto owns = [&](const ToolAdapter& adapter) { return isInside(path, adapter.skillsDir(library_.user)); };
  const auto active = ToolAdapters::active(library_.store.toolOverrides(), library_.user);
  auto owner = std::find_if(active.begin(), active.end(),
                            [&](const ToolAdapter& adapter) { return adapter.key == tool && owns(adapter); });
  if (owner == active.end()) owner = std::find_if(active.begin(), active.end(), owns);
  if (owner == active.end()) {
    throw SkillsError::refused(path.string() + " lies in a folder into which no active agent's skills are deployed; " +
                               "import it without adopting");
  }
  refuseRepository(path);
  return {path, owner->key};
}

InstallRequest Import::request(const fs::path& path) const {
  return {.folder = path,
          .name = {},
          .source = {.type = SourceType::imported,
                     .ref = path.string(),
                     .resolved = {},
                     .branch = {},
                     .subpath = {},
                     .revision = {}},
          .action = {}};
}

std::unique_ptr<Import::Settled> Import::settle(const Job& job) {
  if (job.item->failure) throw SkillsError(*job.item->failure);
  auto settled = std::make_unique<Settled>(job, library_.paths.skills());
  settled->replaceOriginals(library_.store);
  return settled;
}

std::vector<SkillRecord> Import::record(const std::vector<std::unique_ptr<Settled>>& settled,
                                        const std::string& action) {
  std::vector<SkillRecord> records;
  library_.transaction([&] {
    const auto active = presets_.activePreset();
    for (const auto& skill : settled) {
      const Job& job = skill->job();
      records.push_back(skills_.storeInstalled(skill->installed(), job.item->request.source, action, job.tool));
      for (SkillTarget target : skill->targets()) {
        target.skillId = records.back().id;
        library_.store.upsertTarget(target);
        presets_.setActivePresetToggle(active, target.skillId, target.tool, true);
      }
    }
  });
  for (const auto& skill : settled) skill->keep();
  return records;
}

}  // namespace orvanta
