#pragma once

// The library's skills folder as a Git repository: the git commands by which it is snapshotted, pushed, pulled and
// restored. Knows nothing of records.
//
// What was pulled may have been written by anybody, and what a nested repository in a skill says as well: no hook,
// filter, attribute or setting of theirs makes git run a program, and a nested repository is backed up as the files it
// is. Operations that change something are for one caller at a time; whoever calls keeps other processes of ours away.
// All throw `git` with git's words, credentials hidden, unless they say otherwise.

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "foundations/Models.h"
#include "foundations/Operation.h"
#include "foundations/SkillsError.h"
#include "sources/BackupManifest.h"
#include "sources/GitClient.h"

namespace orvanta {

// Both sides changed the same. Kind `conflict`.
class BackupConflict : public SkillsError {
 public:
  BackupConflict(const std::string& message, std::set<std::string> paths)
      : SkillsError(Kind::conflict, message), paths_(std::move(paths)) {}

  // The files on which the two sides differ, below the repository's folder.
  [[nodiscard]] const std::set<std::string>& paths() const { return paths_; }

 private:
  std::set<std::string> paths_;
};

class GitBackup {
 public:
  // The lines that its ignore file has at least: caches and locks stay out of the history.
  static const std::vector<std::string>& ignoredPatterns();

  GitBackup(std::filesystem::path root, GitSettings git) : root_(std::move(root)), git_(std::move(git)) {}

  [[nodiscard]] const std::filesystem::path& root() const { return root_; }

  // ── Looking ──
  [[nodiscard]] bool isRepository() const;
  // Never throws but for a stop: what cannot be found out is empty. Without what only records know.
  [[nodiscard]] BackupStatus status(const OperationContext& context) const;
  // With its credentials, if it has any.
  [[nodiscard]] std::optional<std::string> remoteURL(const OperationContext& context) const;
  // Newest first.
  [[nodiscard]] std::vector<BackupCommit> history(std::size_t limit, const OperationContext& context) const;
  [[nodiscard]] std::optional<std::string> headCommit(const OperationContext& context) const;
  // The same where there must be one. Throws `git` where there is none.
  [[nodiscard]] std::string requireHead(const OperationContext& context) const;
  // The full id of a snapshot given by some or all of its digits. Throws `invalidInput` for what is no such id, and
  // `notFound`.
  [[nodiscard]] std::string commitNamed(const std::string& id, const OperationContext& context) const;
  [[nodiscard]] bool isAncestor(const std::string& commit, const std::string& of,
                                const OperationContext& context) const;
  // Whether its user is merging this snapshot into the files.
  [[nodiscard]] bool isMerging(const std::string& commit, const OperationContext& context) const;
  // The newest snapshot that both come from, where they share one.
  [[nodiscard]] std::optional<std::string> mergeBase(const std::string& a, const std::string& b,
                                                     const OperationContext& context) const;
  // The first path components of what differs between two snapshots; the first may be none.
  [[nodiscard]] std::set<std::string> changedFolders(const std::optional<std::string>& from, const std::string& to,
                                                     const OperationContext& context) const;

  // The files that the second snapshot holds and the first does not.
  [[nodiscard]] std::vector<std::string> addedPaths(const std::string& from, const std::string& to,
                                                    const OperationContext& context) const;

  struct Item {
    std::string mode;  // as git writes it: "120000" is a link, "160000" another repository
    std::string path;
  };
  // Everything that a snapshot holds. Throws `git` for more than fits into 64 MiB.
  [[nodiscard]] std::vector<Item> tree(const std::string& commit, const OperationContext& context) const;
  // The content of a file in a snapshot; invalid UTF-8 is repaired.
  [[nodiscard]] std::optional<std::string> textIn(const std::string& commit, const std::string& path,
                                                  const OperationContext& context) const;
  // The manifest that a snapshot holds; nothing when there is none that can be read.
  [[nodiscard]] std::optional<BackupManifest> manifestIn(const std::string& commit,
                                                         const OperationContext& context) const;

  // ── Making snapshots ──
  void initialize(const OperationContext& context) const;
  // To be called before anything below: removes what a killed git left. Throws `conflict` while another git is at work.
  void makeReady(const OperationContext& context) const;
  // Throws `conflict` in the middle of a rebase, of a merge that is not settled, and where no branch is checked out.
  void refuseUnfinished(const OperationContext& context) const;
  // Nothing for a manifest that is not there or cannot be read.
  [[nodiscard]] std::optional<BackupManifest> readManifest() const;
  // Leaves one that says the same as it is, and returns false. Throws `io`.
  bool writeManifest(const BackupManifest& manifest) const;
  // Prepares a snapshot of everything as it is now. Meanwhile the manifest may be written.
  void stage(const OperationContext& context) const;
  void stageManifest(const OperationContext& context) const;
  // Takes the snapshot that was prepared; false when nothing has changed since the last one.
  bool commitStaged(const std::string& message, const OperationContext& context) const;

