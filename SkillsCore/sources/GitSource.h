#pragma once

// What a user may type as a Git source, and where skills lie in a checkout of one. Texts may hold any bytes. Whoever
// filled a checkout is not trusted: nothing here looks at, or names, anything that a link in it shows of the rest of
// the disk.

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvanta {

struct ParsedGitSource {
  std::string originalURL;             // as typed, trimmed; may hold a password
  std::string cloneURL;                // what git is given; may hold a password
  std::optional<std::string> branch;   // or tag; none: the remote's default
  std::optional<std::string> subpath;  // the folder in the repository that holds the skills; not checked in any way

  // What the repository is called on a screen: "owner/repo" for GitHub's. Never shows credentials.
  [[nodiscard]] std::string shortName() const;

  friend bool operator==(const ParsedGitSource&, const ParsedGitSource&) = default;
};

namespace GitSource {

// Where "owner/repo" is cloned from, and whom the user's GitHub token may be sent to.
inline constexpr std::string_view githubHost = "github.com";

// Throws `invalidInput` unless the text is a URL with the scheme https, http or ssh, an address beginning with "git@",
// or "owner/repo".
void validate(std::string_view text);

// Of a GitHub link into a tree (https://github.com/OWNER/REPO/tree/BRANCH/FOLDER), the first word after "/tree/" is the
// branch. What `validate` refuses is passed on as it is.
[[nodiscard]] ParsedGitSource parse(std::string_view text);

// The form in which two sources are compared: without white space around it, slashes at the end, and ".git".
[[nodiscard]] std::string canonicalize(std::string_view text);

// The address with the user name and password in it hidden, whatever characters they are made of: in other texts, some
// of these would end an address.
[[nodiscard]] std::string masked(std::string_view address);

// The address without the user name and password of an http or https URL: what may be recorded and shown.
[[nodiscard]] std::string withoutCredentials(std::string_view text);

// Whether the text names a place in the checkout, there or not: relative, without "..", and no link in it leads out.
[[nodiscard]] bool isSafeSubpath(const std::filesystem::path& checkout, std::string_view subpath);

// Whether `folder` is a skill folder that lies in the checkout with its SKILL.md, links resolved.
[[nodiscard]] bool isSkillFolder(const std::filesystem::path& checkout, const std::filesystem::path& folder);

// The skill folders at and below `root`, a folder of the checkout, sorted by path. One that links lead to as well is
// listed once, under its own name.
[[nodiscard]] std::vector<std::filesystem::path> list(const std::filesystem::path& checkout,
                                                      const std::filesystem::path& root);

// The links in a skill's folder that lead out of it, wherever it lies, as paths below it.
[[nodiscard]] std::vector<std::string> linksLeadingOut(const std::filesystem::path& folder);

// Removes the links in a skill's folder that lead out of it, or nowhere: what they show elsewhere is not the
// publisher's.
void removeOutwardLinks(const std::filesystem::path& folder);

// The folder of one skill: the checkout itself when it is a skill; else "skills/ID", "skill/ID" or ".agents/skills/ID";
// else the first folder of that name; else the first whose SKILL.md says that name. Throws `notFound`.
[[nodiscard]] std::filesystem::path findSkillDir(const std::filesystem::path& checkout, const std::string& skillId);

// The same for a skill that a directory lists: in a checkout that is a skill itself, one at "skills/ID" or "skill/ID"
// is meant all the same.
[[nodiscard]] std::filesystem::path findListedSkill(const std::filesystem::path& checkout, const std::string& skillId);

}  // namespace GitSource
}  // namespace orvanta
