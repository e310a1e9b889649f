#include "sources/GitClient.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <string_view>
#include <system_error>

#include <fmt/core.h>

#include "foundations/Text.h"
#include "sources/GitEnvironment.h"

namespace orvanta {

namespace fs = std::filesystem;

using namespace std::chrono_literals;

namespace {

constexpr auto cloneTimeout = 300s;
constexpr auto remoteTimeout = 60s;
constexpr auto localTimeout = 30s;
constexpr auto listTimeout = 10s;
// Of a checkout: far more than any collection of skills, far less than a disk.
constexpr std::size_t mostFiles = 200'000;
constexpr std::uint64_t mostBytes = std::uint64_t{4} << 30;
// More of git's words than a person reads; a hostile server can make it say any amount.
constexpr std::size_t longestFailureText = 4000;

// With one of these, as in a hook of the user's, git would work on another repository than the one it is told.
const std::set<std::string, std::less<>> strayVariables = {
    "GIT_DIR",       "GIT_WORK_TREE", "GIT_INDEX_FILE", "GIT_OBJECT_DIRECTORY", "GIT_ALTERNATE_OBJECT_DIRECTORIES",
    "GIT_NAMESPACE", "GIT_PREFIX",    "GIT_COMMON_DIR", "GIT_QUARANTINE_PATH"};

void refuseOption(const std::optional<std::string>& branch) {
  if (!branch || !branch->starts_with('-')) return;
  throw SkillsError::invalidInput(
      fmt::format("The branch name '{}' begins with '-', which no branch or tag of Git does", *branch));
}

void useProxy(const std::string& proxy, GitEnvironment& environment, std::vector<std::string>& arguments) {
  const bool isSecret = proxy.find('@') != std::string::npos;
  for (const std::string key : {"http.proxy", "https.proxy"}) {
    if (isSecret) {
      environment.configure(key, proxy);
    } else {
      arguments.insert(arguments.end(), {"-c", fmt::format("{}={}", key, proxy)});
    }
  }
}

struct Prepared {
  std::vector<std::string> words;
  GitEnvironment environment;
};

Prepared prepare(const GitSettings& settings, const std::vector<std::string>& arguments, const GitRunOptions& options) {
  Prepared result;
  auto& [words, environment] = result;
  if (options.repository == GitRunOptions::Repository::backup) {
    environment.limitToBackup(options.cwd.value_or("/"));
  } else {
    environment.limitToReading();
  }
  if (options.workTree) environment.useWorkTree(*options.workTree);
  if (options.index) environment.useIndex(*options.index);
  if (!settings.proxyURL.value_or("").empty()) useProxy(*settings.proxyURL, environment, words);
  words.insert(words.end(), arguments.begin(), arguments.end());
  if (!options.remote) return result;

  const bool isGithub = Text::lowercase(*options.remote).find(GitSource::githubHost) != std::string::npos;
  const auto token = isGithub && settings.githubToken ? settings.githubToken() : std::nullopt;
  if (!token.value_or("").empty()) environment.sendGithubToken(*token);
  const auto address = environment.withoutCredentials(*options.remote);
  std::replace(words.begin(), words.end(), *options.remote, address);
  return result;
}

std::string shown(const std::string& argument) {
  const bool isPlain = !argument.empty() && argument.find_first_of(" \t\n\"'\\$*?;&|<>()") == std::string::npos;
  return isPlain ? argument : fmt::format("'{}'", argument);
}

std::string commandLine(const fs::path& executable, const std::vector<std::string>& arguments) {
  auto text = shown(executable.string());
  for (const auto& argument : arguments) text += " " + shown(argument);
  return Text::singleLine(Text::maskCredentials(text));
}

// The ids of the refs in the output of ls-remote whose full names these are: it takes names for patterns, and so tells
// of others as well. The first name that is there counts.
std::optional<std::string> idOf(const std::vector<std::string>& refs, std::string_view output) {
  const auto lines = Text::split(output, '\n');
  for (const auto& ref : refs) {
    for (const auto line : lines) {
      const auto tab = line.find('\t');
      if (tab != std::string_view::npos && line.substr(tab + 1) == ref) return std::string(line.substr(0, tab));
    }
  }
  return std::nullopt;
}

// The size of a file in a line of ls-tree: "MODE TYPE ID SIZE<tab>PATH".
std::uint64_t sizeIn(std::string_view line) {
  const auto head = line.substr(0, std::min(line.find('\t'), line.size()));
  const auto digits = head.substr(head.rfind(' ') == std::string_view::npos ? head.size() : head.rfind(' ') + 1);
  std::uint64_t size = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), size);
  return size;
}

}  // namespace

SkillsError GitClient::failure(const std::string& command, const ProcessResult& result) {
  if (result.stopped) return SkillsError::git(fmt::format("git {} was stopped", command));
  const std::string words = Text::maskCredentials(result.failureText());
  std::vector<std::string> lines;
  for (const auto line : Text::split(words, '\n')) lines.push_back(Text::singleLine(line));
  const auto text = Text::join(lines, "; ");
  return SkillsError::git(fmt::format("git {} failed: {}", command, Text::prefixBytes(text, longestFailureText)));
}

