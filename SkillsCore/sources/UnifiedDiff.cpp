#include "sources/UnifiedDiff.h"

#include <optional>

#include "files/FS.h"
#include "files/TemporaryFolder.h"
#include "foundations/SkillsError.h"
#include "foundations/Text.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kLargestFile = std::size_t{1} << 20;
constexpr std::size_t kMostText = std::size_t{8} << 20;
constexpr std::size_t kLargestDiff = std::size_t{1} << 20;

// The text of one side, empty where the file is not there; nothing for what is no text that a person would read.
std::optional<std::string> textOf(const std::optional<ContentEntry>& entry) {
  if (!entry) return "";
  if (entry->isSymlink) return std::nullopt;
  auto text = FS::readText(entry->url, kLargestFile);
  const bool isText = text && text->find('\0') == std::string::npos;
  return isText ? text : std::nullopt;
}

void put(const fs::path& folder, const std::string& path, const std::string& text) {
  FS::createDirectories((folder / path).parent_path());
  FS::writeOver(folder / path, text);
}

}  // namespace

UnifiedDiff unifiedDiff(const std::vector<SkillFileChange>& changes, const GitSettings& settings,
                        const OperationContext& context) {
  const TemporaryFolder folder(settings.temp, "orvanta-diff-");
  FS::createDirectories(folder.path() / "a");
  FS::createDirectories(folder.path() / "b");
  UnifiedDiff diff;
  std::size_t total = 0;
  for (const auto& change : changes) {
    const auto before = textOf(change.before);
    const auto after = textOf(change.after);
    const bool isShown = before && after && total + before->size() + after->size() <= kMostText;
    if (!isShown) {
      diff.omitted.push_back(change.path);
      continue;
    }
    total += before->size() + after->size();
    if (change.before) put(folder.path() / "a", change.path, *before);
    if (change.after) put(folder.path() / "b", change.path, *after);
  }
  // The user's own habits must not bend what is shown.
  const std::vector<std::string> command = {"-c",
                                            "core.quotePath=false",
                                            "diff",
                                            "-O/dev/null",
                                            "--no-index",
                                            "--no-color",
                                            "--unified=3",
                                            "--diff-algorithm=myers",
                                            "--ws-error-highlight=none",
                                            "--no-ext-diff",
                                            "--no-textconv",
                                            "--no-renames",
                                            "--no-prefix",
                                            "--text",
                                            "--",
                                            "a",
                                            "b"};
  const auto result = GitClient(settings).run(command, {.cwd = folder.path()}, context);
  constexpr int kDiffers = 1;
  const bool isWhole = !result.stopped && !result.timedOut && (result.exitCode == 0 || result.exitCode == kDiffers);
  if (!isWhole) throw SkillsError::git("git diff failed: " + result.failureText());
  diff.text = Text::prefixBytes(result.standardOutput, kLargestDiff);
  diff.isCut = diff.text.size() < result.standardOutput.size();
  return diff;
}

}  // namespace orvanta
