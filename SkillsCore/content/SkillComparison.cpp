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

// What has a use in the scripts and emoji that need it, and is a hiding place after any other character.
bool isMisplaced(char32_t codePoint, char32_t previous) {
  const bool isJoiner = codePoint == 0x200C || codePoint == 0x200D;
  const auto isSelector = [](char32_t each) { return each >= 0xFE00 && each <= 0xFE0F; };
  return (isJoiner && previous < 0x80) || (isSelector(codePoint) && isSelector(previous));
}

bool isUnseen(char32_t codePoint, char32_t previous) {
  if (codePoint == '\n' || codePoint == '\t' || (codePoint == '\r' && previous != '\r')) return false;
  return Text::isControl(codePoint) || Text::isHidden(codePoint) || isMisplaced(codePoint, previous);
}

// The first lines that hold hidden characters: "U+202E in line 3".
std::vector<std::string> hiddenIn(std::string_view text) {
  std::vector<std::string> places;
  std::size_t line = 1;
  if (text.starts_with("\uFEFF")) text.remove_prefix(std::string_view("\uFEFF").size());
  char32_t previous = 0;
  while (!text.empty() && places.size() < kMostNamed) {
    const Text::Character character = Text::firstCharacter(text);
    if (character.codePoint == '\n') ++line;
    if (character.valid && isUnseen(character.codePoint, previous)) {
      places.push_back(fmt::format("U+{:04X} in line {}", static_cast<std::uint32_t>(character.codePoint), line));
    }
    previous = character.codePoint;
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
    std::error_code unreadable;
    findings.push_back(
        fmt::format("{} is a link to {}", name, Text::revealed(fs::read_symlink(after.url, unreadable).string())));
    return;
  }
  const bool wasExecutable = change.before && !change.before->isSymlink && change.before->isExecutable();
  if (after.isExecutable() && !wasExecutable) {
    findings.push_back(fmt::format("{} is {} executable", name, change.isAdded() ? "new and" : "now"));
  }
  const auto text = FS::readText(after.url, kLargestText);
  if (!text || text->find('\0') != std::string::npos) return;
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
