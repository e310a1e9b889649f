#include <fmt/format.h>

#include "cli/CommandLine.h"
#include "cli/Format.h"
#include "cli/Names.h"
#include "cli/UsageError.h"
#include "cli/commands/Common.h"

namespace orvanta::cli {

namespace {

struct Options {
  std::string skill;
  std::optional<std::string> name;
  std::optional<std::string> description;
};

ExitStatus run(Session& session, const Options& options) {
  if (!options.name && !options.description) {
    throw UsageError("Say what to change: --name NAME, --description TEXT, or both.");
  }
  const SkillRecord record = skillNamed(session.engine(), options.skill);
  auto description = options.description ? options.description : record.description;
  if (description && description->empty()) description.reset();
  const auto summary = session.change([&](const OperationContext&) {
    return session.engine().updateSkillInfo(record.id, options.name.value_or(record.name), description);
  });
  return showSummary(session, summary, fmt::format("{} is changed.", inQuotes(summary.record.name)));
}

}  // namespace

void setUpEdit(CommandLine& line) {
  Options& options = line.runs<Options>(run);
  skillArgument(line, options.skill);
  line.option("--name", options.name, "NAME", "The new name");
  line.option("--description", options.description, "TEXT", "The new description; empty for none");
  line.example("orvanta edit pdf --name pdf-tools", "Rename a skill in the library");
  line.explain("Only the library's record changes. The skill's folder and its SKILL.md stay as they are.");
}

}  // namespace orvanta::cli
