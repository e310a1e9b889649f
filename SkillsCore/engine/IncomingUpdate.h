#pragma once

// A skill as its source has it now, fetched and ready to take the place of what the library holds, which it has not
// touched yet. The copy goes when this goes.

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "content/SkillComparison.h"
#include "files/TemporaryFolder.h"
#include "foundations/Models.h"
#include "foundations/SkillsError.h"

namespace orvanta {

class IncomingUpdate {
 public:
  IncomingUpdate(SkillRecord skill, TemporaryFolder staging) : skill_(std::move(skill)), staging_(std::move(staging)) {}

  [[nodiscard]] const SkillRecord& skill() const { return skill_; }  // as it was recorded before
  [[nodiscard]] std::filesystem::path folder() const { return staging_.path() / "skill"; }

  std::optional<std::string> revision = {};     // of a Git source
  std::string hash = {};                        // of what came
  std::optional<std::string> libraryHash = {};  // of what the library's folder held then; none: it was not there

  // What came is what was installed. Of a Git source the library's folder then stays as it is, with all that was
  // changed by hand; a folder on this disk replaces that.
  [[nodiscard]] bool changesNothing() const {
    return libraryHash && hash == skill_.contentHash && (isRemote(skill_.sourceType) || hash == libraryHash);
  }
  // The library's folder was changed by hand, and that would be lost.
  [[nodiscard]] bool overwritesEdits() const {
    return libraryHash && !changesNothing() && libraryHash != skill_.contentHash && libraryHash != hash;
  }
  // From what the library's folder holds to what came. Throws `io`.
  [[nodiscard]] std::vector<SkillFileChange> changes() const { return compareSkills(skill_.centralPath, folder()); }

 private:
  SkillRecord skill_;
  TemporaryFolder staging_;
};

// Whether skills are marked, and failures recorded, while their updates are fetched.
enum class FetchPurpose { update, preview };

// Why a skill could not be fetched, and what it is from then on.
struct FetchFailure {
  SkillRecord skill;  // as it was recorded when its source was asked
  SkillsError error;
  UpdateStatus status = UpdateStatus::error;
  bool isWithheld = false;  // it came, but is not to overwrite what was changed by hand
};

struct FetchedUpdates {
  std::vector<IncomingUpdate> updates;
  std::map<std::string, FetchFailure> failures;  // by skill id
  bool interrupted = false;

  // Makes those that would overwrite what was changed by hand failures.
  void withholdLostEdits();
};

// Throws `refused` with the files that would be lost when an update overwrites what was changed by hand.
void refuseLostEdits(const IncomingUpdate& update);

}  // namespace orvanta