  // ── Sharing ──
  // None removes it. Throws `invalidInput` for what git could not, or must not, speak to.
  void setRemote(const std::optional<std::string>& url, const OperationContext& context) const;
  // Kind `invalidInput` without a remote, here and below.
  void push(const OperationContext& context) const;
  // The remote's newest snapshot, brought here but not into the files.
  [[nodiscard]] std::string fetch(const OperationContext& context) const;
  // The snapshot that brings two together: one of them, or a new one that nothing refers to yet. Throws
  // `BackupConflict` when both sides changed the same. The manifest never conflicts: what both say is joined.
  [[nodiscard]] std::string merged(const std::string& ours, const std::string& theirs,
                                   const OperationContext& context) const;
  // From now on the status compares with the remote's branch, where that is known here.
  void followRemote(const OperationContext& context) const;
  // A new repository here, which must be no folder yet or an empty one, without files: `checkOut` brings them.
  void clone(const std::string& url, const OperationContext& context) const;
  void checkOut(const OperationContext& context) const;

  // ── Going over to another snapshot ──
  // One on top of `head` with the files of an older one, so that nothing is lost from the history; `head` where it has
  // these files already. Nothing refers to it yet.
  [[nodiscard]] std::string restored(const std::string& commit, const std::string& head,
                                     const OperationContext& context) const;
  // Into a folder that holds, of the files of the snapshot `from`, at least those that differ in `to`, brings what is
  // in `to`. The repository's index must be that of `from`; the repository's own files are not touched. Throws
  // `conflict` for a file that would be replaced and is not as `from` has it.
  void bringChanges(const std::filesystem::path& folder, const std::string& from, const std::string& to,
                    const OperationContext& context) const;
  // Says that the repository's files, which were those of `from`, are those of `to`. Whatever is killed in it can be
  // done again. Does nothing where somebody else has moved on from `from` meanwhile.
  void moveTo(const std::string& from, const std::string& to, const OperationContext& context) const;

 private:
  using Words = std::vector<std::string>;

  // How long a command may take: one that asks, one that looks at all files, one that writes them, and the like.
  static constexpr std::chrono::seconds shortest{30};
  static constexpr std::chrono::seconds local{60};
  static constexpr std::chrono::seconds commitLimit{120};
  static constexpr std::chrono::seconds longLocal{300};
  static constexpr std::chrono::seconds network{600};
  // Of git's own small files, such as its configuration; in bytes.
  static constexpr std::size_t largestConfiguration = std::size_t{1} << 20;

  [[nodiscard]] GitRunOptions options(std::chrono::seconds timeout) const;
  ProcessResult run(const Words& arguments, std::chrono::seconds timeout, const OperationContext& context) const;
  ProcessResult check(const Words& arguments, std::chrono::seconds timeout, const OperationContext& context) const;
  [[nodiscard]] std::filesystem::path gitFolder(const OperationContext& context) const;
  [[nodiscard]] std::string branch(const OperationContext& context) const;
  [[nodiscard]] std::string listing(const Words& arguments, const OperationContext& context,
                                    const std::optional<std::filesystem::path>& workTree = std::nullopt) const;
  [[nodiscard]] std::vector<std::string> pathsOf(
      const Words& arguments, const OperationContext& context,
      const std::optional<std::filesystem::path>& workTree = std::nullopt) const;

  // An address with a password in it is for its owner's eyes.
  void setOrigin(const std::string& verb, const std::string& url, const OperationContext& context) const;

  void makeRepository(const OperationContext& context) const;
  void ensureGitignore() const;
  void ensureIdentity(const OperationContext& context) const;
  void ensureOwnRules(const std::filesystem::path& gitFolder) const;
  // What needs more than "git add": entries that are other repositories, and folders with an ignore file of their own.
  struct Index {
    Words references;
    std::set<std::string> ignoring;
  };
  [[nodiscard]] Index readIndex(const OperationContext& context) const;
  void stageHidden(const std::set<std::string>& folders, const OperationContext& context) const;
  void embed(const Words& folders, const OperationContext& context) const;
  void updateIndex(const Words& command, const Words& paths, const OperationContext& context) const;
  void takeSomeBranch(const OperationContext& context) const;
  [[nodiscard]] std::string mergedTree(const std::string& ours, const std::string& theirs,
                                       const OperationContext& context) const;
  [[nodiscard]] std::string withJoinedManifest(const std::string& tree, const std::string& ours,
                                               const std::string& theirs, const OperationContext& context) const;
  [[nodiscard]] std::string treeOf(const std::string& commit, const OperationContext& context) const;
  void withPathFile(const std::vector<std::string>& paths, Words arguments, const GitRunOptions& how,
                    const OperationContext& context) const;

  std::filesystem::path root_;
  GitClient git_;
};

}  // namespace orvanta
