#include <algorithm>
#include <set>

#include <fmt/format.h>

#include "cli/Choice.h"
#include "cli/CommandLine.h"
#include "cli/Format.h"
#include "cli/Names.h"
#include "cli/Output.h"
#include "cli/Plans.h"
#include "cli/UsageError.h"
#include "cli/commands/Common.h"
#include "cli/commands/GitRepositories.h"
#include "cli/commands/InstallResult.h"
#include "cli/commands/InstallSource.h"
#include "cli/commands/PlazzaSource.h"
#include "cli/commands/SiteSource.h"
#include "files/FS.h"
#include "foundations/SkillsError.h"
#include "foundations/Text.h"

namespace orvanta::cli {

namespace {

namespace fs = std::filesystem;

constexpr std::int64_t kDeepest = 32;

struct Options {
  std::vector<std::string> sources;
  std::string name;
  std::int64_t depth = 4;
  std::vector<std::string> paths;
  bool all = false;
  std::vector<std::string> agents;
  std::string preset;
  bool dryRun = false;

  [[nodiscard]] std::optional<std::string> givenName() const {
    return name.empty() ? std::nullopt : std::make_optional(name);
  }
};

// A folder named on the command line and the skill folders at and below it.
struct Parent {
  fs::path folder;
  std::vector<fs::path> skills;
};

struct Sources {
  std::vector<fs::path> folders;  // those of skills
  std::vector<InstallSource> others;

