#include "engine/Reports.h"

namespace orvanta {

ApplyReport asApplied(const PlacementReport& placed) {
  const auto skipped = static_cast<std::int64_t>(placed.untouched);
  return {.deployed = static_cast<std::int64_t>(placed.done.size()) - skipped,
          .removed = 0,
          .skipped = skipped,
          .errors = placed.errors};
}

std::string_view rawValue(PlannedStep::Action action) {
  switch (action) {
    case PlannedStep::Action::place: return "place";
    case PlannedStep::Action::replace: return "replace";
    case PlannedStep::Action::keep: return "keep";
    case PlannedStep::Action::remove: return "remove";
    case PlannedStep::Action::refused: return "refused";
  }
  return "refused";
}

ApplyReport ReconcileReport::asApplied() const {
  return {.deployed = static_cast<std::int64_t>(added.size()),
          .removed = static_cast<std::int64_t>(missing.size()),
          .skipped = 0,
          .errors = errors};
}

ApplyReport UpdateReport::asApplied() const {
  ApplyReport report{.deployed = static_cast<std::int64_t>(updatedIds.size()),
                     .removed = 0,
                     .skipped = static_cast<std::int64_t>(unchangedIds.size()),
                     .errors = {}};
  for (const auto& failure : failures) report.errors.push_back(failure.skillName + ": " + failure.error.message());
  return report;
}

}  // namespace orvanta
