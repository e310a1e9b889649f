#include "engine/Import.h"

#include <fcntl.h>

#include <algorithm>
#include <optional>

#include "agents/SyncEngine.h"
#include "content/ContentHash.h"
#include "content/Sha256.h"
#include "content/SkillMetadata.h"
#include "engine/ActivePreset.h"
#include "engine/RepositoryGuard.h"
#include "files/FS.h"
#include "files/FileReader.h"
#include "foundations/Clock.h"
#include "foundations/SkillsError.h"
#include "foundations/Uuid.h"

namespace orvanta {

namespace fs = std::filesystem;

using Action = PlannedStep::Action;

namespace {

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

// The originals of one skill that are replaced, until the deployments are recorded.
class Import::Adoption {
 public:
  Adoption(const Job& job, SkillRecord skill, std::string contentHash)
      : job_(&job), skill_(std::move(skill)), contentHash_(std::move(contentHash)) {}

  // Throws what forbids it; nothing has changed yet.
  void prepare(const Original& original, const std::optional<SkillTarget>& deployed, SyncMode mode) {
    // Two paths can lead to one place, which is then done already.
    if (SyncEngine::symlinkPointsTo(original.path, skill_.centralPath)) return;
    if (ContentHash::hashDirectory(original.path) != contentHash_) {
      throw SkillsError::conflict(original.path.string() +
                                  " changed while it was imported; it was not replaced, try again");
    }
    refuseLoss(original.path, skill_.centralPath);
    // An agent that holds the skill elsewhere already needs no second one: the original only goes.
    const bool isDeployed = deployed && deployed->status == kTargetOk && FS::resolvesToDirectory(deployed->targetPath);
    if (isDeployed || isPlacedFor(original.tool)) {
      steps_.push_back({TargetChange::removal(original.path, FS::kind(original.path)), {}});
      return;
    }
    SyncEngine::FolderResolver resolver;
    steps_.push_back(
        {SyncEngine::prepare(skill_.centralPath, original.path, mode, ReplacePolicy::userConfirmed(), resolver),
         SkillTarget{.id = newUuid(),
                     .skillId = skill_.id,
                     .tool = original.tool,
                     .targetPath = original.path.string(),
                     .mode = mode,
                     .status = std::string(kTargetOk),
                     .syncedAt = nowMillis(),
                     .lastError = {},
                     .sourceHash = contentHash_}});
  }

  // One original's: the change, and the deployment that it is.
  struct Step {
    TargetChange change;
    std::optional<SkillTarget> target;
    bool isMade = true;
  };

  [[nodiscard]] const Job& job() const { return *job_; }
  [[nodiscard]] std::vector<Step>& steps() { return steps_; }

 private:
  [[nodiscard]] bool isPlacedFor(const std::string& tool) const {
    return std::any_of(steps_.begin(), steps_.end(),
                       [&](const Step& step) { return step.target && step.target->tool == tool; });
  }

