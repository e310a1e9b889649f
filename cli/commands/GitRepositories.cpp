#include "cli/commands/GitRepositories.h"

#include <fmt/format.h>

#include "cli/Choice.h"
#include "cli/Format.h"
#include "cli/UsageError.h"
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

}  // namespace

bool looksLikeRepository(const std::string& word) {
  try {
    GitSource::validate(word);
    return true;
  } catch (const SkillsError&) {
    return false;
  }
}

Repository repositoryNamed(Session& session, const std::string& url, const std::vector<std::string>& paths, bool all) {
  if (isShorthand(url)) {
    session.note(
        fmt::format("There is no file {} here, so the repository of that name on GitHub is meant.", inQuotes(url)));
  }
  Repository repository{url, {}};
  if (!paths.empty()) repository.choice.relativePaths = paths;
  if (!paths.empty() || all) return repository;
  const GitPreview preview =
      lookedAt(session, [&](const OperationContext& context) { return session.engine().previewGit(url, context); });
  if (preview.skills.size() < 2) return repository;
  const std::string found = fmt::format("{} holds {} skills.", inQuotes(preview.originalURL), preview.skills.size());
  if (!session.canAsk() || session.json()) {
    throw UsageError(found + " Install all of them with --all, or those at --path REL….");
  }
  session.err().line(found);
  std::vector<std::string> items;
  for (const GitPreviewSkill& skill : preview.skills) items.push_back(Text::singleLine(itemFor(skill)));
  repository.choice.relativePaths.emplace();
  for (const std::size_t position : choose(session, items, "Install which?")) {
    repository.choice.relativePaths->push_back(preview.skills[position].relativePath);
  }
  return repository;
}

}  // namespace orvanta::cli
