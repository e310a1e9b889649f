#include <algorithm>
#include <set>

#include <fmt/format.h>

#include "cli/CommandLine.h"
#include "cli/Format.h"
#include "cli/Output.h"
#include "cli/Table.h"
#include "cli/commands/Common.h"
#include "foundations/Text.h"
#include "sources/GitSource.h"
#include "sources/PlazzaAPI.h"

namespace orvanta::cli {

namespace {

constexpr std::int64_t kLongestLeaderboard = 1000;

struct SearchOptions {
  std::vector<std::string> words;
  std::int64_t limit = 20;
};

struct TopOptions {
  std::string kind{rawValue(LeaderboardKind::allTime)};
  bool refresh = false;
  std::int64_t limit = 20;
};

// The addresses, as the directory writes them, of what the library has from repositories: by the name that was asked
// for, and by the folder and the name of what came.
std::set<std::string> heldAddresses(SkillsEngine& engine) {
  std::set<std::string> held;
  for (const SkillRecord& record : engine.skills()) {
    if (!isRemote(record.sourceType)) continue;
    if (record.sourceType == SourceType::plazza) held.insert(Text::comparisonKey(record.sourceRef.value_or("")));
    const std::string address = record.sourceRefResolved.value_or(record.sourceRef.value_or(""));
    const std::string repository = GitSource::parse(address).shortName();
    const std::filesystem::path folder = record.sourceSubpath.value_or("");
    held.insert(Text::comparisonKey(repository + "/" + folder.filename().string()));
    held.insert(Text::comparisonKey(repository + "/" + record.name));
  }
  return held;
}

ExitStatus show(Session& session, const std::vector<PlazzaSkill>& skills, const std::string& nothing) {
  if (session.json()) {
    writeJsonArray(session.out().stream(), skills);
    return ExitStatus::done;
  }
  if (skills.empty()) {
    session.out().line(nothing);
    return ExitStatus::done;
  }
  const std::set<std::string> held = heldAddresses(session.engine());
  Table table({{"#", false, true}, {"NAME", true}, {"SOURCE", true}, {"INSTALLS", false, true}, {"NOTE"}});
  for (const PlazzaSkill& skill : skills) {
    const bool isHeld = held.count(Text::comparisonKey(skill.address())) > 0;
    table.add({{std::to_string(&skill - skills.data() + 1), Style::faint},
               {skill.name, Style::strong},
               skill.address(),
               withSeparators(skill.installs),
               {isHeld ? "installed" : "", Style::faint}});
  }
  table.write(session.out());
  session.note("Next: orvanta install plazza:OWNER/REPO/SKILL   (what stands under SOURCE)");
  return ExitStatus::done;
}

ExitStatus search(Session& session, const SearchOptions& options) {
  const std::string query = Text::join(options.words, " ");
  const auto skills = lookedAt(session, [&](const OperationContext& context) {
    return session.engine().searchMarket(query, static_cast<std::size_t>(options.limit), context);
  });
  return show(session, skills, fmt::format("The directory has no skill for {}.", inQuotes(query)));
}

ExitStatus top(Session& session, const TopOptions& options) {
  const auto kind = parseLeaderboardKind(options.kind).value_or(LeaderboardKind::allTime);
  auto skills = lookedAt(session, [&](const OperationContext& context) {
    return session.engine().leaderboard(kind, options.refresh, context);
  });
  skills.resize(std::min(skills.size(), static_cast<std::size_t>(options.limit)));
  return show(session, skills, "The directory lists no skills there. Ask again later, or search it.");
}

}  // namespace

void setUpSearch(CommandLine& line) {
  SearchOptions& options = line.runs<SearchOptions>(search);
  line.argument("QUERY", options.words, "What the skill is called, or what it is good for").required();
  line.option("--limit", options.limit, "N", "At most so many skills (20)").between(1, PlazzaAPI::mostResults);
  line.example("orvanta search pdf forms", "The skills of the directory that fit best");
  line.explain(
      "Anybody can publish there: read a skill before an agent gets it. Answers are kept for ten minutes. The setting "
      "plazza_url names another directory.");
}

void setUpTop(CommandLine& line) {
  TopOptions& options = line.runs<TopOptions>(top);
  std::vector<std::string> kinds;
  for (const LeaderboardKind kind : kAllLeaderboardKinds) kinds.emplace_back(rawValue(kind));
  line.argument("LIST", options.kind, "Which of its lists: " + Text::join(kinds, ", ") + " (all)").oneOf(kinds);
  line.flag("--refresh", options.refresh, "Ask the directory even if it was asked within the last hour");
  line.option("--limit", options.limit, "N", "At most so many skills (20)").between(1, kLongestLeaderboard);
  line.example("orvanta top", "The twenty skills that were installed most");
  line.example("orvanta top trending --limit 50", "The fifty that are on their way up");
  line.explain(
      "Anybody can publish there: read a skill before an agent gets it. The setting plazza_url names another "
      "directory.");
}

}  // namespace orvanta::cli
