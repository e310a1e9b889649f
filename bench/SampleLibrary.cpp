#include "bench/SampleLibrary.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <random>
#include <string_view>
#include <vector>

#include <fmt/format.h>

#include "files/FS.h"
#include "foundations/SkillsError.h"

namespace orvanta::bench {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kKiB = 1024;
constexpr std::size_t kLargest = 1024 * kKiB;

constexpr std::array<std::string_view, 24> kWords{
    "review", "the", "report",  "before", "each",   "release", "and",   "compare", "tables", "with",  "charts", "then",
    "write",  "a",   "summary", "of",     "errors", "in",      "plain", "words",   "for",    "every", "reader", "when"};
constexpr std::array<std::string_view, 4> kFolders{"", "references/", "scripts/", "assets/templates/"};
constexpr std::array<std::string_view, 5> kExtensions{".md", ".txt", ".json", ".py", ".sh"};

// Chances that are the same everywhere: the standard fixes what its engines give, but not what its distributions make
// of it.
class Dice {
 public:
  explicit Dice(std::uint64_t seed) : engine_(seed) {}

  std::size_t below(std::size_t end) { return engine_() % end; }
  double fraction() { return static_cast<double>(engine_() >> 11U) * 0x1p-53; }

  template <typename Choices>
  std::string_view oneOf(const Choices& choices) {
    return choices[below(choices.size())];
  }

  // Log-normal around 4 KiB; one file in a hundred has 100 KiB to 1 MiB.
  std::size_t fileSize() {
    if (below(100) == 0) return static_cast<std::size_t>(100.0 * kKiB * std::pow(10.24, fraction()));
    return std::clamp<std::size_t>(static_cast<std::size_t>(4.0 * kKiB * std::exp(0.9 * normal())), 1, 100 * kKiB);
  }

 private:
  double normal() {
    double sum = -6;
    for (int i = 0; i < 12; ++i) sum += fraction();
    return sum;
  }

  std::mt19937_64 engine_;
};

std::string sentence(Dice& dice, std::size_t words) {
  std::string text;
  for (std::size_t i = 0; i < words; ++i) {
    if (i > 0) text += ' ';
    text += dice.oneOf(kWords);
  }
  return text;
}

// Twice as much as the largest file, so that files are slices that begin at different places.
const std::string& prose() {
  static const std::string text = [] {
    Dice dice(1);
    std::string all;
    while (all.size() < 2 * kLargest) all += sentence(dice, 4 + dice.below(12)) + ".\n";
    return all;
  }();
  return text;
}

std::string_view slice(Dice& dice) { return std::string_view(prose()).substr(dice.below(kLargest), dice.fileSize()); }

void write(const fs::path& file, std::string_view head, std::string_view body, bool executable) {
  FS::createDirectories(file.parent_path());
  std::ofstream stream(file, std::ios::binary);
  stream << head << body;
  stream.close();
  if (!stream) throw SkillsError::io("Cannot write " + file.string());
  if (executable) fs::permissions(file, fs::perms::owner_exec | fs::perms::group_exec, fs::perm_options::add);
}

void makeSkill(const fs::path& folder, std::size_t number) {
  Dice dice(1000 + number);
  const std::string name = folder.filename().string();
  const std::string head = frontMatter(number, name, sentence(dice, 8 + dice.below(24)));
  write(folder / "SKILL.md", head, slice(dice), false);
  const std::size_t others = 1 + dice.below(7);
  for (std::size_t i = 0; i < others; ++i) {
    const std::string_view extension = dice.oneOf(kExtensions);
    const bool script = extension == ".py" || extension == ".sh";
    const std::string file = fmt::format("{}{}-{}{}", dice.oneOf(kFolders), dice.oneOf(kWords), i, extension);
    write(folder / file, fmt::format("{} {}\n", name, i), slice(dice), script && dice.below(2) == 0);
  }
}

void makeProject(const fs::path& folder, Dice& dice) {
  constexpr std::array<std::string_view, 3> kSkillsFolders{".claude/skills", ".cursor/skills", ".agents/skills"};
  makeSampleLibrary(folder / dice.oneOf(kSkillsFolders), 1 + dice.below(5));
}

}  // namespace

std::string frontMatter(std::size_t style, const std::string& name, const std::string& description) {
  switch (style % kFrontMatterStyles) {
    case 0: return fmt::format("---\nname: {}\ndescription: {}\n---\n", name, description);
    case 1: return fmt::format("---\nname: \"{}\"\ndescription: \"{} \\u2014 \\\"now\\\"\"\n---\n", name, description);
    case 2: return fmt::format("---\nname: '{}'\ndescription: 'Don''t: {}'\n---\n", name, description);
    case 3: return fmt::format("---\nname: {0}\ndescription: |\n  {1}\n\n  {1}\n---\n", name, description);
    case 4: return fmt::format("---\nname: {0}\ndescription: >-\n  {1}\n  {1}\n---\n", name, description);
    default:
      return fmt::format(
          "---\n# by hand\nlicense: MIT\nallowed-tools:\n  - Read\n  - Write\nmetadata:\n  version: \"1.2\"\n"
          "name: {}\ndescription: {}\n  and on\n---\n",
          name, description);
  }
}

void makeSampleLibrary(const fs::path& folder, std::size_t skills) {
  for (std::size_t i = 0; i < skills; ++i) makeSkill(folder / fmt::format("skill-{:05}", i), i);
}

void makeSampleHome(const fs::path& folder, std::size_t folders) {
  Dice dice(2);
  std::vector<fs::path> made{folder};
  FS::createDirectories(folder);
  for (std::size_t i = 0; i < made.size(); ++i) {
    const fs::path parent = made[i];
    // Chance must not end the tree early.
    const std::size_t children = i + 1 == made.size() ? 8 : dice.below(9);
    for (std::size_t child = 0; child < children && made.size() < folders; ++child) {
      made.push_back(parent / fmt::format("{}-{}", dice.oneOf(kWords), child));
      FS::createDirectories(made.back());
    }
    for (std::size_t file = dice.below(6); file > 0; --file) {
      write(parent / fmt::format("{}-{}{}", dice.oneOf(kWords), file, dice.oneOf(kExtensions)), "", "", false);
    }
    if (dice.below(200) == 0) makeProject(parent, dice);
  }
}

}  // namespace orvanta::bench
