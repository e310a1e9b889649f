#include <algorithm>
#include <array>
#include <map>

#include <fmt/format.h>

#include "cli/CommandLine.h"
#include "cli/Format.h"
#include "cli/Names.h"
#include "cli/Output.h"
#include "cli/Table.h"
#include "cli/commands/Common.h"
#include "foundations/Text.h"

namespace orvanta::cli {

namespace {

using TextsBySkill = std::map<std::string, std::vector<std::string>>;

// As many summaries as are made at a time: few enough to stay small, many enough to ask the library seldom.
constexpr std::size_t kChunkSize = 500;
constexpr std::size_t kAgentsNamedInRow = 2;

struct Options {
  std::string query;
  std::vector<std::string> tags;
  std::string agent;
  std::string preset;
  std::string source;
  bool updates = false;
  bool disabled = false;

  [[nodiscard]] bool filters() const {
    return !query.empty() || !tags.empty() || !agent.empty() || !preset.empty() || !source.empty() || updates ||
           disabled;
  }
};

const std::vector<std::string>& textsOf(const TextsBySkill& texts, const std::string& skillId) {
  static const std::vector<std::string> none;
  const auto found = texts.find(skillId);
  return found == texts.end() ? none : found->second;
}

bool contains(const std::vector<std::string>& texts, const std::string& wanted) {
  return std::find(texts.begin(), texts.end(), wanted) != texts.end();
}

// The skills that the options let through, with what the rows and the filters need to know of them.
class Listing {
 public:
  Listing(SkillsEngine& engine, const Options& options, bool withColumns) : options_(options) {
    if (withColumns || !options.agent.empty()) tools_ = engine.deployedToolsBySkill();
    if (withColumns || !options.query.empty() || !options.tags.empty()) tags_ = engine.tagsBySkill();
    query_ = Text::comparisonKey(Text::trim(options.query));
    for (std::string& tag : options_.tags) tag = Text::lowercase(Text::trim(tag));
    if (!options.agent.empty()) options_.agent = agentNamed(engine, options.agent);
    if (!options.preset.empty()) members_ = presetNamed(engine, options.preset).skillIds;
    records_ = engine.skills();
    if (!options.filters()) return;
    records_.erase(std::remove_if(records_.begin(), records_.end(), [this](const auto& each) { return !fits(each); }),
                   records_.end());
  }

  [[nodiscard]] const std::vector<SkillRecord>& records() const { return records_; }
  [[nodiscard]] const std::vector<std::string>& tags(const SkillRecord& record) const {
    return textsOf(tags_, record.id);
  }
  [[nodiscard]] const std::vector<std::string>& tools(const SkillRecord& record) const {
    return textsOf(tools_, record.id);
  }
  [[nodiscard]] bool hasTags() const { return !tags_.empty(); }

 private:
  [[nodiscard]] bool fits(const SkillRecord& record) const {
    if (options_.disabled && record.enabled) return false;
    if (options_.updates && record.updateStatus != UpdateStatus::available) return false;
    if (!options_.source.empty() && rawValue(record.sourceType) != options_.source) return false;
    if (!options_.agent.empty() && !contains(tools(record), options_.agent)) return false;
    if (!options_.preset.empty() && !contains(members_, record.id)) return false;
    const auto isThere = [&](const std::string& tag) { return contains(tags(record), tag); };
    return std::all_of(options_.tags.begin(), options_.tags.end(), isThere) && fitsQuery(record);
  }

  [[nodiscard]] bool fitsQuery(const SkillRecord& record) const {
    const auto has = [this](const std::string& text) {
      return Text::comparisonKey(text).find(query_) != std::string::npos;
    };
    const auto& own = tags(record);
    return query_.empty() || has(record.name) || has(record.description.value_or("")) ||
           std::any_of(own.begin(), own.end(), has);
  }

  Options options_;
  std::string query_;
  TextsBySkill tools_;
  TextsBySkill tags_;
  std::vector<std::string> members_;  // of the preset that is asked for
  std::vector<SkillRecord> records_;
};

Cell agentsCell(const SkillRecord& record, const std::vector<std::string>& tools) {
  if (record.status == kSkillMissing) return {"missing", Style::bad};
  if (!record.enabled) return {"disabled", Style::faint};
  if (tools.empty()) return {"-", Style::faint};
  if (tools.size() > kAgentsNamedInRow) return fmt::format("{} +{}", tools.front(), tools.size() - 1);
  return Text::join(tools, ", ");
}

Cell nameCell(const SkillRecord& record) {
  if (record.updateStatus == UpdateStatus::available) return {record.name + " (update)", Style::good};
  return {record.name, record.enabled ? Style::strong : Style::faint};
}

void writeTable(const Session& session, const Listing& listing) {
  std::vector<Column> columns{{"NAME", true}, {"AGENTS", true}};
  if (listing.hasTags()) columns.push_back({"TAGS", true});
  columns.push_back({"DESCRIPTION", true});
  Table table(std::move(columns));
  for (const SkillRecord& record : listing.records()) {
    std::vector<Cell> row{nameCell(record), agentsCell(record, listing.tools(record))};
    if (listing.hasTags()) row.emplace_back(Text::join(listing.tags(record), ", "));
    row.emplace_back(record.description.value_or(""));
    table.add(std::move(row));
  }
  table.write(session.out());
}

void writeSummaries(Session& session, const std::vector<SkillRecord>& records) {
  JsonArray array(session.out().stream());
  for (auto next = records.begin(); next != records.end();) {
    const auto end = next + std::min<std::ptrdiff_t>(kChunkSize, records.end() - next);
    for (const SkillSummary& summary : session.engine().summaries({next, end})) array.add(summary);
    next = end;
  }
}

ExitStatus run(Session& session, const Options& options) {
  const Listing listing(session.engine(), options, !session.json());
  if (session.json()) {
    writeSummaries(session, listing.records());
    return ExitStatus::done;
  }
  writeTable(session, listing);
  if (listing.records().empty()) {
    session.out().line(options.filters() ? "No skill matches. 'orvanta list' shows all."
                                         : "The library is empty. 'orvanta install DIR' copies skills into it, "
                                           "'orvanta discover' shows what agents hold already.");
  }
  return ExitStatus::done;
}

}  // namespace

void setUpList(CommandLine& line) {
  Options& options = line.runs<Options>(run);
  line.argument("QUERY", options.query, "Only skills with this text in the name, the description or a tag");
  line.option("--tag", options.tags, "TAG", "Only skills with all of these tags", Completes::tags);
  agentOption(line, "--agent", options.agent, "Only skills that are deployed to this agent");
  line.option("--preset", options.preset, "PRESET", "Only the skills of this preset", Completes::presets);
  std::vector<std::string> sources;
  for (const SourceType type : kAllSourceTypes) sources.emplace_back(rawValue(type));
  line.option("--source", options.source, "TYPE", "Only skills from this kind of source: " + Text::join(sources, ", "))
      .oneOf(sources);
  line.flag("--updates", options.updates, "Only skills for which an update is known");
  line.flag("--disabled", options.disabled, "Only skills that are disabled");
  line.example("orvanta list", "All skills, one a line");
  line.example("orvanta list pdf --agent cursor", "Those about pdf that Cursor has");
}

}  // namespace orvanta::cli