  const Job* job_;
  SkillRecord skill_;
  std::string contentHash_;
  std::vector<Step> steps_;
};

SkillSummary Import::importUnmanaged(const fs::path& path, const std::string& tool, bool adopt) {
  const fs::path folder = requireImportable(path, tool);
  Job job{.request = request(folder), .originals = {}, .name = folder.filename().string(), .tool = tool};
  if (adopt) job.originals.push_back(requireAdoptable(folder, tool));
  const Outcome outcome = run({job}, adopt ? "adopt" : "import_unmanaged", {});
  if (outcome.failure) throw SkillsError(*outcome.failure);
  return skills_.summary(outcome.records.front().id);
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
  std::vector<Job> jobs;
  for (const auto& group : groups) {
    attempt(group, [&] {
      if (group.locations.empty()) throw SkillsError::notFound("no folder holds it any more");
      const auto& first = group.locations.front();
      jobs.push_back({.request = request(requireImportable(first.foundPath, first.tool)),
                      .originals = {},
                      .name = group.name,
                      .tool = first.tool});
      if (adopt) addOriginals(jobs.back(), group, attempt);
    });
  }
  const Outcome outcome = run(jobs, "import_discovered", context);
  report.errors.insert(report.errors.end(), outcome.errors.begin(), outcome.errors.end());
  report.interrupted = outcome.interrupted;
  report.installed = skills_.summaries(outcome.records);
  return report;
}

// First the skills are in the library and recorded, then their originals are replaced: a process that is killed in
// between leaves the originals, and one that is killed later leaves a library that has them.
Import::Outcome Import::run(const std::vector<Job>& jobs, const std::string& action, const OperationContext& context) {
  Outcome outcome{.records = {}, .errors = {}, .failure = {}, .interrupted = false, .isAlone = jobs.size() == 1};
  std::vector<InstallRequest> requests;
  for (const auto& job : jobs) requests.push_back(job.request);
  const PreparedInstall prepared = Installation::prepare(library_.paths, std::move(requests), context);
  const auto destinations = Installation::assignPlaces(library_.paths, prepared);
  std::vector<Arrived> arrived;
  for (std::size_t i = 0; i < jobs.size(); ++i) {
    outcome.interrupted = context.stop.stop_requested();
    if (outcome.interrupted) break;
    try {
      const auto& item = prepared.items[i];
      if (item.failure) throw SkillsError(*item.failure);
      arrived.push_back(
          {.job = &jobs[i], .installed = Installer::settle(*item.skill, destinations[i]), .isNew = false});
    } catch (const SkillsError& error) {
      outcome.fail(jobs[i].name, error);
    }
  }
  outcome.records = record(arrived, action);
  adopt(arrived, outcome);
  return outcome;
}

std::vector<SkillRecord> Import::record(std::vector<Arrived>& arrived, const std::string& action) {
  std::vector<SkillRecord> records;
  try {
    FS::flushFolder(library_.paths.skills());
    library_.transaction([&] {
      for (auto& skill : arrived) {
        skill.isNew = !library_.store.skillAtPath(comparablePath(skill.installed.destination)).has_value();
        records.push_back(skills_.storeInstalled(
            skill.installed,
            {.source = skill.job->request.source, .name = {}, .action = action, .tool = skill.job->tool}));
      }
    });
  } catch (...) {
    for (const auto& skill : arrived) Installer::unsettle(skill.installed);
    throw;
  }
  return records;
}

// A skill whose originals cannot be replaced stays imported when it is one of many; alone it goes again, if it is new,
// so that what throws has changed nothing.
void Import::adopt(const std::vector<Arrived>& arrived, Outcome& outcome) {
  FolderChanges changes(library_);
  std::vector<Adoption> adoptions = preparedAdoptions(arrived, outcome);
  try {
    if (!outcome.isAlone || !outcome.failure) makeAll(changes, adoptions, outcome);
    if (!outcome.isAlone || !outcome.failure) recordAdoptions(changes, adoptions);
  } catch (const SkillsError&) {
    adoptions.clear();  // the originals come back before what holds their content goes
    if (outcome.isAlone && !arrived.empty()) forget(arrived.front(), outcome.records.front());
    throw;
  }
  if (outcome.isAlone && outcome.failure && !arrived.empty()) {
    adoptions.clear();
    forget(arrived.front(), outcome.records.front());
    outcome.records.clear();
  }
  for (auto& adoption : adoptions) {
    for (auto& step : adoption.steps()) step.change.keep();
  }
}

std::vector<Import::Adoption> Import::preparedAdoptions(const std::vector<Arrived>& arrived, Outcome& outcome) {
  std::vector<Adoption> adoptions;
  for (std::size_t i = 0; i < arrived.size(); ++i) {
    const Job& job = *arrived[i].job;
    const SkillRecord& skill = outcome.records[i];
    adoptions.emplace_back(job, skill, arrived[i].installed.contentHash);
    for (const auto& original : job.originals) {
      try {
        if (!skill.enabled) {
          throw SkillsError::refused("'" + skill.name + "' is in the library but disabled; enable it first");
        }
        adoptions.back().prepare(original, library_.store.target(skill.id, original.tool), library_.store.syncMode());
      } catch (const SkillsError& error) {
        outcome.fail(job.name, error);
      }
    }
  }
  return adoptions;
}

void Import::makeAll(FolderChanges& changes, std::vector<Adoption>& adoptions, Outcome& outcome) {
  std::vector<Adoption::Step*> steps;
  std::vector<const Adoption*> owners;
  std::vector<TargetChange*> prepared;
  for (auto& adoption : adoptions) {
    for (auto& step : adoption.steps()) {
      steps.push_back(&step);
      owners.push_back(&adoption);
      prepared.push_back(&step.change);
    }
  }
  changes.make(prepared, [&](std::size_t i, const SkillsError& error) {
    steps[i]->isMade = false;
    outcome.fail(owners[i]->job().name, error);
  });
}

void Import::recordAdoptions(FolderChanges& changes, std::vector<Adoption>& adoptions) {
  library_.transaction([&] {
    changes.recorded();
    ActivePreset active(library_);
    for (auto& adoption : adoptions) {
      for (const auto& step : adoption.steps()) {
        if (!step.isMade || !step.target) continue;
        library_.store.upsertTarget(*step.target);
        active.setActivePresetToggle(step.target->skillId, step.target->tool, true);
      }
    }
  });
}

// While the record cannot be deleted the skill stays, whole, in the library.
void Import::forget(const Arrived& arrived, const SkillRecord& skill) {
  if (!arrived.isNew) return;
  try {
    library_.store.deleteSkill(skill.id);
    library_.store.logAudit({.action = "remove_skill",
                             .skillId = skill.id,
                             .skillName = skill.name,
                             .tool = arrived.job->tool,
                             .detail = "taken back: its original could not be replaced"});
    Installer::unsettle(arrived.installed);
  } catch (const SkillsError&) {
    return;
  }
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
  refuseRepository(path, "Import it without adopting, or move the repository away.");
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

void Import::addOriginals(Job& job, const DiscoveredGroup& group, const Attempt& attempt) {
  for (const auto& place : group.locations) {
    attempt(group, [&] {
      job.originals.push_back(requireAdoptable(requireImportable(place.foundPath, place.tool), place.tool));
    });
  }
}

void Import::Outcome::fail(const std::string& name, const SkillsError& error) {
  errors.push_back(name + ": " + error.message());
  if (!failure) failure = error;
}

}  // namespace orvanta
