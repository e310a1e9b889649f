#include <algorithm>

#include <fmt/format.h>

#include "cli/Format.h"
#include "cli/Names.h"
#include "cli/Output.h"
#include "cli/Table.h"
#include "cli/commands/Common.h"
#include "cli/commands/Projects.h"
#include "files/FS.h"
#include "foundations/Text.h"

namespace orvanta::cli {

namespace {

struct ShowOptions {
  std::string project;
};

struct ReorderOptions {
  std::vector<std::string> projects;
};

Cell attentionCell(const ProjectInfo& project) {
  if (!project.exists && project.record.workspaceType == WorkspaceType::linked) return {"no folder yet", Style::faint};
  if (!project.exists) return {"folder is missing", Style::bad};
  const std::int64_t count = project.health.needsAttention();
  if (count == 0) return {"-", Style::faint};
  return {fmt::format("{}", count), Style::warning};
}

std::string healthText(const SyncHealth& health) {
  std::vector<std::string> counts;
  const auto add = [&](std::int64_t count, const char* what) {
    if (count > 0) counts.push_back(fmt::format("{} {}", count, what));
  };
  add(health.projectNewer, "project newer");
  add(health.centerNewer, "library newer");
  add(health.diverged, "diverged");
  add(health.projectOnly, "only here");
  add(health.inSync, "in sync");
  return Text::join(counts, ", ");
}

ExitStatus list(Session& session) {
  const auto projects =
      lookedAt(session, [&](const OperationContext& context) { return session.engine().projects(context); });
  if (session.json()) {
    writeJsonArray(session.out().stream(), projects);
    return ExitStatus::done;
  }
  Table table({{"NAME", true},
               {"ATTENTION", false, true},
               {"SKILLS", false, true},
               {"HEALTH", true},
               {"KIND"},
               {"PATH", true}});
  for (const ProjectInfo& project : projects) {
    table.add({{project.record.name, Style::strong},
               attentionCell(project),
               fmt::format("{}", project.skillCount),
               healthText(project.health),
               std::string(rawValue(project.record.workspaceType)),
               shortPath(project.record.path, session.user())});
  }
  table.write(session.out());
  if (projects.empty()) {
    session.out().line(
        "There is no project. 'orvanta project add DIR' adds one, 'orvanta project scan DIR' looks for some.");
  }
  return ExitStatus::done;
}

Cell stateCell(const ProjectSkill& skill) {
  const std::string more = std::string(skill.enabled ? "" : ", disabled") + (skill.isSymlink ? ", link" : "");
  switch (skill.syncStatus) {
    case ProjectSyncStatus::inSync: return {"in sync" + more, Style::good};
    case ProjectSyncStatus::projectNewer: return {"project newer" + more, Style::warning};
    case ProjectSyncStatus::centerNewer: return {"library newer" + more, Style::warning};
    case ProjectSyncStatus::diverged: return {"diverged" + more, Style::bad};
    case ProjectSyncStatus::projectOnly: return "only here" + more;
  }
  return more;
}

// Folders of disabled skills may lie beside the project's own.
std::string shownPath(const ProjectSkill& skill, const ProjectRecord& project, const UserFolders& user) {
  if (!isInside(skill.path, project.path)) return shortPath(skill.path, user);
  return fsPath(std::filesystem::path(skill.path).lexically_relative(project.path));
}

void suggestNext(const Session& session, const ProjectRecord& project, const std::vector<ProjectSkill>& skills) {
  SyncHealth health;
  for (const ProjectSkill& skill : skills) health.count(skill.syncStatus);
  const std::string name = inQuotes(project.name);
  if (health.projectNewer > 0 && health.centerNewer == 0) {
    session.note(fmt::format("Next: orvanta project push {} PATH   (makes the project's version the library's)", name));
  } else if (health.needsAttention() > 0) {
    session.note(fmt::format(
        "Next: orvanta project pull {} PATH   (push instead makes the project's version the library's)", name));
  } else if (health.projectOnly > 0) {
    session.note(fmt::format("Next: orvanta project import {} PATH   (copies a skill into the library)", name));
  }
}

void saySkillsAreMissing(Session& session, const ProjectRecord& project) {
  const std::string folder = shortPath(project.path, session.user());
  session.out().line(FS::resolvesToDirectory(project.path)
                         ? fmt::format("No agent's folder in {} holds a skill. 'orvanta project export' places some.",
                                       inQuotes(folder))
                         : fmt::format("The folder {} is missing.", inQuotes(folder)));
}

ExitStatus show(Session& session, const ShowOptions& options) {
  SkillsEngine& engine = session.engine();
  const ProjectRecord project = projectNamed(engine, options.project);
  const auto skills =
      lookedAt(session, [&](const OperationContext& context) { return engine.projectSkills(project.id, context); });
  if (session.json()) {
    writeJsonArray(session.out().stream(), skills);
    return ExitStatus::done;
  }
  Table table({{"SKILL", true}, {"AGENT"}, {"STATE"}, {"PATH", true}});
  for (const ProjectSkill& skill : skills) {
    table.add({{skill.name, skill.enabled ? Style::strong : Style::faint},
               skill.agentDisplayName,
               stateCell(skill),
               shownPath(skill, project, session.user())});
  }
  table.write(session.out());
  if (skills.empty()) saySkillsAreMissing(session, project);
  suggestNext(session, project, skills);
  return ExitStatus::done;
}

ExitStatus reorder(Session& session, const ReorderOptions& options) {
  SkillsEngine& engine = session.engine();
  const auto ids = idsWithFirst(projectsNamed(engine, options.projects), engine.projectRecords());
  session.change([&](const OperationContext&) { engine.reorderProjects(ids); });
  return list(session);
}

}  // namespace

void setUpProjectList(CommandLine& line) {
  line.runs(list);
  line.example("orvanta project list", "Every project, and how many of its skills differ from the library's");
  line.explain(
      "A project is a folder whose skills lie in agents' folders such as .claude/skills; a linked one is an agent's "
      "own "
      "folder. ATTENTION counts the skills of which the project and the library hold different versions.");
}

void setUpProjectShow(CommandLine& line) {
  projectArgument(line, line.runs<ShowOptions>(show).project);
  line.example("orvanta project show .", "The skills of the project in the working folder");
  line.explain(
      "A skill is compared with the library's skill of the same name: by content, and where that differs by the time "
      "of "
      "the latest change.");
}

void setUpProjectReorder(CommandLine& line) {
  ReorderOptions& options = line.runs<ReorderOptions>(reorder);
  line.argument("PROJECT", options.projects, "The projects that come first, in this order", Completes::projects)
      .required();
  line.example("orvanta project reorder site api", "List these two before all others");
}

}  // namespace orvanta::cli
