#pragma once

// Leads links to the library's new place: in agents' folders what the records call a link of ours in order, and in the
// folders of projects, of which nothing is recorded, whatever leads into the library. Only a link that leads to a skill
// at the old place is replaced, in one step.

#include <cstddef>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "engine/Reports.h"
#include "files/Paths.h"
#include "persistence/SkillStore.h"
#include "platform/Host.h"

namespace orvanta {

class Relinking {
 public:
  // `store` has the skills at either place.
  Relinking(SkillStore& store, const UserFolders& user, const Paths& from, const Paths& to)
      : store_(store), user_(user), from_(from), to_(to) {}

  struct Report {
    std::size_t relinked = 0;
    std::vector<std::string> errors;  // "SKILL → AGENT: why it could not be"
    bool isUnfinished = false;        // the system failed: tried once more, it may go
  };
  // Goes on past failures. What is refused is recorded as broken. Links that lead to the new place already are left
  // alone, and so is a place where nothing stands. Throws `database`.
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
  void clearUp(const std::filesystem::path& folder);
  void relinkDeployments(Report& report);
  void relink(const std::filesystem::path& link, const std::filesystem::path& destination, Report& report);
  void relinkProjects(Report& report);
  // `stages` is given the folders in which something waits under a staging name.
  [[nodiscard]] std::vector<std::filesystem::path> projectLinks(std::set<std::filesystem::path>& stages);
  static bool leadsToOldPlace(const Item& item);

  SkillStore& store_;
  const UserFolders& user_;
  Paths from_;
  Paths to_;
  std::set<std::filesystem::path> folders_;  // whose links were changed
};

}  // namespace orvanta
