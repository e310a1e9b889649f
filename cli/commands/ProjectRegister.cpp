#include <algorithm>

#include <fmt/format.h>

#include "cli/Format.h"
#include "cli/Names.h"
#include "cli/Output.h"
#include "cli/Table.h"
#include "cli/UsageError.h"
#include "cli/commands/Common.h"
#include "cli/commands/Projects.h"
#include "foundations/Text.h"

namespace orvanta::cli {

namespace {

constexpr std::int64_t kDeepest = 32;

struct AddOptions {
  std::string folder;
  std::optional<std::string> name;
};

struct LinkOptions {
  std::string agent;
};

struct RemoveOptions {
  std::string project;
};

struct ScanOptions {
  std::string folder;
  std::int64_t depth = 8;
};

ExitStatus showAdded(const Session& session, const ProjectRecord& project) {
  if (session.json()) {
    writeJson(session.out().stream(), project);
    return ExitStatus::done;
  }
  const std::string name = inQuotes(project.name);
  session.out().line(fmt::format("{} is added.", name));
  session.note(fmt::format("Next: orvanta project show {}", name));
  return ExitStatus::done;
}

// An empty word is a variable that was not set, not the working folder.
std::filesystem::path folderNamed(const std::string& typed) {
  if (typed.empty()) throw UsageError("Name a folder; '.' is the working folder.");
  return standardized(typed);
}

ExitStatus add(Session& session, const AddOptions& options) {
  const auto folder = folderNamed(options.folder);
  return showAdded(session, session.change([&](const OperationContext&) {
    return session.engine().addProject(folder, options.name);
  }));
}

ExitStatus link(Session& session, const LinkOptions& options) {
  SkillsEngine& engine = session.engine();
  const std::string agent = agentNamed(engine, options.agent);
  return showAdded(session, session.change([&](const OperationContext&) { return engine.addLinkedWorkspace(agent); }));
}

ExitStatus remove(Session& session, const RemoveOptions& options) {
  SkillsEngine& engine = session.engine();
  const ProjectRecord project = projectNamed(engine, options.project);
  session.change([&](const OperationContext&) { engine.removeProject(project.id); });
  if (session.json()) {
    writeJson(session.out().stream(), {{"removed", project.id}});
  } else {
    session.out().line(fmt::format("{} is forgotten; all its files stay where they are.", inQuotes(project.name)));
  }
  return ExitStatus::done;
}

ExitStatus scan(Session& session, const ScanOptions& options) {
  const auto root = folderNamed(options.folder);
  const auto found = lookedAt(session, [&](const OperationContext& context) {
    return session.engine().scanForProjects(root, static_cast<int>(options.depth), context);
  });
  if (session.json()) {
    writeJsonArray(session.out().stream(), found);
    return ExitStatus::done;
  }
  Table table({{"PATH", true}, {"AGENTS", true}, {"SKILLS", false, true}, {"NOTE"}});
  for (const ScannedProject& project : found) {
    table.add({{shortPath(project.path, session.user()), project.alreadyAdded ? Style::faint : Style::strong},
               Text::join(project.agents, ", "),
               fmt::format("{}", project.skillCount),
               project.alreadyAdded ? "added" : ""});
  }
  table.write(session.out());
  if (found.empty()) {
    session.out().line(fmt::format("No folder up to {} below {} holds skills of an agent. --depth N looks deeper.",
                                   counted(static_cast<std::size_t>(options.depth), "level"), inQuotes(fsPath(root))));
  }
  const bool hasNew = std::any_of(found.begin(), found.end(), [](const auto& each) { return !each.alreadyAdded; });
  if (hasNew) session.note("Next: orvanta project add DIR");
  return ExitStatus::done;
}

}  // namespace

void setUpProjectAdd(CommandLine& line) {
  AddOptions& options = line.runs<AddOptions>(add);
  line.argument("DIR", options.folder, "The project's folder", Completes::files).required();
  line.option("--name", options.name, "NAME", "Call it so instead of by its folder's name");
  line.example("orvanta project add .", "The project in the working folder");
  line.explain("Only its place is remembered. No file in it is touched.");
}

void setUpProjectLink(CommandLine& line) {
  agentArgument(line, line.runs<LinkOptions>(link).agent);
  line.example("orvanta project link cursor", "Treat the skills in Cursor's own folder like those of a project");
  line.explain(
      "It shows which skills live there, and how they compare with the library; 'orvanta project disable' moves one to "
      "a folder beside it.");
}

void setUpProjectRemove(CommandLine& line) {
  projectArgument(line, line.runs<RemoveOptions>(remove).project);
  line.example("orvanta project remove site", "Forget the project; all its files stay where they are");
  line.explain("With --json the result is {\"removed\": ID}.");
}

void setUpProjectScan(CommandLine& line) {
  ScanOptions& options = line.runs<ScanOptions>(scan);
  line.argument("DIR", options.folder, "Look at this folder and those below it", Completes::files).required();
  line.option("--depth", options.depth, "N", "Look this many levels deep (8)").between(0, kDeepest);
  line.example("orvanta project scan ~/code", "Folders that hold skills of agents");
  line.explain("Links are not followed, and folders of dependencies and caches are passed over. Nothing is added.");
}

}  // namespace orvanta::cli
