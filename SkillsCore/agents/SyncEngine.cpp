#include "agents/SyncEngine.h"

#include <unistd.h>

#include <array>
#include <climits>
#include <string_view>

#include "files/FS.h"
#include "files/Paths.h"
#include "foundations/SkillsError.h"

namespace orvanta {

namespace {

using SyncEngine::Path;

FS::Kind kindOf(TargetState state) {
  switch (state) {
    case TargetState::absent: return FS::Kind::absent;
    case TargetState::linkToSource:
    case TargetState::foreignLink: return FS::Kind::symlink;
    case TargetState::realDir: return FS::Kind::directory;
    case TargetState::realFile: return FS::Kind::file;
  }
  return FS::Kind::absent;
}

FS::Kind kindPlacedBy(SyncMode mode) { return mode == SyncMode::symlink ? FS::Kind::symlink : FS::Kind::directory; }

bool mayReplace(TargetState state, const ReplacePolicy& policy) {
  if (state == TargetState::absent || state == TargetState::linkToSource || policy.isUserConfirmed()) return true;
  const auto recorded = policy.recordedMode();
  return recorded && kindOf(state) == kindPlacedBy(*recorded);
}

// What a link says; nothing where there is none.
std::optional<std::string> linkText(const Path& link) {
  std::array<char, PATH_MAX> text;  // NOLINT(*-member-init): only what readlink wrote is read
  const ssize_t length = ::readlink(link.c_str(), text.data(), text.size());
  if (length < 0) return std::nullopt;
  return std::string(text.data(), static_cast<std::size_t>(length));
}

}  // namespace

Path SyncEngine::FolderResolver::resolve(const Path& folder) {
  const std::lock_guard lock(mutex_);
  const auto [entry, isNew] = known_.try_emplace(folder.string());
  if (isNew) entry->second = FS::resolved(folder);
  return entry->second;
}

std::string SyncEngine::targetDirName(const Path& centralPath, const std::string& skillName) {
  const std::string name = Path(fsPath(centralPath)).filename().string();
  return name.empty() ? skillName : name;
}

TargetState SyncEngine::classifyTarget(const std::optional<Path>& source, const Path& target) {
  switch (FS::kind(target)) {
    case FS::Kind::absent: return TargetState::absent;
    case FS::Kind::directory: return TargetState::realDir;
    case FS::Kind::file: return TargetState::realFile;
    case FS::Kind::symlink: break;
  }
  return source && symlinkPointsTo(target, *source) ? TargetState::linkToSource : TargetState::foreignLink;
}

bool SyncEngine::symlinkPointsTo(const Path& target, const Path& source) {
  const auto text = linkText(target);
  if (!text) return false;
  if (*text == source.native()) return true;  // as `place` writes it
  const auto destination = FS::linkDestination(target);
  if (!destination) return false;
  return *destination == standardized(source) || FS::resolved(*destination) == FS::resolved(source);
}

bool SyncEngine::matchesRecordedDeployment(const Path& target, SyncMode recordedMode) {
  return FS::kind(target) == kindPlacedBy(recordedMode);
}

bool SyncEngine::isTargetCurrent(const Path& source, const Path& target, SyncMode mode,
                                 const std::optional<std::string>& lastSyncedHash,
                                 const std::optional<std::string>& currentHash) {
  if (mode == SyncMode::symlink) return symlinkPointsTo(target, source);
  return lastSyncedHash && currentHash && *lastSyncedHash == *currentHash && FS::exists(target);
}

TargetState SyncEngine::authorizeReplacement(const Path& source, const Path& target, const ReplacePolicy& policy) {
  const TargetState state = classifyTarget(source, target);
  if (mayReplace(state, policy)) return state;
  throw SkillsError::refused(refusalMessage(
      target, policy.recordedMode() ? "does not match its recorded deployment" : "is not managed by Orvanta"));
}

void SyncEngine::ensureDstNotInsideSrc(const Path& source, const Path& target, FolderResolver& resolver) {
  const Path place = resolver.resolve(target.parent_path()) / target.filename();
  if (!isInside(place, resolver.resolve(source))) return;
  throw SkillsError::invalidInput("Destination " + target.string() + " is inside the source " + source.string());
}

TargetState SyncEngine::preflightReplace(const Path& source, const Path& target, SyncMode mode,
                                         const ReplacePolicy& policy, FolderResolver& resolver) {
  const TargetState state = authorizeReplacement(source, target, policy);
  const bool isRight = mode == SyncMode::symlink && state == TargetState::linkToSource;
  if (!isRight) ensureDstNotInsideSrc(source, target, resolver);
  return state;
}

TargetChange SyncEngine::prepare(const Path& source, const Path& target, SyncMode mode, const ReplacePolicy& policy,
                                 FolderResolver& resolver) {
  return prepareAt(source, target, mode, preflightReplace(source, target, mode, policy, resolver));
}

TargetChange SyncEngine::prepareAt(const Path& source, const Path& target, SyncMode mode, TargetState state) {
  if (mode == SyncMode::symlink && state == TargetState::linkToSource) return {};
  FS::createDirectories(target.parent_path());
  return mode == SyncMode::copy ? TargetChange::copy(source, target, kindOf(state))
                                : TargetChange::link(source, target, kindOf(state));
}

SyncMode SyncEngine::syncSkill(const Path& source, const Path& target, SyncMode mode, const ReplacePolicy& policy) {
  FolderResolver resolver;
  TargetChange change = prepare(source, target, mode, policy, resolver);
  change.make();
  change.keep();
  return mode;
}

TargetChange SyncEngine::prepareRemoval(const Path& target, SyncMode recordedMode) {
  if (!matchesRecordedDeployment(target, recordedMode)) return {};
  return TargetChange::removal(target, kindPlacedBy(recordedMode));
}

bool SyncEngine::removeRecordedTarget(const Path& target, SyncMode recordedMode) {
  TargetChange change = prepareRemoval(target, recordedMode);
  change.make();
  change.keep();
  return !FS::exists(target);
}

void SyncEngine::removeClassifiedTarget(const Path& target, TargetState state) {
  if (state == TargetState::absent) return;
  TargetChange change = TargetChange::removal(target, kindOf(state));
  change.make();
  change.keep();
}

std::string SyncEngine::refusalMessage(const Path& target, const std::string& reason) {
  return "Refusing to replace \"" + target.string() + "\": it " + reason +
         ". The existing content was left untouched — import it into the library, or move it aside, and try again.";
}

}  // namespace orvanta
