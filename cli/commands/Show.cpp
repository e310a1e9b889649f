#include <fmt/format.h>

#include "cli/CommandLine.h"
#include "cli/Format.h"
#include "cli/Names.h"
#include "cli/Output.h"
#include "cli/Table.h"
#include "cli/commands/Common.h"
#include "foundations/SkillsError.h"
#include "foundations/Text.h"

namespace orvanta::cli {

namespace {

struct Options {
  std::string skill;
  bool files = false;
  std::optional<std::string> file;
};

// A file's own escape sequences must not reach a terminal; elsewhere its text is passed on as it is.
void writeText(const Terminal& out, const std::string& text) {
  if (!out.isTerminal()) {
    out.stream() << text;
    return;
  }
  const std::size_t end = text.ends_with('\n') ? text.size() - 1 : text.size();
  for (const std::string_view line : Text::split(std::string_view(text).substr(0, end), '\n')) {
    out.line(Text::singleLine(line));
  }
}

ExitStatus showFile(Session& session, const std::string& id, const std::string& relativePath) {
  const auto text = session.engine().skillFileText(id, relativePath);
  if (!text) {
    throw SkillsError::invalidInput(
        fmt::format("{} is not a text file, so it cannot be shown. 'orvanta show SKILL --files' lists files and sizes.",
                    inQuotes(relativePath)));
  }
  if (session.json()) {
    writeJson(session.out().stream(), {{"relativePath", relativePath}, {"text", *text}});
  } else {
    writeText(session.out(), *text);
  }
  return ExitStatus::done;
}

std::string sourceOf(const SkillRecord& record) {
  std::string source(label(record.sourceType));
  if (record.sourceRef) source += ", " + *record.sourceRef;
  if (record.sourceSubpath) source += ", folder " + *record.sourceSubpath;
  if (record.sourceBranch) source += ", branch " + *record.sourceBranch;
  return source;
}

void writeFacts(Session& session, const SkillSummary& summary) {
  const Terminal& out = session.out();
  const SkillRecord& record = summary.record;
  const auto fact = [&out](const char* title, const std::string& text) {
    out.line(fmt::format("  {}{}", out.styled(fmt::format("{:<11}", title), Style::faint), Text::singleLine(text)));
  };
  out.line(out.styled(Text::singleLine(record.name), Style::strong));
  if (record.description) out.line(wrapped(Text::singleLine(*record.description), 2, out.columns()));
  out.line("");
  fact("Id", record.id);
  fact("Source", sourceOf(record));
  fact("Folder", shortPath(record.centralPath, session.user()));
  fact("Installed", localTime(record.createdAt));
  fact("Changed", localTime(record.updatedAt));
  if (!summary.tags.empty()) fact("Tags", Text::join(summary.tags, ", "));
  if (record.status == kSkillMissing) fact("State", "missing: its folder is gone from the library");
  if (!record.enabled) fact("State", fmt::format("disabled; 'orvanta enable {}' puts it back", record.name));
  if (record.updateStatus == UpdateStatus::available) fact("Update", "available");
  if (record.lastCheckError) fact("Problem", *record.lastCheckError);
}

void writeTargets(Session& session, const SkillSummary& summary) {
  const Terminal& out = session.out();
  out.line("");
  if (summary.targets.empty()) {
    out.line("  Not deployed to any agent. 'orvanta deploy SKILL --to AGENT' places it.");
    return;
  }
  Table table({{"AGENT"}, {"AS"}, {"STATE"}, {"PATH", true}, {"PROBLEM", true}});
  for (const SkillTarget& target : summary.targets) {
    const Style style = target.status == kTargetError ? Style::bad : Style::plain;
    table.add({target.tool,
               std::string(rawValue(target.mode)),
               {target.status, style},
               shortPath(target.targetPath, session.user()),
               target.lastError.value_or("")});
  }
  table.write(out);
}

void writeFiles(const Session& session, const std::vector<SkillFileEntry>& files) {
  session.out().line("");
  Table table({{"SIZE", false, true}, {"FILE"}, {""}});
  for (const SkillFileEntry& file : files) {
    table.add({byteCount(file.size), file.relativePath, file.isExecutable ? "executable" : ""});
  }
  table.write(session.out());
}

ExitStatus run(Session& session, const Options& options) {
  SkillsEngine& engine = session.engine();
  const std::string id = skillNamed(engine, options.skill).id;
  if (options.file) return showFile(session, id, *options.file);
  const SkillSummary summary = engine.summary(id);
  const auto files = options.files ? engine.skillFiles(id) : std::vector<SkillFileEntry>{};
  if (session.json()) {
    Json document = summary;
    if (options.files) document["files"] = files;
    writeJson(session.out().stream(), document);
    return ExitStatus::done;
  }
  writeFacts(session, summary);
  writeTargets(session, summary);
  if (options.files) writeFiles(session, files);
  return ExitStatus::done;
}

}  // namespace

void setUpShow(CommandLine& line) {
  Options& options = line.runs<Options>(run);
  skillArgument(line, options.skill);
  bool& files = options.files;
  auto& list = line.flag("--files", files, "List its files too");
  line.option("--file", options.file, "REL", "Write the text of one file, named by its path inside the skill")
      .excludes(list);
  line.example("orvanta show pdf", "Where it came from and which agents have it");
  line.example("orvanta show pdf --file SKILL.md", "Read its instructions");
}

}  // namespace orvanta::cli
