#include "engine/GitInstallation.h"

#include <algorithm>

#include "content/SkillMetadata.h"
#include "files/FS.h"
#include "files/Paths.h"
#include "foundations/SkillsError.h"
#include "foundations/Text.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

// Below `root`, "." for itself.
std::string pathBelow(const fs::path& root, const fs::path& folder) { return folder.lexically_relative(root).string(); }

// As it is recorded: nothing for the checkout itself.
std::optional<std::string> subpathOf(const fs::path& checkout, const fs::path& folder) {
  const std::string path = pathBelow(checkout, folder);
  return path == "." ? std::nullopt : std::optional(path);
}

bool isFromRepository(const SkillRecord& skill, const std::string& cloneURL) {
  if (!isRemote(skill.sourceType)) return false;
  const std::string recorded = skill.sourceRefResolved.value_or(skill.sourceRef.value_or(""));
  return GitSource::canonicalize(recorded) == GitSource::canonicalize(cloneURL);
}

}  // namespace

template <typename Body>
auto GitInstallation::within(const OperationContext& context, Body body) const {
  const GitClient client(settings_);
  context.report("Cloning " + source_.shortName(), 0, 0);
  return client.withCheckout(source_, context, [&](const fs::path& folder) {
    Checkout checkout{.folder = folder, .root = folder, .revision = client.headRevision(folder, context)};
    if (source_.subpath) {
      checkout.root = standardized(folder / *source_.subpath);
      if (!GitSource::isSafeSubpath(folder, *source_.subpath) || !FS::resolvesToDirectory(checkout.root)) {
        throw SkillsError::notFound("Path '" + *source_.subpath + "' does not exist in the repository");
      }
    }
    return body(checkout);
  });
}

GitPreview GitInstallation::preview(const std::vector<SkillRecord>& skills, const OperationContext& context) const {
  return within(context, [&](const Checkout& checkout) {
    GitPreview preview{.originalURL = GitSource::withoutCredentials(source_.originalURL),
                       .cloneURL = GitSource::withoutCredentials(source_.cloneURL),
                       .branch = source_.branch,
                       .revision = checkout.revision,
                       .skills = {}};
    for (const auto& folder : GitSource::list(checkout.folder, checkout.root)) {
      const SkillMeta meta = SkillMetadata::parseSkillMd(folder);
      const auto subpath = subpathOf(checkout.folder, folder);
      preview.skills.push_back(
          {.relativePath = pathBelow(checkout.root, folder),
           .name = folder == checkout.folder ? meta.name.value_or(source_.shortName())
                                             : SkillMetadata::shownName(meta, folder),
           .description = meta.description,
           .alreadyInstalled = std::any_of(skills.begin(), skills.end(), [&](const SkillRecord& skill) {
             return skill.sourceSubpath == subpath && isFromRepository(skill, preview.cloneURL);
           })});
    }
    return preview;
  });
}

void GitInstallation::withSkills(const GitChoice& choice, const OperationContext& context,
                                 const std::function<void(Found)>& body) const {
  within(context, [&](const Checkout& checkout) {
    Found found;
    for (const auto& folder : chosen(checkout, choice, found.errors)) {
      GitSource::removeOutwardLinks(folder);
      found.requests.push_back(request(checkout, folder, choice.name));
    }
    if (choice.name && found.requests.size() > 1) {
      throw SkillsError::invalidInput("A name is for one skill, and there are " +
                                      std::to_string(found.requests.size()));
    }
    body(std::move(found));
  });
}

std::vector<fs::path> GitInstallation::chosen(const Checkout& checkout, const GitChoice& choice,
                                              std::vector<std::string>& errors) const {
  if (choice.skillId) return {listedSkill(checkout, *choice.skillId)};
  if (!choice.relativePaths) {
    auto all = GitSource::list(checkout.folder, checkout.root);
    if (all.empty()) throw SkillsError::notFound("No SKILL.md found in the repository");
    return all;
  }
  std::vector<fs::path> folders;
  for (const auto& path : *choice.relativePaths) {
    const fs::path folder = standardized(checkout.root / path);
    if (GitSource::isSafeSubpath(checkout.root, path) && GitSource::isSkillFolder(checkout.folder, folder)) {
      folders.push_back(folder);
    } else {
      errors.push_back("'" + path + "' is not a skill directory in the repository");
    }
  }
  return folders;
}

fs::path GitInstallation::listedSkill(const Checkout& checkout, const std::string& skillId) const {
  try {
    return GitSource::findListedSkill(checkout.folder, skillId);
  } catch (const SkillsError& error) {
    if (error.kind() != SkillsError::Kind::notFound) throw;
    // Where the checkout lies means nothing to the user.
    throw SkillsError::notFound("Skill '" + Text::singleLine(skillId) + "' not found in " + source_.shortName() +
                                ": it was renamed or removed there. Look at what the repository holds now");
  }
}

InstallRequest GitInstallation::request(const Checkout& checkout, const fs::path& folder,
                                        const std::optional<std::string>& name) const {
  InstallRequest request{.folder = folder,
                         .name = name,
                         .source = {.type = SourceType::git,
                                    .ref = GitSource::withoutCredentials(source_.originalURL),
                                    .resolved = GitSource::withoutCredentials(source_.cloneURL),
                                    .branch = source_.branch,
                                    .subpath = subpathOf(checkout.folder, folder),
                                    .revision = checkout.revision},
                         .action = "install_git"};
  // A checkout's own folder has a name that means nothing.
  const bool isNameless = !name && folder == checkout.folder && !SkillMetadata::parseSkillMd(folder).name;
  if (isNameless) request.name = fs::path(source_.shortName()).filename().string();
  return request;
}

}  // namespace orvanta
