#include "sources/GitBackup.h"

#include <sys/stat.h>

#include <algorithm>
#include <charconv>
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

// As a value in git's configuration.
std::string quoted(const std::string& value) {
  std::string text = "\"";
  for (const char c : value) {
    if (c == '"' || c == '\\') text += '\\';
    text += c;
  }
  return text + '"';
}

bool passesThroughLink(const fs::path& root, const fs::path& relative) {
  fs::path path = root;
  for (const auto& part : relative.parent_path()) {
    path /= part;
    if (FS::kind(path) == FS::Kind::symlink) return true;
  }
  return false;
}

// Whether what stands there is the content, or the beginning of it, as git leaves when it is killed.
bool isBeginningOf(const fs::path& file, const std::string& content) {
  switch (FS::kind(file)) {
    case FS::Kind::file: {
      const auto text = FS::readText(file, content.size());
      return text && content.starts_with(*text);
    }
    case FS::Kind::symlink: {
      std::error_code unreadable;
      return fs::read_symlink(file, unreadable) == content;
    }
    default: return false;
  }
}

// With folders that are then empty.
void removeFile(const fs::path& root, const fs::path& relative) {
  FS::removeAny(root / relative);
  for (auto folder = relative.parent_path(); !folder.empty() && FS::removeIfEmpty(root / folder);) {
    folder = folder.parent_path();
  }
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

std::string GitBackup::listing(const Words& arguments, const OperationContext& context) const {
  auto how = options(longLocal);
  how.listsFiles = true;
  return git_.runChecked(arguments, how, context).standardOutput;
}

std::vector<std::string> GitBackup::pathsOf(const Words& arguments, const OperationContext& context) const {
  const auto listed = listing(arguments, context);
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

// The history goes on only when the files are on the disk, so that after a power cut they can be trusted or taken back.
void GitBackup::merge(const std::string& commit, const OperationContext& context) const {
  const auto head = headCommit(context);
  if (!head) {
    check({"reset", "--hard", "--quiet", commit}, longLocal, context);
    return FS::flushTree(root_);
  }
  if (mergeBase(*head, commit, context) == head) {
    check({"read-tree", "-m", "-u", *head, commit}, longLocal, context);
    FS::flushTree(root_);
    check({"update-ref", "-m", "pull", "HEAD", commit, *head}, local, context);
    return;
  }
  const auto merged =
      run({"merge", "--no-commit", "--no-ff", "--quiet", "--allow-unrelated-histories", commit}, longLocal, context);
  if (!merged.succeeded()) settleConflicts(merged, context);
  FS::flushTree(root_);
  check({"commit", "--quiet", "-m", "Bring the remote's snapshots to " + deviceName()}, commitLimit, context);
}

void GitBackup::followRemote(const OperationContext& context) const {
  run({"branch", "--set-upstream-to=origin/" + branch(context)}, shortest, context);
}

// Of a merge that git could not do: takes it back and throws, unless it is about nothing but the manifest.
void GitBackup::settleConflicts(const ProcessResult& merged, const OperationContext& context) const {
  const auto conflicts = pathsOf({"diff", "--name-only", "--diff-filter=U", "-z"}, context);
  if (conflicts == std::vector<std::string>{std::string(BackupManifest::kPath)}) return resolveManifest(context);
  run({"merge", "--abort"}, local, {});  // also when a stop was requested
  if (conflicts.empty()) throw GitClient::failure("merge", merged);
  throw BackupConflict(fmt::format("Merge conflict while pulling the backup. Resolve it in {} with git, then retry. "
                                   "Details: {}",
                                   root_.string(), GitClient::failure("merge", merged).message()),
                       {conflicts.begin(), conflicts.end()});
}

// Each side wrote it anew from its own records, so git cannot know what belongs together; we do.
void GitBackup::resolveManifest(const OperationContext& context) const {
  const auto ours = manifestIn("HEAD", context).value_or(BackupManifest{});
  const auto theirs = manifestIn("MERGE_HEAD", context).value_or(BackupManifest{});
  FS::writeAtomically(root_ / BackupManifest::kPath, ours.joinedWith(theirs).text());
  stageManifest(context);
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
  ensureAttributes(gitFolder(context));
  ensureIdentity(context);
  check({"reset", "--hard", "--quiet"}, longLocal, context);
  clearGitLeftovers(gitFolder(context));  // of locks that could not be removed
  FS::flushTree(root_);
}

// ── Going back ──

void GitBackup::restore(const std::string& commit, const OperationContext& context) const {
  check({"restore", "--source=" + commit, "--staged", "--worktree", "--", "."}, longLocal, context);
  FS::flushTree(root_);
  // Git only warns of files that it could not replace or remove.
  auto different = pathsOf({"diff", "--name-only", "--no-renames", "-z", commit}, context);
  for (auto& gone : addedPaths(commit, "HEAD", context)) {
    if (FS::exists(root_ / gone)) different.push_back(std::move(gone));
  }
  if (!different.empty()) {
    throw SkillsError::git(fmt::format("{} could not be made as it was in the snapshot; nothing was restored",
                                       (root_ / different.front()).string()));
  }
  stage(context);
  commitStaged("Restore library to " + commit.substr(0, shownDigits), context);
}

void GitBackup::takeBack(const std::string& from, const std::string& to, const OperationContext& context) const {
  // What was edited since then stays to be found, under a name of its own.
  const auto found = run({"stash", "create", "Before an interrupted change was taken back"}, longLocal, context);
  if (found.succeeded() && !trimmed(found).empty()) {
    check({"update-ref", "refs/orvanta/before-recovery", trimmed(found)}, local, context);
  }
  run({"merge", "--quit"}, local, context);
  for (const auto& added : addedPaths(from, to, context)) {
    if (passesThroughLink(root_, added)) continue;
    // Killed before the file, git has made its folder.
    const bool isGits = FS::isCertainlyAbsent(root_ / added) ||
                        isBeginningOf(root_ / added, listing({"cat-file", "blob", to + ":" + added}, context));
    if (isGits) removeFile(root_, added);
  }
  check({"reset", "--mixed", "--quiet", from}, longLocal, context);
  const auto others = pathsOf({"diff", "--name-only", "--no-renames", "--diff-filter=a", "-z", from, to}, context);
  if (!others.empty()) withPathFile(others, {"restore", "--worktree"}, context);
  FS::flushTree(root_);
}

}  // namespace orvanta
