// How GitBackup gets a repository ready and takes snapshots.

#include <algorithm>
#include <system_error>

#include <fmt/core.h>

#include "files/FS.h"
#include "files/FileReader.h"
#include "files/TemporaryFolder.h"
#include "files/TreeWalk.h"
#include "foundations/Text.h"
#include "sources/GitBackup.h"
#include "sources/GitLeftovers.h"
#include "sources/StagingFolder.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t largestManifest = std::size_t{256} << 20;
constexpr std::string_view repositoryMode = "160000";
constexpr std::string_view ignoreFile = "/.gitignore";

// Flushes at once for all objects that a command makes, and not for each.
const std::vector<std::string> batched = {"-c", "core.fsyncMethod=batch"};

// Attributes in the files, which come from anybody, could name filters and merge drivers of the user's, and change
// bytes. What the repository's own folder says outranks them.
constexpr std::string_view attributes =
    "* -text !eol !crlf !filter !diff !merge -ident !working-tree-encoding !export-ignore !export-subst\n";

// What a change of the library lets wait beside the skills.
constexpr std::string_view neverSaved = "/.orvanta-stage-*\n/.replacing-*\n/.removing-*\n/.updating-*\n";

// Only of a file: what a link leads to is not the repository's.
std::optional<std::string> textOf(const fs::path& file, std::size_t largest) {
  return FS::kind(file) == FS::Kind::file ? FS::readText(file, largest) : std::nullopt;
}

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  for (const auto line : Text::split(text, '\n')) lines.emplace_back(Text::trim(line));
  while (!lines.empty() && lines.back().empty()) lines.pop_back();
  return lines;
}

// The folders below, with what they are called from the root, that hold a repository of their own.
void findNested(const fs::path& root, const fs::path& relative, std::vector<std::string>& found) {
  for (const auto& name : FS::childNames(root / relative)) {
    if (name == ".git") {
      if (!relative.empty()) found.push_back(relative.string());
      continue;
    }
    if (FS::isDirectory(root / relative / name)) findNested(root, relative / name, found);
  }
}

// The folders whose index entry is a repository, in the output of "diff --raw -z": ":MODE MODE ID ID STATUS", then the
// path.
std::vector<std::string> repositoriesIn(std::string_view rawDiff) {
  std::vector<std::string> folders;
  const auto fields = Text::split(rawDiff, '\0');
  for (std::size_t i = 0; i + 1 < fields.size(); i += 2) {
    const auto words = Text::split(fields[i], ' ');
    if (words.size() > 1 && words[1] == repositoryMode) folders.emplace_back(fields[i + 1]);
  }
  return folders;
}

// The folders below others that got an ignore file, in the same output.
std::set<std::string> newlyIgnoringIn(std::string_view rawDiff) {
  std::set<std::string> folders;
  for (const auto field : Text::split(rawDiff, '\0')) {
    if (field.ends_with(ignoreFile)) folders.emplace(field.substr(0, field.size() - ignoreFile.size()));
  }
  return folders;
}

// The path of some file or link below a folder that is not of its repository.
std::optional<std::string> firstFileIn(const fs::path& folder) {
  if (!FS::isDirectory(folder)) return std::nullopt;
  const UniqueFd fd = openFolder(folder);
  const auto entries = listTree(fd.get(), folder, [](std::string_view name) { return name == ".git"; });
  const auto file = std::find_if(entries.begin(), entries.end(),
                                 [](const TreeEntry& entry) { return entry.kind != TreeEntry::Kind::directory; });
  return file == entries.end() ? std::nullopt : std::optional(file->relativePath);
}

// As many words as a command line surely takes.
std::vector<std::vector<std::string>> inParts(const std::vector<std::string>& words) {
  constexpr std::ptrdiff_t atOnce = 500;
  std::vector<std::vector<std::string>> parts;
  for (auto begin = words.begin(); begin != words.end();) {
    const auto end = begin + std::min(atOnce, words.end() - begin);
    parts.emplace_back(begin, end);
    begin = end;
  }
  return parts;
}

