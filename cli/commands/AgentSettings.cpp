#include <fmt/format.h>

#include "cli/CommandLine.h"
#include "cli/Format.h"
#include "cli/Names.h"
#include "cli/Output.h"
#include "cli/commands/Agents.h"
#include "cli/commands/Common.h"

namespace orvanta::cli {

namespace {

struct PathOptions {
  std::string agent;
  std::optional<std::string> folder;
  bool reset = false;

  [[nodiscard]] bool changes() const { return reset || folder; }
};

struct AddOptions {
  std::string key;
  std::string name;
  std::string folder;
  std::string projectFolder;
  std::string category{rawValue(ToolCategory::coding)};
};

struct RemoveOptions {
  std::string agent;
};

// A folder as it is stored: "~" stays, so that the setting holds on other machines; other paths become absolute.
std::string storedFolder(const std::string& typed) {
  return typed.empty() || typed.starts_with('~') ? typed : fsPath(standardized(typed));
}

ExitStatus showFolder(Session& session, const std::string& key, const std::string& folder) {
  if (session.json()) return showTool(session, key, "");
  session.out().line(folder);
  return ExitStatus::done;
}

ExitStatus path(Session& session, const PathOptions& options) {
  SkillsEngine& engine = session.engine();
  const std::string key = agentNamed(engine, options.agent);
  if (!options.changes()) return showFolder(session, key, toolInfo(engine, key).skillsDir);
  session.change([&](const OperationContext&) {
    engine.setToolPath(key, options.folder ? std::make_optional(storedFolder(*options.folder)) : std::nullopt);
  });
  return showTool(session, key,
                  fmt::format("keeps its skills in {}; what was deployed before moves there when it is deployed again",
                              inQuotes(toolInfo(engine, key).skillsDir)));
}

ExitStatus projectPath(Session& session, const PathOptions& options) {
  SkillsEngine& engine = session.engine();
  const std::string key = agentNamed(engine, options.agent);
  if (!options.changes()) return showFolder(session, key, toolInfo(engine, key).projectRelativeSkillsDir);
  session.change([&](const OperationContext&) { engine.setToolProjectPath(key, options.folder); });
  return showTool(
      session, key,
      fmt::format("looks for a project's skills in {}", inQuotes(toolInfo(engine, key).projectRelativeSkillsDir)));
}

ExitStatus add(Session& session, const AddOptions& options) {
  CustomToolDefinition definition{options.key, options.name, storedFolder(options.folder), std::nullopt,
                                  parseToolCategory(options.category).value_or(ToolCategory::coding)};
  if (!options.projectFolder.empty()) definition.projectRelativeSkillsDir = options.projectFolder;
  session.change([&](const OperationContext&) { session.engine().saveCustomTool(definition); });
  return showTool(session, options.key, fmt::format("is known as {}", inQuotes(options.key)));
}

ExitStatus remove(Session& session, const RemoveOptions& options) {
  const std::string key = agentNamed(session.engine(), options.agent);
  const std::size_t forgotten =
      session.change([&](const OperationContext&) { return session.engine().removeCustomTool(key); });
  if (session.json()) {
    writeJson(session.out().stream(), {{"removed", key}, {"forgottenDeployments", forgotten}});
    return ExitStatus::done;
  }
  session.out().line(fmt::format("{} is forgotten.", inQuotes(key)));
  if (forgotten > 0) {
    session.out().line(
        fmt::format("{} to it forgotten too; the folders stay where they are.", counted(forgotten, "deployment")));
  }
  return ExitStatus::done;
}

void setUpPath(CommandLine& line, PathOptions& options, const std::string& about) {
  agentArgument(line, options.agent);
  auto& folder = line.argument("DIR", options.folder, about, Completes::files);
  line.flag("--reset", options.reset, "Go back to the agent's own folder").excludes(folder);
}

}  // namespace

void setUpAgentPath(CommandLine& line) {
  setUpPath(line, line.runs<PathOptions>(path), "The folder to use from now on");
  line.example("orvanta agent path cursor", "Where its skills are");
  line.example("orvanta agent path cursor ~/my-skills", "Keep them elsewhere");
}

void setUpAgentProjectPath(CommandLine& line) {
  setUpPath(line, line.runs<PathOptions>(projectPath), "The folder, relative to a project's root");
  line.example("orvanta agent project-path cursor .cursor/skills", "Where it looks inside a project");
}

void setUpAgentAdd(CommandLine& line) {
  AddOptions& options = line.runs<AddOptions>(add);
  line.argument("KEY", options.key, "A short name of letters, digits, '_' and '-'").required();
  line.option("--name", options.name, "NAME", "The name to show").required();
  line.option("--dir", options.folder, "DIR", "The folder of its skills", Completes::files).required();
  line.option("--project-dir", options.projectFolder, "DIR", "The folder inside a project");
  std::vector<std::string> categories;
  for (const ToolCategory category : kAllToolCategories) categories.emplace_back(rawValue(category));
  line.option("--category", options.category, "C", "coding (the default) or lobster").oneOf(categories);
  line.example("orvanta agent add helper --name \"My helper\" --dir ~/helper/skills", "Add an agent");
}

void setUpAgentRemove(CommandLine& line) {
  RemoveOptions& options = line.runs<RemoveOptions>(remove);
  agentArgument(line, options.agent);
  line.example("orvanta agent remove helper", "Forget an agent that was added; its folder stays");
}

}  // namespace orvanta::cli
