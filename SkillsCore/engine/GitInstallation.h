#pragma once

// Skills from Git repositories. A checkout lives only while it is looked at, and what is in it comes from a stranger:
// nothing outside of it is read, and links that lead out of a skill are left behind.

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "engine/Installation.h"
#include "engine/Reports.h"
#include "foundations/Operation.h"
#include "sources/GitClient.h"

namespace orvanta {

class GitInstallation {
 public:
  GitInstallation(GitSettings settings, const std::string& url)
      : settings_(std::move(settings)), source_(GitSource::parse(url)) {}

  // Compares with the library's `skills`. Throws `invalidInput`, `git` or `notFound`.
  GitPreview preview(const std::vector<SkillRecord>& skills, const OperationContext& context) const;

  // The chosen skills while their checkout lasts.
  struct Found {
    std::vector<InstallRequest> requests;
    std::vector<std::string> errors;  // about what was chosen and is no skill
  };
  // Hands them to `body`. Throws as `preview`, as `body`, and `invalidInput` for one name for several skills.
  void withSkills(const GitChoice& choice, const OperationContext& context,
                  const std::function<void(Found)>& body) const;

 private:
  struct Checkout {
    std::filesystem::path folder;
    std::filesystem::path root;  // the part of it that was asked for
    std::string revision;
  };

  template <typename Body>
  auto within(const OperationContext& context, Body body) const;
  std::vector<std::filesystem::path> chosen(const Checkout& checkout, const GitChoice& choice,
                                            std::vector<std::string>& errors) const;
  [[nodiscard]] std::filesystem::path listedSkill(const Checkout& checkout, const std::string& skillId) const;
  [[nodiscard]] InstallRequest request(const Checkout& checkout, const std::filesystem::path& folder,
                                       const std::optional<std::string>& name) const;

  GitSettings settings_;
  ParsedGitSource source_;
};

}  // namespace orvanta
