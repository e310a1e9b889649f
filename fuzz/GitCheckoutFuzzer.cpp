// Checkouts that a stranger filled: the skills that are found lie in the checkout, and no link that stays leads out.
// Each line of the input is made into something in the checkout: "d" and "f" with a path, "l" with a path, a tab and
// where the link leads.

#include <algorithm>
#include <string>

#include "files/FS.h"
#include "foundations/Text.h"
#include "fuzz/Fuzzing.h"
#include "sources/GitSource.h"

namespace {

using namespace orvanta;  // NOLINT(google-build-using-namespace)
using fuzzing::require;

namespace fs = std::filesystem;

bool lies(const fs::path& path, const fs::path& folder) {
  return (fs::weakly_canonical(path).string() + "/").starts_with(folder.string() + "/");
}

// As git would: never through a link.
void make(const fs::path& checkout, std::string_view line) {
  const auto tab = std::min(line.find('\t'), line.size());
  const auto path = line.substr(1, std::max<std::size_t>(tab, 1) - 1);
  const fs::path relative(path);
  constexpr std::size_t longest = 200;
  if (path.empty() || path.size() > longest || path.find('\0') != std::string_view::npos) return;
  if (relative.is_absolute() || std::find(relative.begin(), relative.end(), "..") != relative.end()) return;
  const auto place = (checkout / relative).lexically_normal();
  std::error_code error;
  for (auto above = place.parent_path(); above != checkout; above = above.parent_path()) {
    if (FS::kind(above) == FS::Kind::symlink) return;
  }
  fs::create_directories(line.front() == 'd' ? place : place.parent_path(), error);
  if (error || FS::exists(place)) return;
  const auto content = line.substr(std::min(tab + 1, line.size()));
  if (line.front() == 'f') fuzzing::writeFile(place, "---\nname: " + std::string(content) + "\n---\n");
  if (line.front() == 'l') fs::create_symlink(fs::path(content), place, error);
}

// In the checkout, which nothing has been removed from yet.
void checkFound(const fs::path& checkout, const std::string& skillId) {
  const auto folders = GitSource::list(checkout, checkout);
  require(std::is_sorted(folders.begin(), folders.end()));
  require(std::adjacent_find(folders.begin(), folders.end()) == folders.end());
  for (const auto& folder : folders) require(lies(folder, checkout) && GitSource::isSkillFolder(checkout, folder));
  for (const auto find : {GitSource::findSkillDir, GitSource::findListedSkill}) {
    fuzzing::allowing(SkillsError::Kind::notFound, [&] { require(lies(find(checkout, skillId), checkout)); });
  }
}

void checkLinks(const fs::path& checkout) {
  GitSource::removeOutwardLinks(checkout);
  require(GitSource::linksLeadingOut(checkout).empty());
  for (fs::recursive_directory_iterator entry(checkout); entry != fs::end(entry); ++entry) {
    if (entry->path().filename() == ".git") {
      entry.disable_recursion_pending();
    } else if (entry->is_symlink()) {
      require(lies(entry->path(), checkout));
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const auto root = fs::canonical(fuzzing::scratchFolder());
  const auto outside = root / "outside" / "SKILL.md";
  fs::create_directories(outside.parent_path());
  fuzzing::writeFile(outside, "---\nname: a\n---\n");
  const auto checkout = root / "checkout";
  FS::removeAny(checkout);
  fs::create_directory(checkout);

  const auto lines = Text::split(fuzzing::textOf(data, size), '\n');
  constexpr std::size_t most = 30;
  for (std::size_t at = 1; at < std::min(lines.size(), most); ++at) {
    if (lines[at].size() > 1) make(checkout, lines[at]);
  }
  checkFound(checkout, std::string(lines.front()));
  checkLinks(checkout);
  require(FS::exists(outside));
  return 0;
}
