#include "sources/GitSource.h"

#include <algorithm>
#include <array>
#include <initializer_list>
#include <limits>

#include <fmt/core.h>

#include "content/Scanner.h"
#include "content/SkillMetadata.h"
#include "files/FS.h"
#include "files/FileReader.h"
#include "files/Paths.h"
#include "files/TreeWalk.h"
#include "foundations/SkillsError.h"
#include "foundations/Text.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

constexpr auto npos = std::string_view::npos;

template <std::size_t count>
bool startsWithAny(std::string_view text, const std::array<std::string_view, count>& prefixes) {
  return std::any_of(prefixes.begin(), prefixes.end(), [&](auto prefix) { return text.starts_with(prefix); });
}

bool isDrivePath(std::string_view text) {
  return text.size() >= 2 && text[0] >= 'a' && text[0] <= 'z' && text[1] == ':';
}

// These two take texts in lower case.
bool isAddress(std::string_view text) {
  constexpr std::array<std::string_view, 4> kBeginnings{"https://", "http://", "ssh://", "git@"};
  return startsWithAny(text, kBeginnings);
}

bool isShorthand(std::string_view text) {
  constexpr std::array<std::string_view, 3> kLocalBeginnings{"/", ".", "~"};
  if (text.find("://") != npos || text.find('\\') != npos || startsWithAny(text, kLocalBeginnings)) return false;
  const bool isPlain = std::none_of(text.begin(), text.end(), [](char c) { return (c >= 0 && c <= ' ') || c == '@'; });
  return isPlain && text.find('/') != npos && text.find(':') == npos && !isDrivePath(text);
}

// Git would not say what is wrong with these, or say it with the password.
void checkAddress(std::string_view address) {
  const bool isPlain = std::none_of(address.begin(), address.end(), [](char c) { return c >= 0 && c <= ' '; });
  const auto scheme = address.find("://");
  const auto rest = scheme == npos ? address : address.substr(scheme + 3);
  const auto site = rest.substr(0, rest.find('/'));
  if (!isPlain || site.empty() || site.ends_with('@')) {
    throw SkillsError::invalidInput(
        "The address of the repository is malformed: write scheme://host/path, without blanks");
  }
  const auto user = site.substr(0, site.rfind('@') == npos ? 0 : site.rfind('@'));
  if (!address.starts_with("http") && user.find(':') != npos) {
    throw SkillsError::invalidInput(
        "The address of the repository holds a password, which ssh does not use; leave it out, and use a key");
  }
}

std::string githubRepository(std::string_view ownerAndName) {
  return fmt::format("https://{}/{}.git", GitSource::githubHost, ownerAndName);
}

std::string_view withoutSuffix(std::string_view text, std::string_view suffix) {
  if (text.ends_with(suffix)) text.remove_suffix(suffix.size());
  return text;
}

std::optional<std::string> nonEmpty(std::string_view text) {
  return text.empty() ? std::nullopt : std::optional<std::string>(text);
}

// Takes the text up to the next slash, and the slash.
std::string_view takeWord(std::string_view& text) {
  const auto end = std::min(text.find('/'), text.size());
  const auto word = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return word;
}

// What a link into a tree on GitHub says; nothing for any other address.
std::optional<ParsedGitSource> parseTreeLink(std::string_view url) {
  const auto site = fmt::format("https://{}/", GitSource::githubHost);
  if (!url.starts_with(site) || url.find_first_of("\r\n") != npos) return std::nullopt;
  auto rest = url.substr(site.size());
  const auto owner = takeWord(rest);
  const auto repository = takeWord(rest);
  const auto tree = takeWord(rest);
  if (owner.empty() || repository.empty() || tree != "tree" || rest.empty()) return std::nullopt;

  const auto name = repository == ".git" ? repository : withoutSuffix(repository, ".git");
  ParsedGitSource source;
  source.originalURL = url;
  source.cloneURL = githubRepository(fmt::format("{}/{}", owner, name));
  source.branch = nonEmpty(takeWord(rest));
  while (rest.ends_with('/')) rest.remove_suffix(1);
  source.subpath = nonEmpty(rest);
  return source;
}

std::optional<fs::path> atUsualPlace(const fs::path& checkout, std::initializer_list<std::string_view> places,
                                     const std::string& skillId) {
  if (skillId.empty()) return std::nullopt;
  for (const auto place : places) {
    const auto subpath = fmt::format("{}{}", place, skillId);
    const auto folder = checkout / subpath;
    if (GitSource::isSafeSubpath(checkout, subpath) && GitSource::isSkillFolder(checkout, folder)) return folder;
  }
  return std::nullopt;
}

// Whether a link with this text never leaves the folder above it on its way, whatever that is called.
bool staysBelow(const fs::path& link, const fs::path& text) {
  if (text.is_absolute()) return false;
  int depth = static_cast<int>(std::distance(link.begin(), link.end())) - 1;
  for (const auto& word : text) {
    if (word == "..") --depth;
    if (depth < 0) return false;
    if (word != ".." && word != "." && !word.empty()) ++depth;
  }
  return true;
}

template <typename Each>
void forEachLink(const fs::path& folder, Each each) {
  const UniqueFd fd = openFolder(folder);
  for (const auto& entry : listTree(fd.get(), folder, [](std::string_view name) { return name == ".git"; })) {
    if (entry.kind == TreeEntry::Kind::symlink) each(entry, fd.get());
  }
}

