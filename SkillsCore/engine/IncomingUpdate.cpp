#include "engine/IncomingUpdate.h"

#include <fmt/format.h>

#include "foundations/Text.h"

namespace orvanta {

void refuseLostEdits(const IncomingUpdate& update) {
  constexpr std::size_t kMostNamed = 10;
  if (!update.overwritesEdits()) return;
  std::vector<std::string> lost;
  for (const auto& change : update.changes()) {
    if (!change.isAdded()) lost.push_back(Text::singleLine(change.path));
  }
  if (lost.empty()) {
    throw SkillsError::refused(fmt::format(
        "'{}' was changed by hand in the library since it was installed, and what was removed from it would come back. "
        "Confirm that it may.",
        update.skill().name));
  }
  const std::size_t more = lost.size() - std::min(lost.size(), kMostNamed);
  lost.resize(lost.size() - more);
  const std::string rest = more > 0 ? fmt::format(" and {} more", more) : "";
  throw SkillsError::refused(fmt::format(
      "'{}' was changed by hand in the library since it was installed; of these files what stands there now "
      "would be lost: {}{}. Keep what you need of {} elsewhere, or confirm that it may be overwritten.",
      update.skill().name, Text::join(lost, ", "), rest, update.skill().centralPath));
}

void FetchedUpdates::withholdLostEdits() {
  std::erase_if(updates, [&](const IncomingUpdate& update) {
    try {
      refuseLostEdits(update);
      return false;
    } catch (const SkillsError& error) {
      failures.insert_or_assign(update.skill().id,
                                FetchFailure{.skill = update.skill(), .error = error, .isWithheld = true});
      return true;
    }
  });
}

}  // namespace orvanta
