#pragma once

// What an operation would do, shown before it does it.

#include "cli/Session.h"
#include "engine/Reports.h"

namespace orvanta::cli {

// The result of --dry-run: the whole plan, as a table or a JSON array.
ExitStatus showPlan(Session& session, const Plan& plan);

// Shows the steps that remove or replace something, a screenful of them at most, to whoever is asked next.
void showLosses(Session& session, const Plan& plan);

}  // namespace orvanta::cli
