#include "cli/commands/GitRepositories.h"

#include <fmt/format.h>

#include "cli/Choice.h"
#include "cli/Format.h"
#include "cli/commands/Common.h"
#include "foundations/SkillsError.h"
#include "foundations/Text.h"
#include "sources/GitSource.h"

namespace orvanta::cli {

namespace {

std::string itemFor(const GitPreviewSkill& skill) {
  return fmt::format("{}  ({}){}", skill.name, skill.relativePath, skill.alreadyInstalled ? "  installed" : "");
}

// "OWNER/REPO", which may also be a mistyped path.
bool isShorthand(const std::string& url) {
  return url.find("://") == std::string::npos && GitSource::parse(url).cloneURL.find("://") != std::string::npos;
}

// Those at the paths that were given, or that the user picks; none: all.
std::optional<std::vector<std::string>> chosenPaths(Session& session, const std::string& url,
                                                    const SourceChoice& choice) {
  if (!choice.paths.empty()) return choice.paths;
  if (choice.all) return std::nullopt;
  const GitPreview preview =
      lookedAt(session, [&](const OperationContext& context) { return session.engine().previewGit(url, context); });
  if (preview.skills.size() < 2) return std::nullopt;
  std::vector<std::string> items;
  for (const GitPreviewSkill& skill : preview.skills) items.push_back(Text::singleLine(itemFor(skill)));
  std::vector<std::string> paths;
  for (const std::size_t position : chooseSome(session, inQuotes(preview.originalURL), items)) {
    paths.push_back(preview.skills[position].relativePath);
  }
  return paths;
}

}  // namespace

bool looksLikeRepository(const std::string& word) {
  try {
    GitSource::validate(word);
    return true;
  } catch (const SkillsError&) {
    return false;
  }
}

InstallSource repositoryNamed(Session& session, const std::string& url, const SourceChoice& choice) {
  if (isShorthand(url)) {
    session.note(
        fmt::format("There is no file {} here, so the repository of that name on GitHub is meant.", inQuotes(url)));
  }
  SkillsEngine& engine = session.engine();
  const GitChoice wanted{.relativePaths = chosenPaths(session, url, choice), .name = choice.name};
  return {.plan = [&engine, url, wanted](const auto& context) { return engine.planInstallGit(url, wanted, context); },
          .install = [&engine, url, wanted](const auto& context) { return engine.installGit(url, wanted, context); }};
}

}  // namespace orvanta::cli