// Whether git failed at nothing but folders that hold an empty repository and no file that could be saved.
bool failedAtEmptyOnly(const ProcessResult& result) {
  const auto lines = Text::split(result.standardError, '\n');
  if (result.timedOut || result.stopped) return false;
  return std::none_of(lines.begin(), lines.end(), [](const auto line) {
    const bool isFailure = line.starts_with("error:") || line.starts_with("fatal:");
    return isFailure && !line.ends_with("does not have a commit checked out") && line != "fatal: adding files failed";
  });
}

}  // namespace

const std::vector<std::string>& GitBackup::ignoredPatterns() {
  static const std::vector<std::string> patterns = {".DS_Store",    "Thumbs.db", "*.tmp",        ".orvanta.lock",
                                                    "__pycache__/", "*.pyc",     ".installing-*"};
  return patterns;
}

fs::path GitBackup::gitFolder(const OperationContext& context) const {
  fs::path usual = root_ / ".git";
  if (FS::resolvesToDirectory(usual)) return usual;
  return std::string(Text::trim(check({"rev-parse", "--absolute-git-dir"}, shortest, context).standardOutput));
}

// Made aside and brought to the disk, it takes its place whole: git neither flushes a new repository nor recognises a
// part of one.
void GitBackup::makeRepository(const OperationContext& context) const {
  const StagingFolder staging(root_);
  const fs::path made = staging.slot(0);
  check({"init", "--initial-branch=main", "--quiet", "--", made.string()}, local, context);
  FS::flushTree(made);
  FS::renameExclusive(made / ".git", root_ / ".git");
  FS::flushFolder(root_);
}

void GitBackup::initialize(const OperationContext& context) const {
  FS::createDirectories(root_);
  // Where a git was killed while it made the repository, this finishes it.
  const bool isWhole = isRepository() && (!FS::isDirectory(root_ / ".git") || FS::exists(root_ / ".git" / "HEAD"));
  if (isWhole) {
    clearGitLeftovers(gitFolder(context));
  } else if (isRepository()) {
    check({"init", "--initial-branch=main", "--quiet"}, local, context);
  } else {
    makeRepository(context);
  }
  ensureGitignore();
  ensureIdentity(context);
  makeReady(context);
  refuseUnfinished(context);
}

void GitBackup::ensureGitignore() const {
  const fs::path file = root_ / ".gitignore";
  if (FS::exists(file) && !textOf(file, largestConfiguration)) {
    throw SkillsError::io(file.string() + " cannot be read as a text file of less than 1 MiB; put one in its place");
  }
  auto lines = linesOf(textOf(file, largestConfiguration).value_or(""));
  const auto before = lines.size();
  for (const auto& pattern : ignoredPatterns()) {
    if (std::find(lines.begin(), lines.end(), pattern) == lines.end()) lines.push_back(pattern);
  }
  if (lines.size() != before) FS::writeAtomically(file, Text::join(lines, "\n") + "\n");
}

void GitBackup::ensureIdentity(const OperationContext& context) const {
  const auto ensure = [&](const std::string& key, const std::string& fallback) {
    const auto own = run({"config", key}, shortest, context);
    const bool isSet = own.succeeded() && !Text::trim(own.standardOutput).empty();
    if (!isSet) check({"config", key, fallback}, shortest, context);
  };
  ensure("user.name", "Orvanta");
  ensure("user.email", "backup@orvanta.local");
}

void GitBackup::ensureOwnRules(const fs::path& gitFolder) const {
  // That of a linked working folder names the one that git reads.
  const auto common = textOf(gitFolder / "commondir", largestConfiguration);
  const fs::path folder = (common ? gitFolder / Text::trim(*common) : gitFolder) / "info";
  for (const auto& [name, lines] : {std::pair("attributes", attributes), std::pair("exclude", neverSaved)}) {
    const auto text = textOf(folder / name, largestConfiguration).value_or("");
    if (text.ends_with(lines)) continue;
    FS::createDirectories(folder);
    const std::string separator = text.empty() || text.ends_with('\n') ? "" : "\n";
    FS::writeAtomically(folder / name, text + separator + std::string(lines));
  }
}