bool isNamed(const fs::path& folder, const std::string& name) { return folder.filename() == name; }

bool callsItself(const fs::path& folder, const std::string& name) {
  return SkillMetadata::parseSkillMd(folder).name == name;
}

}  // namespace

std::string ParsedGitSource::shortName() const {
  auto canonical = GitSource::masked(GitSource::canonicalize(cloneURL));
  const auto host = fmt::format("{}/", GitSource::githubHost);
  if (const auto found = canonical.find(host); found != npos) return canonical.substr(found + host.size());
  if (canonical.starts_with("git@")) return canonical.substr(std::min(canonical.find(':') + 1, canonical.size()));
  return canonical;
}

namespace GitSource {

void validate(std::string_view text) {
  const auto source = Text::lowercase(Text::trim(text));
  if (isAddress(source)) return checkAddress(source);
  if (isShorthand(source)) return;
  throw SkillsError::invalidInput("URL scheme not allowed: only https, http, ssh, and git@ are permitted");
}

ParsedGitSource parse(std::string_view text) {
  const auto original = Text::trim(text);
  if (auto source = parseTreeLink(original)) return *source;
  ParsedGitSource source;
  source.originalURL = original;
  const auto lower = Text::lowercase(original);
  source.cloneURL = !isAddress(lower) && isShorthand(lower) ? githubRepository(canonicalize(original)) : original;
  return source;
}

std::string canonicalize(std::string_view text) {
  text = Text::trim(text);
  while (text.ends_with('/')) text.remove_suffix(1);
  return std::string(withoutSuffix(text, ".git"));
}

std::string masked(std::string_view address) {
  const auto scheme = address.find("://");
  if (scheme == npos) return std::string(address);
  const auto begin = scheme + 3;
  const auto end = std::min(address.find_first_of("/?#", begin), address.size());
  const auto at = address.substr(begin, end - begin).rfind('@');
  if (at == npos) return Text::maskCredentials(address);
  return fmt::format("{}***{}", address.substr(0, begin), Text::maskCredentials(address.substr(begin + at)));
}

std::string withoutCredentials(std::string_view text) {
  constexpr std::string_view kMask = "***@";
  const auto lower = Text::lowercase(text);
  if (!lower.starts_with("https://") && !lower.starts_with("http://")) return std::string(text);
  auto address = masked(text);
  const auto mask = address.find(kMask);
  return mask == npos ? address : address.erase(mask, kMask.size());
}

bool isSafeSubpath(const fs::path& checkout, std::string_view subpath) {
  if (subpath.empty() || subpath.find('\0') != npos) return false;
  const fs::path relative(subpath);
  if (relative.is_absolute() || std::find(relative.begin(), relative.end(), "..") != relative.end()) return false;
  return FS::resolvesInside(checkout / relative, checkout);
}

bool isSkillFolder(const fs::path& checkout, const fs::path& folder) { return FS::isSkillDirInside(folder, checkout); }

std::vector<fs::path> list(const fs::path& checkout, const fs::path& root) {
  auto found = FS::findSkillDirs(root, std::numeric_limits<int>::max(), {".git"}, checkout);
  const auto realRoot = FS::resolved(root);
  for (auto& folder : found) {
    const auto real = FS::resolved(folder);
    if (isInside(real, realRoot)) folder = standardized(root / real.lexically_relative(realRoot));
  }
  std::sort(found.begin(), found.end());
  return found;
}

void removeOutwardLinks(const fs::path& folder) {
  const auto outward = linksLeadingOut(folder);
  forEachLink(folder, [&](const TreeEntry& entry, int) {
    const fs::path link = folder / entry.relativePath;
    // What leads nowhere here may lead to something of the user's from the place that the skill gets.
    const bool leadsSomewhere = FS::resolvesToFile(link) || FS::resolvesToDirectory(link);
    const bool isOutward = std::find(outward.begin(), outward.end(), entry.relativePath) != outward.end();
    if (!leadsSomewhere || isOutward) FS::removeSymlink(link);
  });
}

std::vector<std::string> linksLeadingOut(const fs::path& folder) {
  std::vector<std::string> links;
  forEachLink(folder, [&](const TreeEntry& entry, int fd) {
    const bool staysInside = staysBelow(entry.relativePath, readLinkText(fd, entry.relativePath, folder)) &&
                             FS::resolvesInside(folder / entry.relativePath, folder);
    if (!staysInside) links.push_back(entry.relativePath);
  });
  return links;
}

fs::path findSkillDir(const fs::path& checkout, const std::string& skillId) {
  if (isSkillFolder(checkout, checkout)) return checkout;
  if (const auto usual = atUsualPlace(checkout, {"skills/", "skill/", ".agents/skills/"}, skillId)) return *usual;
  const auto folders = list(checkout, checkout);
  for (const auto& matches : {isNamed, callsItself}) {
    const auto found = std::find_if(folders.begin(), folders.end(), [&](const auto& f) { return matches(f, skillId); });
    if (found != folders.end()) return *found;
  }
  throw SkillsError::notFound(fmt::format("Skill '{}' not found in {}", skillId, checkout.string()));
}

fs::path findListedSkill(const fs::path& checkout, const std::string& skillId) {
  const auto usual = atUsualPlace(checkout, {"skills/", "skill/"}, skillId);
  return usual ? *usual : findSkillDir(checkout, skillId);
}

}  // namespace GitSource
}  // namespace orvanta