fs::path GitSettings::installedGit() { return ProcessRunner::which("git").value_or("/usr/bin/git"); }

bool GitClient::isAvailable() const {
  std::error_code error;
  return fs::is_regular_file(settings_.executable, error) && ::access(settings_.executable.c_str(), X_OK) == 0;
}

void GitClient::shallowClone(const std::string& url, const std::optional<std::string>& branch, const fs::path& into,
                             const OperationContext& context) const {
  refuseOption(branch);
  std::vector<std::string> arguments = {"clone", "--depth", "1", "--quiet", "--no-tags", "--no-checkout"};
  if (branch) arguments.insert(arguments.end(), {"--branch", *branch});
  arguments.insert(arguments.end(), {"--", url, into.string()});
  runChecked(arguments, {.remote = url, .timeout = cloneTimeout}, context);
  refuseBoundless(into, context);
  runChecked({"reset", "--hard", "--quiet"}, {.cwd = into, .timeout = cloneTimeout}, context);
}

// A few kilobytes can stand for more files than there is memory or disk for, so they are counted before there are any.
void GitClient::refuseBoundless(const fs::path& checkout, const OperationContext& context) const {
  const auto listed = run({"ls-tree", "-r", "-l", "-z", "HEAD"}, {.cwd = checkout, .timeout = listTimeout}, context);
  if (listed.standardError.find("Not a valid object name HEAD") != std::string::npos) {
    throw SkillsError::git("The repository is empty: there is no commit to read");
  }
  if (!listed.succeeded() && !listed.timedOut) throw failure("ls-tree", listed);
  std::size_t files = 0;
  std::uint64_t bytes = 0;
  for (const auto line : Text::split(listed.standardOutput, '\0')) {
    ++files;
    bytes += sizeIn(line);
  }
  if (!listed.timedOut && files <= mostFiles && bytes <= mostBytes) return;
  throw SkillsError::git(
      fmt::format("The repository is too large: a checkout may have {} files and {} GiB", mostFiles, mostBytes >> 30));
}

std::string GitClient::remoteHead(const std::string& url, const std::optional<std::string>& branch,
                                  const OperationContext& context) const {
  refuseOption(branch);
  std::vector<std::string> refs = {"HEAD"};
  if (branch) {
    // A tag may be an object of its own; the commit that it stands for is listed under the name with "^{}".
    refs = {"refs/heads/" + *branch, "refs/tags/" + *branch + "^{}", "refs/tags/" + *branch};
  }
  std::vector<std::string> arguments = {"ls-remote", "--", url};
  arguments.insert(arguments.end(), refs.begin(), refs.end());
  const auto result = runChecked(arguments, {.remote = url, .timeout = remoteTimeout}, context);
  if (auto id = idOf(refs, result.standardOutput)) return *id;
  throw SkillsError::git(fmt::format("Remote has no {} ref", branch.value_or("HEAD")));
}

std::string GitClient::headRevision(const fs::path& checkout, const OperationContext& context) const {
  const auto result = runChecked({"rev-parse", "HEAD"}, {.cwd = checkout, .timeout = localTimeout}, context);
  return std::string(Text::trim(result.standardOutput));
}

std::optional<std::string> GitClient::currentBranch(const fs::path& checkout, const OperationContext& context) const {
  const auto result =
      runChecked({"rev-parse", "--abbrev-ref", "HEAD"}, {.cwd = checkout, .timeout = localTimeout}, context);
  const auto branch = Text::trim(result.standardOutput);
  return branch == "HEAD" ? std::nullopt : std::optional<std::string>(branch);
}

ProcessResult GitClient::run(const std::vector<std::string>& arguments, const GitRunOptions& options,
                             const OperationContext& context) const {
  if (!isAvailable()) {
    throw SkillsError::git(
        fmt::format("git is not installed (expected at {}). Install Xcode Command Line Tools. "
                    "On Linux, install the package git.",
                    settings_.executable.string()));
  }
  const auto [words, environment] = prepare(settings_, arguments, options);
  const RunOptions process = {.cwd = options.cwd,
                              .environment = environment.variables(),
                              .withheld = strayVariables,
                              .timeout = options.timeout,
                              .keepsBytes = options.listsFiles,
                              .stop = context.stop};
  const auto start = std::chrono::steady_clock::now();
  auto result = ProcessRunner::run(settings_.executable, words, process);
  if (settings_.onCommand) {
    const auto duration = std::chrono::steady_clock::now() - start;
    settings_.onCommand({.commandLine = commandLine(settings_.executable, words),
                         .duration = std::chrono::duration_cast<std::chrono::milliseconds>(duration)});
  }
  return result;
}

ProcessResult GitClient::runChecked(const std::vector<std::string>& arguments, const GitRunOptions& options,
                                    const OperationContext& context) const {
  auto result = run(arguments, options, context);
  if (!result.succeeded()) throw failure(arguments.front(), result);
  return result;
}

}  // namespace orvanta
