#pragma once

// Everything Orvanta does with Git repositories goes through the installed program git, by way of this client. Each
// operation is a process of its own; any number may run at once, from any thread. A stop that is requested in the
// context ends the process at once.
//
// No secret is ever visible to others: the GitHub token and what a URL or the proxy's address holds of user names and
// passwords reach git by its environment, and every text that leaves this client has them hidden.

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "files/TemporaryFolder.h"
#include "foundations/Operation.h"
#include "foundations/SkillsError.h"
#include "platform/ProcessRunner.h"
#include "sources/GitSource.h"

namespace orvanta {

// One command that git was given.
struct GitCommand {
  std::string commandLine;  // for a person to read, credentials hidden
  std::chrono::milliseconds duration{};
};

struct GitSettings {
  // The git of `ProcessRunner::which`, or /usr/bin/git.
  static std::filesystem::path installedGit();

  std::filesystem::path executable = installedGit();
  std::optional<std::string> proxyURL = {};  // for http and https; none or empty: whatever the user's git uses
  // A personal access token, sent to GitHub only; asked for by any thread, when a command talks to GitHub.
  std::function<std::optional<std::string>()> githubToken = {};
  std::filesystem::path temp = {};  // where checkouts go
  // Told of every command once it has ended, by the thread that ran it.
  std::function<void(const GitCommand&)> onCommand = {};
};

struct GitRunOptions {
  // What the command works on, which decides the limits that `GitEnvironment` sets: a checkout of what a stranger
  // published, or the repository that the working folder is, with the backup of the library.
  enum class Repository { ofStrangers, backup };

  std::optional<std::filesystem::path> cwd = std::nullopt;
  // The URL that the command talks to. An argument equal to it is handed over without its user name and password.
  std::optional<std::string> remote = std::nullopt;
  std::chrono::milliseconds timeout = std::chrono::seconds(30);
  Repository repository = Repository::ofStrangers;
  // Instead of the repository's own files and index.
  std::optional<std::filesystem::path> workTree = std::nullopt;
  std::optional<std::filesystem::path> index = std::nullopt;
  // The output lists file names, which need not be UTF-8.
  bool listsFiles = false;
};

class GitClient {
 public:
  explicit GitClient(GitSettings settings) : settings_(std::move(settings)) {}

  [[nodiscard]] bool isAvailable() const;
  [[nodiscard]] const std::filesystem::path& temporaryFolder() const { return settings_.temp; }

  // Clones the last commit of a branch or tag, or of the remote's default branch, into a new folder. On failure
  // something may be left there. Throws `git`, also for an empty repository and one with far too many files, and
  // `invalidInput` for a branch that git would take for an option.
  void shallowClone(const std::string& url, const std::optional<std::string>& branch, const std::filesystem::path& into,
                    const OperationContext& context) const;

  // The id of the commit that a remote branch, else a tag of this name, points to; without a name that of the default
  // branch. Throws as `shallowClone`, and `git` when the remote has no such branch or tag.
  [[nodiscard]] std::string remoteHead(const std::string& url, const std::optional<std::string>& branch,
                                       const OperationContext& context) const;

  // The id of the commit that is checked out.
  [[nodiscard]] std::string headRevision(const std::filesystem::path& checkout, const OperationContext& context) const;

  // None when no branch is checked out, as after cloning a tag.
  [[nodiscard]] std::optional<std::string> currentBranch(const std::filesystem::path& checkout,
                                                         const OperationContext& context) const;

  // Clones the source and returns what `body` makes of the checkout's folder, which is gone afterwards, however it
  // ends. Throws as `shallowClone` and as `body`, and `invalidInput` for a source that is not allowed.
  template <class Body>
  auto withCheckout(const ParsedGitSource& source, const OperationContext& context, Body&& body) const {
    GitSource::validate(source.originalURL);
    const TemporaryFolder folder(settings_.temp, "orvanta-clone-");
    const auto checkout = folder.path() / "repo";
    shallowClone(source.cloneURL, source.branch, checkout, context);
    return std::forward<Body>(body)(checkout);
  }

  // Runs git with these arguments and leaves the outcome to the caller. Throws `git` when it is not installed.
  [[nodiscard]] ProcessResult run(const std::vector<std::string>& arguments, const GitRunOptions& options,
                                  const OperationContext& context) const;

  // The same, where anything but success, a time-out or a stop included, throws `git` with git's own words.
  ProcessResult runChecked(const std::vector<std::string>& arguments, const GitRunOptions& options,
                           const OperationContext& context) const;

  // What a failed command is thrown as: git's own words on one line, credentials hidden.
  [[nodiscard]] static SkillsError failure(const std::string& command, const ProcessResult& result);

 private:
  void refuseBoundless(const std::filesystem::path& checkout, const OperationContext& context) const;

  GitSettings settings_;
};

}  // namespace orvanta
