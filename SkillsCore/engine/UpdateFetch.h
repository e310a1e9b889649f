#pragma once

// Fetches skills from where they came from: each repository is cloned once, whatever the number of skills from it, and
// folders on this disk are copied. Touches neither the library nor its records.

#include <vector>

#include "engine/IncomingUpdate.h"
#include "engine/SkillOrigin.h"
#include "files/Paths.h"
#include "foundations/Operation.h"
#include "sources/GitClient.h"

namespace orvanta {

class UpdateFetch {
 public:
  UpdateFetch(const Paths& paths, GitSettings settings) : paths_(paths), settings_(std::move(settings)) {}

  // Goes on past failures. In the order of `skills`, failures left out.
  FetchedUpdates fetch(const std::vector<SkillRecord>& skills, const OperationContext& context) const;

 private:
  class Collector;

  void fetchFolder(const SkillRecord& skill, Collector& collector) const;
  void fetchRepository(const SkillsByOrigin::Repository& repository, const OperationContext& context,
                       Collector& collector) const;

  Paths paths_;
  GitSettings settings_;
};

}  // namespace orvanta
