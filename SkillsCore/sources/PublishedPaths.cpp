#include "sources/PublishedPaths.h"

#include <algorithm>
#include <map>
#include <string_view>

#include <fmt/format.h>

#include "content/SkillMetadata.h"
#include "foundations/Text.h"

namespace orvanta {

namespace {

// What every system can open, with room for the folder in front.
constexpr std::size_t kLongest = 1024;
constexpr std::size_t kDeepest = 32;
constexpr std::size_t kShown = 80;

using Flaw = std::optional<std::string>;

// As folders of the library are called, except that files may be hidden ones, and must have nothing in their names that
// separates or addresses anything elsewhere.
bool isSafeName(std::string_view name) {
  if (Text::comparisonKey(name) == ".git" || name.find_first_of("\\:") != std::string_view::npos) return false;
  if (name.starts_with('.')) name.remove_prefix(1);
  return SkillMetadata::isSafeFolderName(name);
}

Flaw flawOf(const std::string& path) {
  const auto names = Text::split(path, '/');
  if (path.starts_with('/')) return "is absolute";
  if (std::find(names.begin(), names.end(), "..") != names.end()) return "leads out of the skill by \"..\"";
  if (path.size() > kLongest || names.size() > kDeepest) return "is too long";
  if (!std::all_of(names.begin(), names.end(), isSafeName)) return "is not a name that a file can have everywhere";
  return std::nullopt;
}

// The files and folders that came so far, by the names under which they would meet.
class Places {
 public:
  Flaw add(const std::string& path) {
    for (auto slash = path.find('/'); slash != std::string::npos; slash = path.find('/', slash + 1)) {
      const Place folder{path.substr(0, slash), true};
      const auto& [spelling, isFolder] = places_.emplace(Text::comparisonKey(folder.spelling), folder).first->second;
      if (!isFolder) return "lies below a file";
      if (spelling != folder.spelling) return "differs from another only in how a folder is spelled";
    }
    const bool isNew = places_.emplace(Text::comparisonKey(path), Place{path, false}).second;
    return isNew ? std::nullopt : Flaw("comes twice, if letter case does not count");
  }

 private:
  struct Place {
    std::string spelling;
    bool isFolder;
  };
  std::map<std::string, Place> places_;
};

}  // namespace

Flaw flawOfPublishedPaths(const std::vector<std::string>& paths) {
  Places places;
  for (const auto& path : paths) {
    Flaw flaw = flawOf(path);
    if (!flaw) flaw = places.add(path);
    if (flaw) return fmt::format("its file '{}' {}", Text::fitToWidth(Text::singleLine(path), kShown), *flaw);
  }
  return std::nullopt;
}

}  // namespace orvanta