  [[nodiscard]] std::size_t count() const { return folders.size() + others.size(); }
};

bool looksLikeArchive(const fs::path& path) {
  const std::string extension = Text::lowercase(path.extension().string());
  return extension == ".zip" || extension == ".skill";
}

[[noreturn]] void throwNoSource(const std::string& source) {
  if (FS::exists(source)) {
    throw SkillsError::invalidInput(
        fmt::format("{} is neither a folder nor a .zip or .skill archive, so there is nothing to install from it.",
                    inQuotes(source)));
  }
  throw SkillsError::notFound(
      fmt::format("{} does not exist, and is no address of a Git repository (https://…, ssh://…, git@… or OWNER/REPO).",
                  inQuotes(source)));
}

std::string below(const fs::path& skill, const fs::path& folder) {
  const std::string relative = skill.lexically_relative(folder).string();
  return relative.empty() ? skill.string() : relative;
}

// The skills named with --path; each must be there.
std::vector<fs::path> namedSkills(const Parent& parent, const std::vector<std::string>& paths) {
  std::vector<fs::path> named;
  for (const std::string& path : paths) {
    const fs::path wanted = standardized(parent.folder / path);
    if (std::find(parent.skills.begin(), parent.skills.end(), wanted) == parent.skills.end()) {
      std::vector<std::string> names;
      for (const fs::path& skill : parent.skills) names.push_back(below(skill, parent.folder));
      const std::string near = nearestName(path, names);
      throw SkillsError::notFound(fmt::format("There is no skill at {} below {}.{}", inQuotes(path),
                                              inQuotes(parent.folder.string()),
                                              near.empty() ? "" : fmt::format(" Did you mean {}?", inQuotes(near))));
    }
    named.push_back(wanted);
  }
  return named;
}

std::vector<fs::path> chosenSkills(const Session& session, const Parent& parent, const Options& options) {
  if (!options.paths.empty()) return namedSkills(parent, options.paths);
  if (parent.skills.size() == 1 || options.all) return parent.skills;
  std::vector<std::string> items;
  for (const fs::path& skill : parent.skills) items.push_back(below(skill, parent.folder));
  std::vector<fs::path> chosen;
  for (const std::size_t position : chooseSome(session, inQuotes(parent.folder.string()), items)) {
    chosen.push_back(parent.skills[position]);
  }
  return chosen;
}

Parent parentAt(SkillsEngine& engine, const std::string& source, int depth) {
  Parent parent{standardized(source), {}};
  parent.skills = engine.findSkills(parent.folder, depth);
  for (fs::path& skill : parent.skills) skill = standardized(skill);
  std::sort(parent.skills.begin(), parent.skills.end());
  if (parent.skills.empty()) {
    throw SkillsError::notFound(fmt::format(
        "There is no skill in {}: neither it nor a folder up to {} levels below it holds a SKILL.md. --depth N looks "
        "deeper.",
        inQuotes(source), depth));
  }
  return parent;
}

InstallSource archiveAt(SkillsEngine& engine, const fs::path& archive, const std::optional<std::string>& name) {
  return {.plan = [=, &engine](const auto& context) { return engine.planInstallArchive(archive, name, context); },
          .install =
              [=, &engine](const auto& context) {
                try {
                  return InstallReport{.installed = {engine.installArchive(archive, name, context)}};
                } catch (const SkillsError& error) {
                  throw SkillsError(error.kind(), fmt::format("{}: {}", archive.filename().string(), error.message()));
                }
              }};
}

Sources sourcesOf(Session& session, const Options& options) {
  Sources sources;
  std::set<fs::path> taken;
  const SourceChoice choice{.paths = options.paths, .all = options.all, .name = options.givenName()};
  bool hasChoice = false;
  for (const std::string& source : options.sources) {
    if (FS::resolvesToDirectory(source)) {
      hasChoice = true;
      const Parent parent = parentAt(session.engine(), source, static_cast<int>(options.depth));
      for (const fs::path& skill : chosenSkills(session, parent, options)) {
        if (taken.insert(skill).second) sources.folders.push_back(skill);
      }
    } else if (FS::resolvesToFile(source) && looksLikeArchive(source)) {
      sources.others.push_back(archiveAt(session.engine(), standardized(source), choice.name));
    } else if (!FS::exists(source) && namesListedSkill(source)) {
      sources.others.push_back(listedSkill(session.engine(), source, choice.name));
    } else if (!FS::exists(source) && looksLikeSite(source)) {
      hasChoice = true;
      sources.others.push_back(siteNamed(session, source, choice));
    } else if (!FS::exists(source) && looksLikeRepository(source)) {
      hasChoice = true;
      sources.others.push_back(repositoryNamed(session, source, choice));
    } else {
      throwNoSource(source);
    }
  }
  if (!options.paths.empty() && !hasChoice) {
    throw UsageError(
        "--path chooses among the skills of a folder, repository or site; an archive or a listed skill is only one.");
  }
  if (choice.name && sources.count() != 1) {
    throw UsageError("--name names one skill, and there are several. Install them without it, or one at a time.");
  }
  return sources;
}

Plan planOf(Session& session, const Sources& sources, const Options& options) {
  SkillsEngine& engine = session.engine();
  Plan plan = sources.folders.empty() ? Plan{} : engine.planInstall(sources.folders, options.givenName());
  for (const InstallSource& source : sources.others) {
    const Plan steps = session.change(source.plan);
    plan.insert(plan.end(), steps.begin(), steps.end());
  }
  return plan;
}

void add(const InstallSource& source, const OperationContext& context, InstallReport& report) {
  try {
    const InstallReport more = source.install(context);
    report.installed.insert(report.installed.end(), more.installed.begin(), more.installed.end());
    report.errors.insert(report.errors.end(), more.errors.begin(), more.errors.end());
    report.interrupted = report.interrupted || more.interrupted;
  } catch (const SkillsError& error) {
    if (context.stop.stop_requested()) {
      report.interrupted = true;
    } else {
      report.errors.push_back(error.message());
    }
  }
}

InstallReport install(SkillsEngine& engine, const Sources& sources, const Options& options,
                      const OperationContext& context) {
  InstallReport report;
  std::set<std::string> held;
  for (const SkillRecord& record : engine.skills()) held.insert(record.id);
  if (options.givenName() && !sources.folders.empty()) {
    report.installed.push_back(engine.installLocal(sources.folders.front(), options.givenName()));
  } else if (!sources.folders.empty()) {
    report = engine.installFolders(sources.folders, context);
  }
  for (const InstallSource& source : sources.others) {
    report.interrupted = report.interrupted || context.stop.stop_requested();
    if (!report.interrupted) add(source, context, report);
  }
  report.reusedIds.clear();
  for (const SkillSummary& summary : report.installed) {
    if (held.count(summary.record.id) > 0) report.reusedIds.push_back(summary.record.id);
  }
  return report;
}

ExitStatus run(Session& session, const Options& options) {
  SkillsEngine& engine = session.engine();
  Destinations destinations{agentsNamed(engine, options.agents)};
  if (!options.preset.empty()) destinations.preset = presetNamed(engine, options.preset);
  const Sources sources = sourcesOf(session, options);
  if (options.dryRun) {
    if (!destinations.agents.empty()) {
      session.note("Deployment is checked when the skills are installed, so it is not shown here.");
    }
    return showPlan(session, planOf(session, sources, options));
  }
  return session.change([&](const OperationContext& context) {
    return showInstalled(session, install(engine, sources, options, context), destinations, context);
  });
}

}  // namespace

void setUpInstall(CommandLine& line) {
  Options& options = line.runs<Options>(run);
  line.argument("SOURCE", options.sources,
                "A skill's folder, a folder with skills below it, a .zip or .skill archive, a Git repository, "
                "plazza:OWNER/REPO/SKILL, or well-known:DOMAIN[/SKILL]",
                Completes::files)
      .required();
  line.option("--name", options.name, "NAME", "Call the skill so instead of by its own name");
  line.option("--depth", options.depth, "N", "Look for skills this many levels below a folder (4)")
      .between(0, kDeepest);
  auto& paths = line.option(
      "--path", options.paths, "REL",
      "Only the skills at these paths below the folder or in the repository, or of these names on the site");
  line.flag("--all", options.all, "All skills below the folder, in the repository or on the site").excludes(paths);
  agentsOption(line, "--to", options.agents, "Deploy what was installed to these agents");
  line.option("--preset", options.preset, "PRESET", "Add what was installed to this preset", Completes::presets);
  line.dryRunFlag(options.dryRun);
  line.example("orvanta install ~/skills/pdf --to cursor", "Install one skill and deploy it");
  line.example("orvanta install ~/skills --all", "Install every skill below a folder");
  line.example("orvanta install OWNER/REPO --path skills/pdf", "Install one skill of a repository on GitHub");
  line.example("orvanta install plazza:OWNER/REPO/SKILL", "Install a skill that `orvanta search` found");
  line.example("orvanta install well-known:example.com/pdf", "Install a skill that a web site publishes");
  line.explain(
      "The originals stay where they are. A folder with several skills offers them to choose from; where no one can be "
      "asked, --all or --path says which. A skill that the library holds already with the same content is not copied "
      "again.");
}

}  // namespace orvanta::cli
