#include "sources/GitBackup.h"

#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <iterator>
#include <system_error>

#include <fmt/core.h>

#include "files/FS.h"
#include "files/Paths.h"
#include "foundations/Text.h"
#include "platform/Host.h"
#include "sources/GitLeftovers.h"
#include "sources/GitSource.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

// As much of git's output as is kept: a listing of this size may lack its end.
constexpr std::size_t largestListing = std::size_t{64} << 20;
constexpr std::size_t shownDigits = 8;
// Exit statuses of git: of a merge with conflicts, and of options that it does not know.
constexpr int conflictsFound = 1;
constexpr int usageError = 129;

// Whether git says yes by its exit status. Throws when it did not come to an answer.
bool saysYes(const char* command, const ProcessResult& result) {
  if (result.timedOut || result.stopped) throw GitClient::failure(command, result);
  return result.succeeded();
}

std::string trimmed(const ProcessResult& result) { return std::string(Text::trim(result.standardOutput)); }

bool isHexadecimal(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos;
}

template <typename Number>
std::optional<Number> numberIn(std::string_view text) {
  Number number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

// Whoever made a commit chose its time: one that no calendar shows becomes the nearest that it does.
std::optional<std::int64_t> secondsIn(std::string_view text) {
  constexpr std::int64_t last = 253'402'300'799;  // of the year 9999
  std::int64_t seconds = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
  if (error == std::errc::invalid_argument || end != text.data() + text.size()) return std::nullopt;
  return error == std::errc::result_out_of_range ? last : std::clamp(seconds, std::int64_t{0}, last);
}

// "HASH<tab>SECONDS<tab>SUBJECT"; the subject may hold tabs.
std::optional<BackupCommit> commitIn(std::string_view line) {
  const auto first = line.find('\t');
  if (first == std::string_view::npos) return std::nullopt;
  const auto second = line.find('\t', first + 1);
  if (second == std::string_view::npos) return std::nullopt;
  const auto seconds = secondsIn(line.substr(first + 1, second - first - 1));
  if (!seconds) return std::nullopt;
  return BackupCommit{.sha = std::string(line.substr(0, first)),
                      .date = *seconds * 1000,
                      .message = std::string(line.substr(second + 1))};
}

// An address that git may be given as the remote. A word and two colons would name a program that speaks for git.
std::string usableRemote(const std::string& url) {
  const bool isHere = url.starts_with('/') || url.starts_with("file:///");
  if (isHere) return url;
  GitSource::validate(url);
  const bool isShort = url.find("://") == std::string::npos && !url.starts_with("git@");
  return isShort ? GitSource::parse(url).cloneURL : url;
}

// Without those below others: where a file has taken the place of a folder, git knows the folder's files no longer.
std::vector<std::string> topmost(const std::vector<std::string>& paths) {
  const std::set<std::string_view> all(paths.begin(), paths.end());
  std::vector<std::string> found;
  std::copy_if(paths.begin(), paths.end(), std::back_inserter(found), [&](const std::string& path) {
    for (auto end = path.find('/'); end != std::string::npos; end = path.find('/', end + 1)) {
      if (all.contains(std::string_view(path).substr(0, end))) return false;
    }
    return true;
  });
  return found;
}

// What git says of the conflicts, among the fields of which it consists.
std::vector<std::string> conflictsIn(const std::vector<std::string_view>& fields) {
  std::vector<std::string> lines;
  for (const auto field : fields) {
    if (field.starts_with("CONFLICT") && field.find("): ") != std::string_view::npos)
      lines.emplace_back(Text::trim(field));
  }
  return lines;
}

// As a value in git's configuration.
std::string quoted(const std::string& value) {
  std::string text = "\"";
  for (const char c : value) {
    if (c == '"' || c == '\\') text += '\\';
    text += c;
  }
  return text + '"';
}

}  // namespace

GitRunOptions GitBackup::options(std::chrono::seconds timeout) const {
  return {.cwd = root_, .timeout = timeout, .repository = GitRunOptions::Repository::backup};
}

ProcessResult GitBackup::run(const Words& arguments, std::chrono::seconds timeout,
                             const OperationContext& context) const {
  return git_.run(arguments, options(timeout), context);
}

ProcessResult GitBackup::check(const Words& arguments, std::chrono::seconds timeout,
                               const OperationContext& context) const {
  return git_.runChecked(arguments, options(timeout), context);
}

