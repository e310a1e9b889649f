#include "content/SkillComparison.h"

#include <algorithm>
#include <set>

#include <fmt/format.h>

#include "files/FS.h"
#include "files/FileReader.h"
#include "foundations/Text.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kLargestText = std::size_t{16} << 20;
constexpr std::size_t kMostNamed = 5;

std::vector<ContentEntry> entriesOf(const fs::path& folder) {
  return FS::resolvesToDirectory(folder) ? ContentHash::listContentFiles(folder) : std::vector<ContentEntry>{};
}

bool isSame(const ContentEntry& before, const ContentEntry& after) {
  const bool looksSame = before.isSymlink == after.isSymlink && before.isExecutable() == after.isExecutable() &&
                         (before.isSymlink || before.size == after.size);
  return looksSame && ContentHash::hashEntries({before}) == ContentHash::hashEntries({after});
}

// The first lines that hold hidden characters: "U+202E in line 3".
std::vector<std::string> hiddenIn(std::string_view text) {
  std::vector<std::string> places;
  std::size_t line = 1;
  for (bool isFirst = true; !text.empty() && places.size() < kMostNamed; isFirst = false) {
    const Text::Character character = Text::firstCharacter(text);
    const bool isByteOrderMark = isFirst && character.codePoint == 0xFEFF;
    if (character.codePoint == '\n') ++line;
    if (character.valid && Text::isHidden(character.codePoint) && !isByteOrderMark) {
      places.push_back(fmt::format("U+{:04X} in line {}", static_cast<std::uint32_t>(character.codePoint), line));
    }
    text.remove_prefix(character.length);
  }
  return places;
}

void addFindings(const SkillFileChange& change, std::vector<std::string>& findings) {
  const ContentEntry& after = *change.after;
  const std::string name = Text::revealed(change.path);
  if (change.isAdded() && name != change.path) {
    findings.push_back(fmt::format("The name of {} holds characters that are not shown", name));
  }
  if (after.isSymlink) {
    findings.push_back(fmt::format("{} is a link", name));
    return;
  }
  const bool wasExecutable = change.before && !change.before->isSymlink && change.before->isExecutable();
  if (after.isExecutable() && !wasExecutable) {
    findings.push_back(fmt::format("{} is {} executable", name, change.isAdded() ? "new and" : "now"));
  }
  const auto text = FS::readText(after.url, kLargestText);
  if (!text || !Text::isValidUTF8(*text)) return;
  if (const auto places = hiddenIn(*text); !places.empty()) {
    findings.push_back(fmt::format("{} holds characters that nobody sees: {}", name, Text::join(places, ", ")));
  }
}

}  // namespace

std::vector<SkillFileChange> compareSkills(const fs::path& before, const fs::path& after) {
  const auto old = entriesOf(before);
  const auto fresh = entriesOf(after);
  std::vector<SkillFileChange> changes;
  auto left = old.begin();
  auto right = fresh.begin();
  while (left != old.end() || right != fresh.end()) {
    if (right == fresh.end() || (left != old.end() && left->relativePath < right->relativePath)) {
      changes.push_back({.path = left->relativePath, .before = *left, .after = {}});
      ++left;
    } else if (left == old.end() || right->relativePath < left->relativePath) {
      changes.push_back({.path = right->relativePath, .before = {}, .after = *right});
      ++right;
    } else {
      if (!isSame(*left, *right)) changes.push_back({.path = left->relativePath, .before = *left, .after = *right});
      ++left;
      ++right;
    }
  }
  return changes;
}

std::vector<std::string> findingsIn(const std::vector<SkillFileChange>& changes) {
  std::vector<std::string> findings;
  for (const auto& change : changes) {
    if (!change.isRemoved()) addFindings(change, findings);
  }
  return findings;
}

}  // namespace orvanta
