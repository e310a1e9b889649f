#pragma once

// What an operation would do, shown before it does it.

#include <string_view>

#include "cli/Session.h"
#include "engine/Reports.h"

namespace orvanta::cli {

// The result of --dry-run: the whole plan, as a table or a JSON array.
ExitStatus showPlan(Session& session, const Plan& plan);

// What only a forced operation makes way for: steps that a careful one refuses.
Plan forcedReplacements(const Plan& careful, const Plan& forced);

// Shows what the plan removes or replaces and asks whether it may go. Does not ask when there is nothing.
void confirmLosses(Session& session, const Plan& plan, std::string_view question);

// Shows the steps that remove or replace something, a screenful of them at most, to whoever is asked next.
void showLosses(Session& session, const Plan& plan);

}  // namespace orvanta::cli