std::string GitBackup::listing(const Words& arguments, const OperationContext& context,
                               const std::optional<fs::path>& workTree) const {
  auto how = options(longLocal);
  how.listsFiles = true;
  how.workTree = workTree;
  return git_.runChecked(arguments, how, context).standardOutput;
}

std::vector<std::string> GitBackup::pathsOf(const Words& arguments, const OperationContext& context,
                                            const std::optional<fs::path>& workTree) const {
  const auto listed = listing(arguments, context, workTree);
  std::vector<std::string> paths;
  for (const auto path : Text::split(listed, '\0')) {
    if (!path.empty()) paths.emplace_back(path);
  }
  return paths;
}

// ── Looking ──

bool GitBackup::isRepository() const { return FS::exists(root_ / ".git"); }

BackupStatus GitBackup::status(const OperationContext& context) const {
  BackupStatus status;
  status.gitAvailable = git_.isAvailable();
  status.isRepository = isRepository();
  if (!status.isRepository || !status.gitAvailable) return status;
  const auto remote = remoteURL(context);
  if (remote) status.remoteURL = GitSource::masked(*remote);
  const auto name = run({"rev-parse", "--abbrev-ref", "HEAD"}, shortest, context);
  if (name.succeeded() && trimmed(name) != "HEAD") status.branch = trimmed(name);
  const auto changes = run({"status", "--porcelain", "--ignore-submodules=dirty"}, local, context);
  if (changes.succeeded()) {
    const auto lines = Text::split(changes.standardOutput, '\n');
    status.dirtyFiles = std::count_if(lines.begin(), lines.end(), [](const auto line) { return !line.empty(); });
  }
  try {
    const auto newest = history(1, context);
    if (!newest.empty()) status.lastCommit = newest.front();
  } catch (const SkillsError&) {
    return status;
  }
  const auto apart = run({"rev-list", "--left-right", "--count", "HEAD...@{u}"}, shortest, context);
  const auto text = trimmed(apart);
  const auto tab = text.find('\t');
  if (!apart.succeeded() || tab == std::string::npos) return status;
  status.ahead = numberIn<std::int64_t>(text.substr(0, tab)).value_or(0);
  status.behind = numberIn<std::int64_t>(text.substr(tab + 1)).value_or(0);
  return status;
}

std::optional<std::string> GitBackup::remoteURL(const OperationContext& context) const {
  // As it was given: "remote get-url" would tell where the user's rules for addresses lead from there.
  const auto result = run({"config", "--get", "remote.origin.url"}, shortest, context);
  auto url = trimmed(result);
  return saysYes("config", result) && !url.empty() ? std::optional(std::move(url)) : std::nullopt;
}

std::vector<BackupCommit> GitBackup::history(std::size_t limit, const OperationContext& context) const {
  std::vector<BackupCommit> commits;
  if (!headCommit(context)) return commits;
  const auto log = check({"log", "-n", std::to_string(limit), "--format=%H%x09%ct%x09%s"}, local, context);
  for (const auto line : Text::split(log.standardOutput, '\n')) {
    if (const auto commit = commitIn(line)) commits.push_back(*commit);
  }
  return commits;
}

std::optional<std::string> GitBackup::headCommit(const OperationContext& context) const {
  const auto head = run({"rev-parse", "--verify", "--quiet", "HEAD"}, shortest, context);
  return saysYes("rev-parse", head) ? std::optional(trimmed(head)) : std::nullopt;
}

std::string GitBackup::requireHead(const OperationContext& context) const {
  if (auto head = headCommit(context)) return *std::move(head);
  throw SkillsError::git("The backup in " + root_.string() +
                         " holds no snapshot yet; take one with 'orvanta backup now'");
}

std::string GitBackup::commitNamed(const std::string& id, const OperationContext& context) const {
  const std::string digits(Text::trim(id));
  if (!isHexadecimal(digits)) throw SkillsError::invalidInput("Invalid commit id");
  const auto found = run({"rev-parse", "--verify", "--quiet", digits + "^{commit}"}, shortest, context);
  if (found.succeeded()) return trimmed(found);
  throw SkillsError::notFound(
      fmt::format("There is no snapshot {}, or several begin so. 'orvanta backup history' lists them.", digits));
}

bool GitBackup::isAncestor(const std::string& commit, const std::string& of, const OperationContext& context) const {
  return saysYes("merge-base", run({"merge-base", "--is-ancestor", commit, of}, shortest, context));
}

bool GitBackup::isMerging(const std::string& commit, const OperationContext& context) const {
  const auto merged = run({"rev-parse", "--verify", "--quiet", "MERGE_HEAD"}, shortest, context);
  return merged.succeeded() && trimmed(merged) == commit;
}

