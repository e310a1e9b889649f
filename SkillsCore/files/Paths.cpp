#include "files/Paths.h"

#include <algorithm>

#include "files/FS.h"
#include "foundations/ForeignJSON.h"
#include "foundations/SkillsError.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

// The saved choices as an object; whatever cannot be read as one counts as empty.
Json readConfig(const fs::path& file) {
  constexpr std::size_t kLargest = 1 << 20;
  const auto text = FS::readText(file, kLargest);
  if (!text) return Json::object();
  Json json = parseForeignJSON(*text);
  return json.is_object() ? json : Json::object();
}

}  // namespace

fs::path standardized(const fs::path& path) {
  const fs::path absolute = path.is_absolute() ? path : fs::current_path() / path;
  return fsPath(absolute.lexically_normal());
}

std::string fsPath(const fs::path& path) {
  std::string text = path.string();
  while (text.size() > 1 && text.back() == '/') text.pop_back();
  return text;
}

std::string comparablePath(const fs::path& path) { return standardized(path).string(); }

bool isInside(const fs::path& path, const fs::path& parent) {
  const fs::path inner = standardized(path);
  const fs::path outer = standardized(parent);
  const auto [end, unused] = std::mismatch(outer.begin(), outer.end(), inner.begin(), inner.end());
  return end == outer.end();
}

std::string expandingTilde(std::string_view text, const fs::path& home) {
  const bool expands = text == "~" || text.substr(0, 2) == "~/";
  return expands ? fsPath(home) + std::string(text.substr(1)) : std::string(text);
}

Paths Paths::resolveDefault(const UserFolders& user, const std::optional<std::string>& orvantaHome) {
  if (orvantaHome && !orvantaHome->empty()) return Paths(expandingTilde(*orvantaHome, user.home));
  const Json config = readConfig(configFile(user));
  const auto chosen = config.find("repo_path");
  if (chosen != config.end() && chosen->is_string() && !chosen->get_ref<const std::string&>().empty()) {
    return Paths(expandingTilde(chosen->get_ref<const std::string&>(), user.home));
  }
  return Paths(defaultBase(user));
}

void Paths::writeRepoPath(const UserFolders& user, const std::optional<fs::path>& base) {
  const fs::path file = configFile(user);
  Json config = readConfig(file);
  if (base) {
    config["repo_path"] = fsPath(*base);
  } else {
    config.erase("repo_path");
  }
  FS::createDirectories(file.parent_path());
  FS::writeAtomically(file, jsonText(config, 2) + "\n");
}

bool Paths::isRelocated(const UserFolders& user) const {
  return comparablePath(base_) != comparablePath(defaultBase(user));
}

void Paths::ensureDirectories() const {
  for (const auto& folder : {skills(), cache(), repoCache(), logs(), bin()}) FS::createDirectories(folder);
}

}  // namespace orvanta
