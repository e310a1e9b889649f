#include "engine/Reports.h"

namespace orvanta {

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

}  // namespace orvanta