std::optional<std::string> GitBackup::mergeBase(const std::string& a, const std::string& b,
                                                const OperationContext& context) const {
  const auto base = run({"merge-base", a, b}, shortest, context);
  return saysYes("merge-base", base) ? std::optional(trimmed(base)) : std::nullopt;
}

std::set<std::string> GitBackup::changedFolders(const std::optional<std::string>& from, const std::string& to,
                                                const OperationContext& context) const {
  const Words words = from ? Words{"diff", "--name-only", "--no-renames", "-z", *from, to}
                           : Words{"ls-tree", "--name-only", "--full-tree", "-z", to};
  std::set<std::string> folders;
  for (const auto& path : pathsOf(words, context)) folders.insert(path.substr(0, path.find('/')));
  return folders;
}

std::vector<std::string> GitBackup::addedPaths(const std::string& from, const std::string& to,
                                               const OperationContext& context) const {
  return pathsOf({"diff", "--name-only", "--no-renames", "--diff-filter=A", "-z", from, to}, context);
}

std::vector<GitBackup::Item> GitBackup::tree(const std::string& commit, const OperationContext& context) const {
  const auto listed = listing({"ls-tree", "-r", "--full-tree", "-z", commit}, context);
  if (listed.size() >= largestListing) {
    throw SkillsError::git("The snapshot holds more files than can be looked at; nothing was brought into the library");
  }
  std::vector<Item> entries;
  for (const auto line : Text::split(listed, '\0')) {  // "MODE TYPE ID<tab>PATH"
    const auto tab = line.find('\t');
    if (tab == std::string_view::npos) continue;
    entries.push_back({.mode = std::string(line.substr(0, line.find(' '))), .path = std::string(line.substr(tab + 1))});
  }
  return entries;
}

std::optional<std::string> GitBackup::textIn(const std::string& commit, const std::string& path,
                                             const OperationContext& context) const {
  const auto shown = run({"cat-file", "blob", fmt::format("{}:{}", commit, path)}, local, context);
  return shown.succeeded() ? std::optional(shown.standardOutput) : std::nullopt;
}

std::optional<BackupManifest> GitBackup::manifestIn(const std::string& commit, const OperationContext& context) const {
  const auto text = textIn(commit, std::string(BackupManifest::kPath), context);
  return text ? BackupManifest::parse(*text) : std::nullopt;
}

std::string GitBackup::branch(const OperationContext& context) const {
  const auto result = run({"rev-parse", "--abbrev-ref", "HEAD"}, shortest, context);
  const auto name = trimmed(result);
  if (name.starts_with('-')) {
    throw SkillsError::refused(
        fmt::format("The branch '{}' of the backup begins with '-', which git would take for an "
                    "option. Go over to another in {} with git.",
                    Text::singleLine(name), root_.string()));
  }
  return !result.succeeded() || name.empty() || name == "HEAD" ? "main" : name;
}

// ── Sharing ──

void GitBackup::setRemote(const std::optional<std::string>& url, const OperationContext& context) const {
  const std::string wanted(Text::trim(url.value_or("")));
  if (wanted.empty()) {
    if (remoteURL(context)) check({"remote", "remove", "origin"}, shortest, context);
    return;
  }
  const std::string address = usableRemote(wanted);
  const std::string here = address.starts_with("file://") ? address.substr(7) : address;
  if (here.starts_with('/') && isInside(FS::resolved(here), FS::resolved(root_))) {
    throw SkillsError::invalidInput("The remote " + here + " lies in the library itself; choose a place outside of it");
  }
  setOrigin(remoteURL(context) ? "set-url" : "add", address, context);
}

void GitBackup::setOrigin(const std::string& verb, const std::string& url, const OperationContext& context) const {
  const std::string shown = GitSource::withoutCredentials(url);
  check({"remote", verb, "origin", shown}, shortest, context);
  if (shown == url) return;
  const fs::path file = gitFolder(context) / "config";
  const std::string line = "url = " + shown + "\n";
  auto text = FS::readText(file, largestConfiguration).value_or("");
  const auto at = text.find(line);
  if (at == std::string::npos) throw SkillsError::git("The remote could not be written to " + file.string());
  text.replace(at, line.size(), "url = " + quoted(url) + "\n");
  FS::writeAtomically(file, text, S_IRUSR | S_IWUSR);
}

