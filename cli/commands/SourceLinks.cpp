// The link between a skill and where it came from.

#include <fmt/format.h>

#include "cli/CommandLine.h"
#include "cli/Format.h"
#include "cli/Names.h"
#include "cli/commands/Common.h"
#include "foundations/Text.h"

namespace orvanta::cli {

namespace {

struct DetachOptions {
  std::string skill;
};

struct RelinkOptions {
  std::string skill;
  std::string url;
  std::optional<std::string> subpath;
};

ExitStatus runDetach(Session& session, const DetachOptions& options) {
  const SkillRecord record = skillNamed(session.engine(), options.skill);
  const auto summary =
      session.change([&](const OperationContext&) { return session.engine().detachSource(record.id); });
  return showSummary(session, summary, fmt::format("{} no longer comes from anywhere.", inQuotes(record.name)));
}

ExitStatus runRelink(Session& session, const RelinkOptions& options) {
  const SkillRecord record = skillNamed(session.engine(), options.skill);
  const auto summary = session.change(
      [&](const OperationContext&) { return session.engine().relinkSource(record.id, options.url, options.subpath); });
  const ExitStatus status = showSummary(session, summary,
                                        fmt::format("{} comes from {} now.", inQuotes(record.name),
                                                    Text::singleLine(summary.record.sourceRef.value_or(""))));
  session.note("Next: orvanta diff SKILL, to see what that repository has of it");
  return status;
}

}  // namespace

void setUpDetach(CommandLine& line) {
  skillArgument(line, line.runs<DetachOptions>(runDetach).skill);
  line.example("orvanta detach pdf", "Keep the skill as it is, and look for no more updates");
  line.explain("The skill becomes a local one; its files stay as they are.");
}

void setUpRelink(CommandLine& line) {
  RelinkOptions& options = line.runs<RelinkOptions>(runRelink);
  skillArgument(line, options.skill);
  line.argument("URL", options.url, "A Git address, OWNER/REPO, or a GitHub link into a tree").required();
  line.option("--subpath", options.subpath, "PATH", "The skill's folder in the repository");
  line.example("orvanta relink pdf OWNER/REPO --subpath skills/pdf", "Take updates from this repository from now on");
  line.explain("Only the record changes; the next check and update ask there.");
}

}  // namespace orvanta::cli