void GitBackup::makeReady(const OperationContext& context) const {
  const fs::path folder = gitFolder(context);
  clearGitLeftovers(folder);
  for (const auto& file : FS::children(root_ / BackupManifest::kFolder)) {
    if (file.extension() == ".tmp") FS::removeQuietly(file);  // of a manifest that was never finished
  }
  ensureOwnRules(folder);
}

void GitBackup::refuseUnfinished(const OperationContext& context) const {
  const fs::path folder = gitFolder(context);
  const auto isThere = [&](const char* name) { return FS::exists(folder / name); };
  if (isThere("rebase-merge") || isThere("rebase-apply")) {
    throw SkillsError::conflict(fmt::format(
        "The backup is in the middle of a rebase. Finish it in {0} with 'git rebase --continue', or give it "
        "up with 'git rebase --abort', then try again.",
        root_.string()));
  }
  const auto head = textOf(folder / "HEAD", largestConfiguration);
  if (head && !head->starts_with("ref:")) {
    throw SkillsError::conflict(
        fmt::format("The backup has no branch checked out, so that a snapshot would be lost. Go back to one in {} with "
                    "'git switch main', then try again.",
                    root_.string()));
  }
  if (!isThere("MERGE_HEAD") && !isThere("CHERRY_PICK_HEAD") && !isThere("REVERT_HEAD")) return;
  const auto conflicts = pathsOf({"diff", "--name-only", "--diff-filter=U", "-z"}, context);
  if (conflicts.empty()) return;
  throw SkillsError::conflict(
      fmt::format("The backup is in the middle of a merge, and {} is not settled. Settle it in {} with git and commit, "
                  "or give the merge up with 'git merge --abort', then try again.",
                  Text::singleLine(conflicts.front()), root_.string()));
}

std::optional<BackupManifest> GitBackup::readManifest() const {
  if (FS::kind(root_ / BackupManifest::kFolder) != FS::Kind::directory) return std::nullopt;
  const auto text = textOf(root_ / BackupManifest::kPath, largestManifest);
  return text ? BackupManifest::parse(*text) : std::nullopt;
}

bool GitBackup::writeManifest(const BackupManifest& manifest) const {
  const fs::path folder = root_ / BackupManifest::kFolder;
  if (FS::kind(folder) == FS::Kind::symlink) FS::removeSymlink(folder);
  const fs::path file = root_ / BackupManifest::kPath;
  const std::string text = manifest.text();
  if (BackupManifest::saysTheSame(textOf(file, largestManifest).value_or(""), text)) return false;
  FS::createDirectories(folder);
  FS::writeAtomically(file, text);
  return true;
}

void GitBackup::stageManifest(const OperationContext& context) const {
  check({"add", "--force", "--", std::string(BackupManifest::kPath)}, local, context);
}

bool GitBackup::commitStaged(const std::string& message, const OperationContext& context) const {
  const Words whatIsStaged = {"diff", "--cached", "--raw", "--no-renames", "--no-ext-diff", "-z"};
  auto staged = listing(whatIsStaged, context);
  const auto nested = repositoriesIn(staged);
  if (!nested.empty()) {
    embed(nested, context);
    stage(context);
  }
  stageHidden(newlyIgnoringIn(staged), context);
  if (!nested.empty()) staged = listing(whatIsStaged, context);
  if (staged.empty() && !FS::exists(gitFolder(context) / "MERGE_HEAD")) return false;
  const bool isFirst = !headCommit(context);
  Words words = {"commit", "--quiet", "-m", message};
  if (isFirst) words.insert(words.begin(), batched.begin(), batched.end());
  auto result = run(words, commitLimit, context);
  // On a full disk, a git that flushes at once for all objects can lose some of them and not notice.
  if (result.succeeded() && isFirst) result = run({"rev-list", "--objects", "--quiet", "HEAD"}, longLocal, context);
  if (result.succeeded()) return true;
  if (isFirst) run({"update-ref", "-d", "HEAD"}, local, context);
  // The index may name files whose content was lost so, and which git would never look at again.
  run({"read-tree", isFirst ? "--empty" : "HEAD"}, local, context);
  throw GitClient::failure("commit", result);
}

