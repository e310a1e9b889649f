#pragma once

// Where the library lies, and the one way in which locations become text and are compared.

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Host.h"

namespace orvanta {

// The absolute path without "." and "..", doubled or trailing separators; symbolic links are not resolved.
std::filesystem::path standardized(const std::filesystem::path& path);

// The path as text, without trailing separators ("/" stays "/").
std::string fsPath(const std::filesystem::path& path);

// `fsPath` of the standardised path: the form in which locations are stored and compared as text.
std::string comparablePath(const std::filesystem::path& path);

// True when `path` is `parent` or lies below it, by path components; symbolic links are not resolved.
bool isInside(const std::filesystem::path& path, const std::filesystem::path& parent);

// The text with a leading "~" or "~/" replaced by the home folder.
std::string expandingTilde(std::string_view text, const std::filesystem::path& home);

// The library's base folder and the fixed locations below it.
class Paths {
 public:
  // Stores the folder in standardised form.
  explicit Paths(const std::filesystem::path& base) : base_(standardized(base)) {}

  // The base folder in force: `orvantaHome` (the environment's choice) when not empty, else the user's saved choice,
  // else the default. A saved choice that cannot be read counts as none; never fails.
  static Paths resolveDefault(const UserFolders& user, const std::optional<std::string>& orvantaHome);

  static std::filesystem::path defaultBase(const UserFolders& user) { return user.home / ".orvanta"; }
  static std::filesystem::path configFile(const UserFolders& user) {
    return user.config / "orvanta" / "repo-config.json";
  }

  // Saves the user's choice, or clears it when there is none; other keys of the file are kept. Throws `io` with the
  // file unchanged.
  static void writeRepoPath(const UserFolders& user, const std::optional<std::filesystem::path>& base);

  [[nodiscard]] const std::filesystem::path& base() const { return base_; }
  [[nodiscard]] std::filesystem::path skills() const { return base_ / "skills"; }
  [[nodiscard]] std::filesystem::path database() const { return base_ / "orvanta.db"; }
  [[nodiscard]] std::filesystem::path cache() const { return base_ / "cache"; }
  [[nodiscard]] std::filesystem::path repoCache() const { return cache() / "repos"; }
  [[nodiscard]] std::filesystem::path logs() const { return base_ / "logs"; }
  [[nodiscard]] std::filesystem::path bin() const { return base_ / "bin"; }
  [[nodiscard]] std::filesystem::path lock() const { return base_ / ".orvanta.lock"; }

  // Stands while the library is on its way from or to this folder.
  [[nodiscard]] std::filesystem::path moveJournal() const { return base_ / ".moving.json"; }

  // Says what is about to change in agents' folders.
  [[nodiscard]] std::filesystem::path changeJournal() const { return base_ / ".changing"; }

  [[nodiscard]] bool isRelocated(const UserFolders& user) const;

  // Creates the folders of the library where they are missing. Throws `io` at the first that cannot be made.
  void ensureDirectories() const;

  friend bool operator==(const Paths&, const Paths&) = default;

 private:
  std::filesystem::path base_;
};

}  // namespace orvanta
