#include "cli/Plans.h"

#include <algorithm>
#include <iterator>
#include <set>

#include <fmt/format.h>

#include "cli/Format.h"
#include "cli/Output.h"
#include "cli/Table.h"

namespace orvanta::cli {

namespace {

constexpr std::size_t kScreenful = 15;

Style styleOf(PlannedStep::Action action) {
  switch (action) {
    case PlannedStep::Action::place: return Style::good;
    case PlannedStep::Action::replace: return Style::warning;
    case PlannedStep::Action::keep: return Style::faint;
    case PlannedStep::Action::remove: return Style::warning;
    case PlannedStep::Action::refused: return Style::bad;
  }
  return Style::plain;
}

Table tableOf(const Plan& plan, const UserFolders& user) {
  Table table({{"ACTION"}, {"SKILL", true}, {"AGENT"}, {"PATH", true}, {"REASON", true}});
  for (const PlannedStep& step : plan) {
    table.add({{std::string(rawValue(step.action)), styleOf(step.action)},
               step.skillName,
               step.tool.value_or(step.action == PlannedStep::Action::refused ? "-" : "library"),
               shortPath(step.path, user),
               step.reason.value_or("")});
  }
  return table;
}

bool destroys(const PlannedStep& step) {
  return step.action == PlannedStep::Action::remove || step.action == PlannedStep::Action::replace;
}

}  // namespace

ExitStatus showPlan(Session& session, const Plan& plan) {
  if (session.json()) {
    writeJsonArray(session.out().stream(), plan);
    return ExitStatus::done;
  }
  if (plan.empty()) {
    session.out().line("Nothing to do.");
    return ExitStatus::done;
  }
  tableOf(plan, session.user()).write(session.out());
  session.note("This is a dry run: nothing was changed.");
  return ExitStatus::done;
}

Plan forcedReplacements(const Plan& careful, const Plan& forced) {
  std::set<std::string> refused;
  for (const PlannedStep& step : careful) {
    if (step.action == PlannedStep::Action::refused) refused.insert(step.path);
  }
  Plan replaced;
  for (const PlannedStep& step : forced) {
    if (step.action == PlannedStep::Action::replace && refused.count(step.path) > 0) replaced.push_back(step);
  }
  return replaced;
}

void confirmLosses(Session& session, const Plan& plan, std::string_view question) {
  if (std::none_of(plan.begin(), plan.end(), destroys)) return;
  if (session.willAsk()) showLosses(session, plan);
  session.confirm(question);
}

void showLosses(Session& session, const Plan& plan) {
  Plan losses;
  std::copy_if(plan.begin(), plan.end(), std::back_inserter(losses), destroys);
  const std::size_t more = losses.size() > kScreenful ? losses.size() - kScreenful : 0;
  losses.resize(losses.size() - more);
  tableOf(losses, session.user()).write(session.err());
  if (more > 0) session.err().line(fmt::format("and {} more", more));
}

}  // namespace orvanta::cli
