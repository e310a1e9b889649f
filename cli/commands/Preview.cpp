#include <fmt/format.h>

#include "cli/CommandLine.h"
#include "cli/Format.h"
#include "cli/Output.h"
#include "cli/Table.h"
#include "cli/commands/Common.h"

namespace orvanta::cli {

namespace {

struct Options {
  std::string url;
};

constexpr std::size_t kShownOfRevision = 12;

ExitStatus run(Session& session, const Options& options) {
  const GitPreview preview = lookedAt(
      session, [&](const OperationContext& context) { return session.engine().previewGit(options.url, context); });
  if (session.json()) {
    writeJson(session.out().stream(), preview);
    return ExitStatus::done;
  }
  const Terminal& out = session.out();
  out.line(fmt::format("{}  {}  {}", out.styled(preview.cloneURL, Style::strong), preview.branch.value_or(""),
                       preview.revision.substr(0, kShownOfRevision)));
  Table table({{"SKILL", true}, {"PATH", true}, {"NOTE"}, {"DESCRIPTION", true}});
  for (const GitPreviewSkill& skill : preview.skills) {
    table.add({{skill.name, Style::strong},
               skill.relativePath,
               {skill.alreadyInstalled ? "installed" : "", Style::faint},
               skill.description.value_or("")});
  }
  table.write(out);
  if (preview.skills.empty()) {
    out.line("There is no skill in it: no folder holds a SKILL.md.");
  } else {
    session.note("Next: orvanta install URL --path PATH…   (or --all)");
  }
  return ExitStatus::done;
}

}  // namespace

void setUpPreview(CommandLine& line) {
  line.argument("URL", line.runs<Options>(run).url, "A Git address, OWNER/REPO, or a GitHub link into a tree")
      .required();
  line.example("orvanta preview OWNER/REPO", "The skills that a repository on GitHub holds");
  line.explain("The repository is looked at in a temporary folder; nothing is installed.");
}

}  // namespace orvanta::cli