void GitBackup::push(const OperationContext& context) const {
  const auto remote = remoteURL(context);
  if (!remote) throw SkillsError::invalidInput("No backup remote configured");
  auto how = options(network);
  how.remote = *remote;
  const auto result = git_.run({"push", "--quiet", "-u", "origin", "refs/heads/" + branch(context)}, how, context);
  if (result.succeeded()) {
    // Here, where people wait for the network anyway, and not in the background, where it would be in everybody's way.
    run({"-c", "gc.auto=6700", "-c", "gc.autoDetach=false", "gc", "--auto", "--quiet"}, network, context);
    return;
  }
  const auto failure = GitClient::failure("push", result);
  const bool isBehind = failure.message().find("[rejected]") != std::string::npos;
  if (!isBehind) throw failure;
  throw SkillsError::git(
      fmt::format("The remote has snapshots that this library does not have. Bring them in with 'orvanta backup pull', "
                  "then push again. Details: {}",
                  failure.message()));
}

std::string GitBackup::fetch(const OperationContext& context) const {
  const auto remote = remoteURL(context);
  if (!remote) throw SkillsError::invalidInput("No backup remote configured");
  const auto name = branch(context);
  auto how = options(network);
  how.remote = *remote;
  const auto result = git_.run({"fetch", "--quiet", "origin", "refs/heads/" + name}, how, context);
  if (!result.succeeded()) {
    const auto failure = GitClient::failure("fetch", result);
    const bool isEmpty = failure.message().find("find remote ref") != std::string::npos;
    if (!isEmpty) throw failure;
    throw SkillsError::git(fmt::format("The remote {} has no branch '{}': there is nothing to pull yet. Push first.",
                                       GitSource::masked(*remote), name));
  }
  return trimmed(check({"rev-parse", "--verify", "FETCH_HEAD^{commit}"}, shortest, context));
}

std::string GitBackup::merged(const std::string& ours, const std::string& theirs,
                              const OperationContext& context) const {
  if (mergeBase(ours, theirs, context) == ours) return theirs;
  const auto tree = mergedTree(ours, theirs, context);
  const auto made =
      check({"commit-tree", tree, "-p", ours, "-p", theirs, "-m", "Bring the remote's snapshots to " + deviceName()},
            commitLimit, context);
  return trimmed(made);
}

// Git prints the tree, the files in conflict, and after an empty field what it has to say of each.
std::string GitBackup::mergedTree(const std::string& ours, const std::string& theirs,
                                  const OperationContext& context) const {
  auto how = options(longLocal);
  how.listsFiles = true;
  auto result = git_.run(
      {"merge-tree", "--write-tree", "--allow-unrelated-histories", "--name-only", "-z", ours, theirs}, how, context);
  const auto fields = Text::split(result.standardOutput, '\0');
  std::string tree(fields.front());
  if (result.succeeded()) return tree;
  if (result.exitCode == usageError) {
    throw SkillsError::git(
        fmt::format("Both sides have new snapshots, and to bring them together takes git 2.38 or newer. "
                    "Update git, or merge in {} with git, then pull again; nothing was changed.",
                    root_.string()));
  }
  const bool isAnswer = result.exitCode == conflictsFound && !result.timedOut && !result.stopped;
  if (!isAnswer) throw GitClient::failure("merge-tree", result);
  const auto end = std::find_if(fields.begin() + 1, fields.end(), [](const auto field) { return field.empty(); });
  const std::set<std::string> paths(fields.begin() + 1, end);
  if (paths == std::set{std::string(BackupManifest::kPath)}) return withJoinedManifest(tree, ours, theirs, context);
  result.standardOutput = Text::join(conflictsIn({end, fields.end()}), "\n");
  throw BackupConflict(fmt::format("Merge conflict while pulling the backup. Resolve it in {} with git, then retry. "
                                   "Details: {}",
                                   root_.string(), GitClient::failure("merge", result).message()),
                       paths);
}

// Each side wrote it anew from its own records, so git cannot know what belongs together; we do.
std::string GitBackup::withJoinedManifest(const std::string& tree, const std::string& ours, const std::string& theirs,
                                          const OperationContext& context) const {
  const TemporaryFolder folder(git_.temporaryFolder(), "orvanta-backup-");
  const fs::path file = folder.path() / "manifest";
  const auto own = manifestIn(ours, context).value_or(BackupManifest{});
  FS::writeAtomically(file, own.joinedWith(manifestIn(theirs, context).value_or(BackupManifest{})).text());
  const auto content = trimmed(check({"hash-object", "-w", "--no-filters", "--", file.string()}, local, context));
  auto how = options(longLocal);
  how.index = folder.path() / "index";
  const std::string entry = fmt::format("100644,{},{}", content, BackupManifest::kPath);
  git_.runChecked({"read-tree", tree}, how, context);
  git_.runChecked({"update-index", "--add", "--replace", "--cacheinfo", entry}, how, context);
  return trimmed(git_.runChecked({"write-tree"}, how, context));
}

