#pragma once

// The records of where skills come from and of how they compare with it, and the step that brings a fetched update into
// the library.

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/IncomingUpdate.h"
#include "engine/Library.h"
#include "engine/Repair.h"
#include "engine/Reports.h"
#include "engine/Skills.h"
#include "engine/UpdateChecks.h"
#include "sources/StagingFolder.h"

namespace orvanta {

class Updates {
 public:
  Updates(Library& library, Skills& skills, Repair& repair) : library_(library), skills_(skills), repair_(repair) {}

  using Statuses = std::map<std::string, UpdateStatus>;  // by skill id

  // Marks the skills as being worked on, and returns what they were; unknown where that is a mark itself. Ids that no
  // skill has are passed over.
  Statuses mark(const std::vector<std::string>& ids, UpdateStatus status);
  // Puts back what the skills were, where they still have this mark.
  void restore(const Statuses& statuses, UpdateStatus mark);

  // Records what checks found, in one transaction, and adds it to the report. What was found at a source that is no
  // longer the skill's is passed over.
  void record(const std::vector<CheckOutcome>& outcomes, UpdateCheckReport& report);
  void recordFailure(const FetchFailure& failure);

  // The update's content on the library's own file system, used up; needs no turn.
  static std::unique_ptr<StagingFolder> broughtNear(const Paths& paths, const IncomingUpdate& update);
  // Gives the skill the content that was brought near; links to it and copies of it follow. Returns false when there
  // was nothing new, which is recorded as well. Throws `conflict` when the library's folder is no longer what it was
  // when the update was fetched, `refused` for a folder with a repository in it, with nothing changed.
  bool bringIn(const IncomingUpdate& update, const StagingFolder& near);
  // What that would do.
  Plan plan(const IncomingUpdate& update);

  // The skill becomes a local one without a source.
  SkillSummary detach(const std::string& id);
  // The skill comes from this Git source from now on. Throws `invalidInput` for what is none and for a subpath that
  // leaves it.
  SkillSummary relink(const std::string& id, const std::string& url, const std::optional<std::string>& subpath);

 private:
  SkillSummary changeSource(SkillRecord record, const std::string& action, const std::optional<std::string>& source);
  SkillRecord requireSameOrigin(const IncomingUpdate& update);
  void recordArrival(SkillRecord record, const IncomingUpdate& update, bool isReplaced);

  Library& library_;
  Skills& skills_;
  Repair& repair_;
};

}  // namespace orvanta
