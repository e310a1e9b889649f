#include "engine/UpdateFetch.h"

#include <mutex>

#include "content/ContentHash.h"
#include "content/SkillMetadata.h"
#include "files/FS.h"
#include "foundations/Parallel.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

// Cloning waits for the network most of the time.
constexpr std::size_t kClonesAtOnce = 4;

std::optional<std::string> hashOfLibraryFolder(const SkillRecord& skill) {
  if (!FS::resolvesToDirectory(skill.centralPath)) return std::nullopt;
  return ContentHash::hashDirectory(skill.centralPath);
}

IncomingUpdate staged(const SkillRecord& skill, const fs::path& source, const fs::path& temp, std::string_view prefix) {
  IncomingUpdate update(skill, TemporaryFolder(temp, prefix));
  update.hash = ContentHash::copyAndHash(source, update.folder());
  update.libraryHash = hashOfLibraryFolder(skill);
  return update;
}

[[noreturn]] void throwNoSkill(const std::string& folder) {
  throw SkillsError::notFound("'" + folder + "' no longer contains a SKILL.md");
}

// Where a repository has the skill now.
fs::path folderIn(const fs::path& checkout, const SkillRecord& skill) {
  if (!skill.sourceSubpath) return GitSource::findSkillDir(checkout, fs::path(skill.centralPath).filename().string());
  const std::string& subpath = *skill.sourceSubpath;
  fs::path folder = checkout / subpath;
  if (GitSource::isSafeSubpath(checkout, subpath) && GitSource::isSkillFolder(checkout, folder)) return folder;
  throwNoSkill(subpath);
}

}  // namespace

// What was fetched by several threads.
class UpdateFetch::Collector {
 public:
  Collector(const std::vector<SkillRecord>& skills, const OperationContext& context)
      : skills_(skills), context_(context), updates_(skills.size()) {}

  // Keeps what `make` returns, or why it threw.
  template <typename Make>
  void add(const SkillRecord& skill, Make make) {
    try {
      auto update = make();
      const std::lock_guard lock(mutex_);
      updates_[positionOf(skill)] = std::move(update);
      report();
    } catch (const SkillsError& error) {
      fail(skill, error);
    }
  }

  void fail(const SkillRecord& skill, const SkillsError& error, UpdateStatus status = UpdateStatus::error) {
    const std::lock_guard lock(mutex_);
    fetched_.failures.insert_or_assign(skill.id, FetchFailure{.skill = skill, .error = error, .status = status});
    report();
  }

  FetchedUpdates take() {
    for (auto& update : updates_) {
      if (update) fetched_.updates.push_back(*std::move(update));
    }
    fetched_.interrupted = context_.stop.stop_requested();
    if (fetched_.interrupted) fetched_.failures.clear();  // being stopped is no fault of a skill's
    return std::move(fetched_);
  }

 private:
  std::size_t positionOf(const SkillRecord& skill) const { return static_cast<std::size_t>(&skill - skills_.data()); }
  void report() { context_.report("Fetching", ++finished_, skills_.size()); }

  const std::vector<SkillRecord>& skills_;
  const OperationContext& context_;
  std::mutex mutex_;
  std::size_t finished_ = 0;
  std::vector<std::optional<IncomingUpdate>> updates_;
  FetchedUpdates fetched_;
};

FetchedUpdates UpdateFetch::fetch(const std::vector<SkillRecord>& skills, const OperationContext& context) const {
  Collector collector(skills, context);
  const SkillsByOrigin groups = groupedByOrigin(skills);
  for (const auto& [skill, error] : groups.failures) collector.fail(*skill, error);
  for (const SkillRecord* skill : groups.published) {
    collector.fail(*skill, SkillsError::invalidInput("Reinstall well-known skills from their publisher page"));
  }
  parallelFor(
      groups.repositories.size(), [&](std::size_t i) { fetchRepository(groups.repositories[i], context, collector); },
      kClonesAtOnce);
  parallelFor(groups.folders.size(), [&](std::size_t i) {
    if (!context.stop.stop_requested()) fetchFolder(*groups.folders[i], collector);
  });
  return collector.take();
}

void UpdateFetch::fetchFolder(const SkillRecord& skill, Collector& collector) const {
  const std::string source = skill.sourceRef.value_or("");
  if (source.empty()) {
    return collector.fail(skill, SkillsError::invalidInput("'" + skill.name + "' has no source directory"));
  }
  if (!FS::resolvesToDirectory(source)) {
    return collector.fail(skill, SkillsError::notFound("Source directory is missing: " + source),
                          UpdateStatus::sourceMissing);
  }
  collector.add(skill, [&] {
    if (isInside(source, paths_.base()) || isInside(FS::resolved(source), FS::resolved(paths_.base()))) {
      throw SkillsError::invalidInput("Source is the library directory itself");
    }
    if (!SkillMetadata::isValidSkillDir(source)) throwNoSkill(source);
    return staged(skill, source, settings_.temp, "orvanta-reimport-");
  });
}

void UpdateFetch::fetchRepository(const SkillsByOrigin::Repository& repository, const OperationContext& context,
                                  Collector& collector) const {
  const GitClient client(settings_);
  try {
    client.withCheckout(repository.source, context, [&](const fs::path& checkout) {
      const std::string revision = client.headRevision(checkout, context);
      std::vector<std::pair<const SkillRecord*, fs::path>> located;
      for (const SkillRecord* skill : repository.skills) {
        try {
          const fs::path folder = folderIn(checkout, *skill);
          GitSource::removeOutwardLinks(folder);
          // Its SKILL.md may have been such a link.
          if (!SkillMetadata::isValidSkillDir(folder)) throwNoSkill(folder.lexically_relative(checkout).string());
          located.emplace_back(skill, folder);
        } catch (const SkillsError& error) {
          collector.fail(*skill, error);
        }
      }
      parallelFor(located.size(), [&](std::size_t i) {
        if (context.stop.stop_requested()) return;
        const SkillRecord& skill = *located[i].first;
        collector.add(skill, [&] {
          auto update = staged(skill, located[i].second, settings_.temp, "orvanta-update-");
          update.revision = revision;
          return update;
        });
      });
    });
  } catch (const SkillsError& error) {
    for (const SkillRecord* skill : repository.skills) collector.fail(*skill, error);
  }
}

}  // namespace orvanta
