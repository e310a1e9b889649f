#pragma once

// Leads the links in agents' folders to the library's new place. Only what the records call a link of ours in order is
// looked at, and only a link that leads to the skill at the old place is replaced, in one step.

#include <cstddef>
#include <string>
#include <vector>

#include "engine/Reports.h"
#include "files/Paths.h"
#include "persistence/SkillStore.h"

namespace orvanta {

class Relinking {
 public:
  // `store` has the skills at either place.
  Relinking(SkillStore& store, const Paths& from, const Paths& to) : store_(store), from_(from), to_(to) {}

  struct Report {
    std::size_t relinked = 0;
    std::vector<std::string> errors;  // "SKILL → AGENT: why it could not be", recorded on the deployment as well
  };
  // Goes on past failures. Links that lead to the new place already are left alone, and so is a place where nothing
  // stands. Throws `database`.
  Report run();
  Plan plan();

 private:
  // One recorded link and where it is to lead.
  struct Item {
    SkillTarget record;
    std::string skillName;
    std::filesystem::path oldPlace;
    std::filesystem::path newPlace;
  };

  std::vector<Item> items();
  static bool leadsToOldPlace(const Item& item);

  SkillStore& store_;
  Paths from_;
  Paths to_;
};

}  // namespace orvanta