void GitBackup::stage(const OperationContext& context) const {
  const Index index = readIndex(context);
  // To see whether what they refer to has changed, git would run the filters that the repository there names.
  embed(index.references, context);
  // A first snapshot goes into one pack: a file for each object would take several times as long. Flushing in batches
  // must then be off, because git would look for the pack where it gathers single objects, such as that of a link.
  const Words packed = {"-c", "core.bigFileThreshold=1", "-c", "core.compression=1"};
  Words words = headCommit(context) ? batched : packed;
  words.insert(words.end(), {"add", "-A", "--", "."});
  const auto added = run(words, longLocal, context);
  if (!added.succeeded()) {
    std::vector<std::string> nested;
    findNested(root_, {}, nested);
    if (nested.empty() || added.timedOut || added.stopped) throw GitClient::failure("add", added);
    embed(nested, context);
    words.insert(std::find(words.begin(), words.end(), "--"), "--ignore-errors");
    const auto again = run(words, longLocal, context);
    if (!again.succeeded() && !failedAtEmptyOnly(again)) throw GitClient::failure("add", again);
  }
  auto ignoring = index.ignoring;
  for (const auto& name : FS::childNames(root_)) {
    if (FS::exists(root_ / name / ".gitignore") && FS::isDirectory(root_ / name)) ignoring.insert(name);
  }
  stageHidden(ignoring, context);
}

GitBackup::Index GitBackup::readIndex(const OperationContext& context) const {
  const auto listed = listing({"ls-files", "--stage", "-z"}, context);
  Index index;
  for (const auto line : Text::split(listed, '\0')) {  // "MODE ID STAGE<tab>PATH"
    const auto path = line.substr(std::min(line.find('\t') + 1, line.size()));
    if (line.starts_with(repositoryMode)) index.references.emplace_back(path);
    if (path.ends_with(ignoreFile)) index.ignoring.emplace(path.substr(0, path.size() - ignoreFile.size()));
  }
  return index;
}

// A skill may carry ignore files of its own. They are part of the skill, but hide nothing of it from the backup.
void GitBackup::stageHidden(const std::set<std::string>& folders, const OperationContext& context) const {
  for (const auto& some : inParts({folders.begin(), folders.end()})) {
    Words words = {"ls-files", "--others", "--exclude-from=.gitignore", "-z", "--"};
    words.insert(words.end(), some.begin(), some.end());
    auto hidden = pathsOf(words, context);
    std::erase_if(hidden, [](const std::string& path) { return path.ends_with('/'); });
    withPathFile(hidden, {"add", "--force"}, options(longLocal), context);
  }
}

// Git takes a folder with a repository of its own for a reference to that, unless the index holds a file below it.
void GitBackup::embed(const Words& folders, const OperationContext& context) const {
  Words empty;
  Words files;
  for (const auto& folder : folders) {
    const auto file = firstFileIn(root_ / folder);
    file ? files.push_back(folder + "/" + *file) : empty.push_back(folder);
  }
  updateIndex({"update-index", "--force-remove", "--"}, empty, context);
  updateIndex({"update-index", "--add", "--replace", "--"}, files, context);
}

void GitBackup::updateIndex(const Words& command, const Words& paths, const OperationContext& context) const {
  for (const auto& some : inParts(paths)) {
    Words words = command;
    words.insert(words.end(), some.begin(), some.end());
    check(words, local, context);
  }
}

void GitBackup::withPathFile(const std::vector<std::string>& paths, Words arguments, const GitRunOptions& how,
                             const OperationContext& context) const {
  if (paths.empty()) return;
  const TemporaryFolder folder(git_.temporaryFolder(), "orvanta-backup-");
  const fs::path file = folder.path() / "paths";
  std::string text;
  for (const auto& path : paths) text += path + '\0';
  FS::writeAtomically(file, text);
  arguments.insert(arguments.end(), {"--pathspec-from-file=" + file.string(), "--pathspec-file-nul"});
  git_.runChecked(arguments, how, context);
}

}  // namespace orvanta