void GitBackup::followRemote(const OperationContext& context) const {
  run({"branch", "--set-upstream-to=origin/" + branch(context)}, shortest, context);
}

void GitBackup::clone(const std::string& url, const OperationContext& context) const {
  auto how = options(network);
  how.cwd = root_.parent_path();
  how.remote = url;
  git_.runChecked({"clone", "--quiet", "--no-checkout", "--", url, root_.string()}, how, context);
  if (!headCommit(context)) takeSomeBranch(context);
  setOrigin("set-url", url, context);
}

// For a remote whose own idea of its main branch names one that nobody pushed, as that of a new bare repository can.
void GitBackup::takeSomeBranch(const OperationContext& context) const {
  const std::string prefix = "refs/remotes/origin/";
  const auto listed = check({"for-each-ref", "--format=%(refname)", prefix}, shortest, context);
  std::vector<std::string> names;
  for (const auto line : Text::split(listed.standardOutput, '\n')) {
    if (line.starts_with(prefix) && line != prefix + "HEAD") names.emplace_back(line.substr(prefix.size()));
  }
  if (names.empty()) throw SkillsError::git("The remote is empty: it holds no snapshot to restore");
  const bool hasMain = std::find(names.begin(), names.end(), "main") != names.end();
  const std::string name = hasMain ? "main" : names.front();
  check({"symbolic-ref", "HEAD", "refs/heads/" + name}, shortest, context);
  check({"update-ref", "HEAD", prefix + name}, shortest, context);
  followRemote(context);
}

void GitBackup::checkOut(const OperationContext& context) const {
  ensureOwnRules(gitFolder(context));
  ensureIdentity(context);
  check({"reset", "--hard", "--quiet"}, longLocal, context);
  clearGitLeftovers(gitFolder(context));  // of locks that could not be removed
  FS::flushTree(root_);
}

// ── Going over to another snapshot ──

std::string GitBackup::treeOf(const std::string& commit, const OperationContext& context) const {
  return trimmed(check({"rev-parse", "--verify", "--quiet", commit + "^{tree}"}, shortest, context));
}

std::string GitBackup::restored(const std::string& commit, const std::string& head,
                                const OperationContext& context) const {
  const auto tree = treeOf(commit, context);
  if (tree == treeOf(head, context)) return head;
  const std::string message = "Restore library to " + commit.substr(0, shownDigits);
  return trimmed(check({"commit-tree", tree, "-p", head, "-m", message}, commitLimit, context));
}

void GitBackup::bringChanges(const fs::path& folder, const std::string& from, const std::string& to,
                             const OperationContext& context) const {
  auto how = options(longLocal);
  how.workTree = folder;
  const auto paths = topmost(pathsOf({"diff", "--name-only", "--no-renames", "-z", from, to}, context));
  const std::set<std::string> brought(paths.begin(), paths.end());
  for (const auto& edited : pathsOf(
           {"diff", "--name-only", "--no-renames", "--no-ext-diff", "--diff-filter=MT", "-z", from}, context, folder)) {
    if (!brought.contains(edited)) continue;
    throw SkillsError::conflict(fmt::format("{} was edited meanwhile. Nothing was changed; try again.",
                                            Text::repairUTF8((root_ / edited).string())));
  }
  withPathFile(paths, {"restore", "--source=" + to, "--worktree"}, how, context);
  // Git only warns of files that it could not remove.
  for (const auto& gone : addedPaths(to, from, context)) {
    if (!brought.contains(gone) || !FS::exists(folder / gone) || FS::isDirectory(folder / gone)) continue;
    throw SkillsError::git(
        fmt::format("{} could not be made as it is in the snapshot, because the folder may not be "
                    "changed; nothing was changed",
                    Text::repairUTF8((root_ / gone).string())));
  }
}

void GitBackup::moveTo(const std::string& from, const std::string& to, const OperationContext& context) const {
  if (headCommit(context) == from) check({"reset", "--mixed", "--quiet", to}, longLocal, context);
}

}  // namespace orvanta
