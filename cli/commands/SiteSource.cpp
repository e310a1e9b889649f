#include "cli/commands/SiteSource.h"

#include <fmt/format.h>

#include "cli/Choice.h"
#include "cli/Format.h"
#include "cli/UsageError.h"
#include "cli/commands/Common.h"
#include "foundations/SkillsError.h"

namespace orvanta::cli {

namespace {

using Entry = WellKnownIndex::Entry;

constexpr std::string_view kPrefix = "well-known:";

struct Site {
  std::string domain;
  std::string skill;  // empty where none is named
};

Site siteIn(const std::string& word) {
  const std::string rest = word.substr(kPrefix.size());
  const auto slash = rest.find('/');
  if (slash == std::string::npos) return {rest, ""};
  return {rest.substr(0, slash), rest.substr(slash + 1)};
}

const Entry& entryNamed(const WellKnownIndex& index, const std::string& name) {
  try {
    return index.entry(name);
  } catch (const SkillsError& error) {
    if (error.kind() != SkillsError::Kind::notFound) throw;
    throw SkillsError::notFound(fmt::format("{}: orvanta well-known {}", error.message(), index.domain));
  }
}

std::vector<Entry> chosenEntries(const Session& session, const WellKnownIndex& index, const SourceChoice& choice) {
  std::vector<Entry> chosen;
  if (!choice.paths.empty()) {
    for (const std::string& name : choice.paths) chosen.push_back(entryNamed(index, name));
    return chosen;
  }
  if (choice.all || index.entries.size() == 1) return index.entries;
  if (index.entries.empty()) {
    throw SkillsError::notFound(fmt::format("{} publishes no skills: its index is empty.", index.domain));
  }
  std::vector<std::string> items;
  for (const Entry& entry : index.entries) items.push_back(fmt::format("{}  ({})", entry.name, offerOf(entry)));
  for (const std::size_t position : chooseSome(session, inQuotes(index.domain), items)) {
    chosen.push_back(index.entries[position]);
  }
  return chosen;
}

}  // namespace

bool looksLikeSite(const std::string& word) { return word.starts_with(kPrefix); }

InstallSource siteNamed(Session& session, const std::string& word, const SourceChoice& choice) {
  const Site site = siteIn(word);
  if (!site.skill.empty() && !choice.paths.empty()) {
    throw UsageError(fmt::format("{} names its skill already; leave out --path, or the name.", inQuotes(word)));
  }
  const WellKnownIndex index = lookedAt(
      session, [&](const OperationContext& context) { return session.engine().fetchWellKnown(site.domain, context); });
  const auto entries =
      site.skill.empty() ? chosenEntries(session, index, choice) : std::vector<Entry>{entryNamed(index, site.skill)};
  if (choice.name && entries.size() != 1) {
    throw UsageError("--name names one skill, and there are several. Install them without it, or one at a time.");
  }
  SkillsEngine& engine = session.engine();
  const auto name = choice.name;
  return {
      .plan = [=, &engine](const auto& context) { return engine.planInstallWellKnown(index, entries, name, context); },
      .install = [=, &engine](const auto& context) { return engine.installWellKnown(index, entries, name, context); }};
}

std::string offerOf(const Entry& entry) {
  if (entry.flaw) return "not installable: " + *entry.flaw;
  switch (entry.kind()) {
    case Entry::Kind::files: return counted(entry.files.size(), "file");
    case Entry::Kind::skillMd: return "SKILL.md";
    case Entry::Kind::archive: return "archive";
  }
  return "";
}

}  // namespace orvanta::cli
