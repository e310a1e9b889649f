#pragma once

// The file that travels with the skills in a backup: what the library knows of each beyond its files.

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvanta {

struct BackupManifest {
  static constexpr std::int64_t kVersion = 1;
  // Below the library's skills folder, which is the repository.
  static constexpr std::string_view kFolder = ".orvanta";
  static constexpr std::string_view kPath = ".orvanta/manifest.json";

  struct Entry {
    std::string id;
    std::string name;
    std::optional<std::string> description;
    std::string dirName;  // of the skill's folder
    std::string sourceType;
    std::optional<std::string> sourceRef;
    std::optional<std::string> sourceRefResolved;
    std::optional<std::string> sourceBranch;
    std::optional<std::string> sourceSubpath;
    std::optional<std::string> sourceRevision;
    bool enabled = true;
    std::vector<std::string> tags;

    friend bool operator==(const Entry&, const Entry&) = default;
  };

  std::int64_t version = kVersion;
  std::int64_t exportedAt = 0;  // seconds since the epoch
  std::string device;
  std::vector<Entry> skills;

  // Nothing for what is no manifest: it may have been written by anybody. Of one in a later format only `version` is
  // read.
  static std::optional<BackupManifest> parse(std::string_view text);
  [[nodiscard]] bool isOfLaterFormat() const { return version > kVersion; }

  // As it is written: sorted keys, one value a line.
  [[nodiscard]] std::string text() const;
  // Whether both texts say the same of the skills; when and where they were written does not count.
  static bool saysTheSame(std::string_view a, std::string_view b);

  // The entries by folder; of several for one folder the first.
  [[nodiscard]] std::map<std::string_view, const Entry*> byFolder() const;
  // All of this one's entries, and the other's for further folders.
  [[nodiscard]] BackupManifest joinedWith(const BackupManifest& other) const;

  friend bool operator==(const BackupManifest&, const BackupManifest&) = default;
};

}  // namespace orvanta
