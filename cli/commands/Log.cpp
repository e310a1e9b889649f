#include <fmt/format.h>

#include "cli/CommandLine.h"
#include "cli/Format.h"
#include "cli/Output.h"
#include "cli/Table.h"

namespace orvanta::cli {

namespace {

constexpr std::int64_t kLargest = 1'000'000'000;

struct Options {
  std::int64_t limit = 20;
  std::int64_t offset = 0;
};

ExitStatus show(Session& session, const Options& options) {
  const auto entries = session.engine().auditEntries(options.limit, options.offset);
  if (session.json()) {
    writeJsonArray(session.out().stream(), entries);
    return ExitStatus::done;
  }
  Table table({{"TIME"}, {"ACTION"}, {"SKILL", true}, {"AGENT", true}, {"RESULT"}, {"DETAIL", true}});
  for (const AuditEntry& entry : entries) {
    table.add({{localTime(entry.timestamp), Style::faint},
               entry.action,
               entry.skillName.value_or(""),
               entry.tool.value_or(""),
               entry.success ? Cell("ok", Style::good) : Cell("failed", Style::bad),
               entry.detail.value_or("")});
  }
  table.write(session.out());
  if (entries.empty()) session.out().line(options.offset > 0 ? "There are no older entries." : "The log is empty.");
  return ExitStatus::done;
}

ExitStatus exportLog(Session& session) {
  const auto file = session.change([&](const OperationContext&) { return session.engine().exportAudit(); });
  if (session.json()) {
    writeJson(session.out().stream(), {{"path", file.string()}});
  } else {
    session.out().line(file.string());
  }
  return ExitStatus::done;
}

ExitStatus clear(Session& session) {
  session.confirm("Delete every entry of the log?");
  session.change([&](const OperationContext&) { session.engine().clearAudit(); });
  if (session.json()) {
    writeJson(session.out().stream(), {{"cleared", true}});
  } else {
    session.out().line("The log is empty now.");
  }
  return ExitStatus::done;
}

}  // namespace

void setUpLog(CommandLine& line) {
  Options& options = line.runs<Options>(show);
  line.option("--limit", options.limit, "N", "At most so many entries (20)").between(0, kLargest);
  line.option("--offset", options.offset, "N", "Skip so many of the newest entries").between(0, kLargest);
  line.example("orvanta log", "The last twenty changes");
  line.example("orvanta log --limit 100 --offset 100", "The hundred before the last hundred");
}

void setUpLogExport(CommandLine& line) {
  line.runs(exportLog);
  line.example("orvanta log export", "Write the newest 10,000 entries as JSON, and say where");
}

void setUpLogClear(CommandLine& line) {
  line.runs(clear);
  line.example("orvanta log clear", "Delete all entries, after asking");
}

}  // namespace orvanta::cli
