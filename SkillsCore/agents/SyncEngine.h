#pragma once

// The one place where a skill is put into, or taken out of, an agent's folder. It decides, before anything is touched,
// whether what stands at the target may be replaced: content that the system did not put there is never destroyed
// silently. Holds no state; the records that say what was deployed where belong to the callers.

#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "agents/TargetChange.h"
#include "foundations/Models.h"

namespace orvanta {

// What stands at a target, seen from a source.
enum class TargetState {
  absent,
  linkToSource,
  foreignLink,  // points elsewhere, is dangling, or no source is known
  realDir,
  realFile,
};

// How much may be replaced.
class ReplacePolicy {
 public:
  // The records say that the system deployed here in this mode: replace only what matches.
  static ReplacePolicy recorded(SyncMode mode) { return ReplacePolicy(Kind::recorded, mode); }
  // No record: replace nothing that is not already right.
  static ReplacePolicy noClobber() { return ReplacePolicy(Kind::noClobber, SyncMode::symlink); }
  // The user agreed: replace anything.
  static ReplacePolicy userConfirmed() { return ReplacePolicy(Kind::userConfirmed, SyncMode::symlink); }

  [[nodiscard]] bool isUserConfirmed() const { return kind_ == Kind::userConfirmed; }
  // The recorded mode, when there is a record.
  [[nodiscard]] std::optional<SyncMode> recordedMode() const {
    return kind_ == Kind::recorded ? std::optional(mode_) : std::nullopt;
  }

  friend bool operator==(const ReplacePolicy&, const ReplacePolicy&) = default;

 private:
  enum class Kind { recorded, noClobber, userConfirmed };
  ReplacePolicy(Kind kind, SyncMode mode) : kind_(kind), mode_(mode) {}

  Kind kind_;
  SyncMode mode_;
};

namespace SyncEngine {

using Path = std::filesystem::path;

// Remembers how folders resolve through links for the time of one operation over many skills, which all share few
// folders. Threads may share it.
class FolderResolver {
 public:
  Path resolve(const Path& folder);

 private:
  std::mutex mutex_;
  std::map<std::string, Path> known_;
};

// The name under which a skill stands in an agent's folder: its library folder's name, else the skill's.
std::string targetDirName(const Path& centralPath, const std::string& skillName);

TargetState classifyTarget(const std::optional<Path>& source, const Path& target);
bool symlinkPointsTo(const Path& target, const Path& source);
// Whether a record in this mode may take away what stands there: a link for `symlink`, a folder for `copy`.
bool matchesRecordedDeployment(const Path& target, SyncMode recordedMode);

// A link is current when it points to the source; a copy when the library's content is what it was when the copy was
// made and something stands at the target. An unknown hash is never current.
bool isTargetCurrent(const Path& source, const Path& target, SyncMode mode,
                     const std::optional<std::string>& lastSyncedHash, const std::optional<std::string>& currentHash);

// The state that may be replaced under the policy. Throws `refused` otherwise.
TargetState authorizeReplacement(const Path& source, const Path& target, const ReplacePolicy& policy);

// Throws `invalidInput` when the target's place lies inside the source.
void ensureDstNotInsideSrc(const Path& source, const Path& target, FolderResolver& resolver);

// All the checks of `prepare`, changing nothing; what stands at the target. Throws as that does.
TargetState preflightReplace(const Path& source, const Path& target, SyncMode mode, const ReplacePolicy& policy,
                             FolderResolver& resolver);

// The change that will place the skill. A link that is right already is no change. Throws `refused` or `invalidInput`,
// or `io` where what is to be placed cannot be made ready.
TargetChange prepare(const Path& source, const Path& target, SyncMode mode, const ReplacePolicy& policy,
                     FolderResolver& resolver);

// The second half of `prepare`: for where `preflightReplace` found `state`. What changes until the change is made is
// refused then.
TargetChange prepareAt(const Path& source, const Path& target, SyncMode mode, TargetState state);

// Prepared, made and kept at once. Returns the mode used.
SyncMode syncSkill(const Path& source, const Path& target, SyncMode mode, const ReplacePolicy& policy);

// The change that will take away a recorded deployment; none when nothing stands there or what does is to be left
// alone.
TargetChange prepareRemoval(const Path& target, SyncMode recordedMode);

// Removes a recorded deployment. True when the path is clear afterwards, false when it was left alone.
bool removeRecordedTarget(const Path& target, SyncMode recordedMode);

// Removes what was classified as `state`, after checking that it still is. Throws `refused` when it is not.
void removeClassifiedTarget(const Path& target, TargetState state);

std::string refusalMessage(const Path& target, const std::string& reason);

}  // namespace SyncEngine
}  // namespace orvanta
