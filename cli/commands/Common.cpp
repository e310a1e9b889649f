#include "cli/commands/Common.h"

#include <algorithm>

#include <fmt/format.h>

#include "cli/Format.h"
#include "cli/Output.h"
#include "cli/Table.h"
#include "files/FS.h"
#include "foundations/Text.h"

namespace orvanta::cli {

namespace {

constexpr std::size_t kScreenful = 20;
constexpr const char* kStoppedOnRequest = "Stopped on request. What was done by then is complete and recorded.";

}  // namespace

Input& skillArgument(CommandLine& line, std::string& target) {
  return line
      .argument("SKILL", target, "A skill's name, its id, or at least four characters of its id", Completes::skills)
      .required();
}

Input& skillArguments(CommandLine& line, std::vector<std::string>& target) {
  return line.argument("SKILL", target, "Names of skills, ids, or at least four characters of an id", Completes::skills)
      .required();
}

Input& agentArgument(CommandLine& line, std::string& target) {
  return line.argument("AGENT", target, "An agent's key or name, as 'orvanta agent list' shows it", Completes::agents)
      .required();
}

Input& agentOption(CommandLine& line, const std::string& name, std::string& target, const std::string& about) {
  return line.option(name, target, "AGENT", about, Completes::agents);
}

Input& agentsOption(CommandLine& line, const std::string& name, std::vector<std::string>& target,
                    const std::string& about) {
  return line.option(name, target, "AGENT", about, Completes::agents);
}

std::string skillsAsText(const std::vector<SkillRecord>& records) {
  return records.size() == 1 ? inQuotes(records.front().name) : counted(records.size(), "skill");
}

std::vector<std::string> idsOf(const std::vector<SkillRecord>& records) {
  std::vector<std::string> ids;
  for (const SkillRecord& record : records) ids.push_back(record.id);
  return ids;
}

ExitStatus showSummary(const Session& session, const SkillSummary& summary, const std::string& sentence) {
  if (session.json()) {
    writeJson(session.out().stream(), summary);
  } else {
    session.out().line(sentence);
  }
  return ExitStatus::done;
}

void showPlacements(Session& session, const std::vector<Placement>& placements, const std::string& verb) {
  Table table({{"SKILL", true}, {"AGENT"}, {"AS"}, {"PATH", true}, {"NOTE", true}});
  std::size_t changed = 0;
  for (const Placement& placement : placements) {
    changed += placement.changed ? 1 : 0;
    if (!placement.changed && !placement.note) continue;
    if (placements.size() > kScreenful) continue;
    table.add({placement.skillName, placement.tool, std::string(rawValue(placement.mode)),
               shortPath(placement.targetPath, session.user()), placement.note.value_or("")});
  }
  table.write(session.out());
  const std::size_t kept = placements.size() - changed;
  session.out().line(kept == 0 ? fmt::format("{} {}.", counted(changed, "deployment"), verb)
                               : fmt::format("{} {}, {} left as it was.", counted(changed, "deployment"), verb, kept));
}

std::string figuresOf(const ApplyReport& report) {
  std::vector<std::string> figures;
  const auto add = [&](std::int64_t count, const char* what) {
    if (count > 0) figures.push_back(fmt::format("{} {}", count, what));
  };
  add(report.deployed, "placed");
  add(report.removed, "removed");
  add(report.skipped, "already there");
  if (!figures.empty()) return Text::join(figures, ", ") + ".";
  return report.errors.empty() ? "nothing was changed." : "nothing was done without an error.";
}

ExitStatus showReport(const Session& session, const ApplyReport& report, const std::string& sentence) {
  if (session.json()) {
    writeJson(session.out().stream(), report);
  } else {
    session.out().line(sentence);
  }
  showProblems(session, report.errors, session.wasInterrupted());
  return bulkStatus(static_cast<std::size_t>(report.deployed + report.removed + report.skipped), report.errors.size(),
                    session.wasInterrupted());
}

void showProblems(const Session& session, const std::vector<std::string>& errors, bool interrupted) {
  session.problems(errors);
  if (!interrupted) return;
  session.json() ? writeError(session.err().stream(), "interrupted", kStoppedOnRequest)
                 : session.problem(kStoppedOnRequest);
}

void showProblemsBesideArray(const Session& session, const std::vector<std::string>& errors, bool interrupted) {
  if (!session.json()) return showProblems(session, errors, interrupted);
  std::vector<std::string> texts = errors;
  if (interrupted) texts.emplace_back(kStoppedOnRequest);
  if (texts.empty()) return;
  writeError(session.err().stream(), interrupted ? "interrupted" : "refused", Text::join(texts, "\n"));
}

std::vector<std::string> copiesThatDidNotFollow(const SkillSummary& summary) {
  std::vector<std::string> errors;
  for (const SkillTarget& target : summary.targets) {
    if (target.mode != SyncMode::copy || target.status != kTargetError) continue;
    errors.push_back(fmt::format("The copy at {} is an old one: {}", target.targetPath, target.lastError.value_or("")));
  }
  return errors;
}

std::filesystem::path pathInAgentFolder(Session& session, const std::string& typed, const std::string& agent) {
  const std::filesystem::path path(typed);
  if (path.is_absolute() || FS::exists(path)) return standardized(path);
  const auto below = session.engine().adapter(agent).skillsDir(session.user()) / path;
  return FS::exists(below) ? below : standardized(path);
}

}  // namespace orvanta::cli
