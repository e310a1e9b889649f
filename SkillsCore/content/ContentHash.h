#pragma once

// A skill folder's fingerprint: it changes exactly when the skill's content changes.
//
// SHA-256 over the folder's files and links in the byte order of their relative paths. Each feeds its path, a zero
// byte, a letter (f: file, x: executable file, l: link), its length in decimal, a zero byte and its content (for a
// link: its text). Paths hold no zero byte and lengths are given, so different trees never feed the same bytes. Times,
// other permission bits, empty folders and ignored names do not count.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "files/TreeWalk.h"
#include "foundations/Operation.h"

namespace orvanta {

// One file or link that counts towards the fingerprint.
struct ContentEntry {
  std::string relativePath;
  std::filesystem::path url;  // absolute
  std::uint32_t execBits = 0;
  std::optional<std::int64_t> modifiedMs;
  std::int64_t size = 0;
  bool isSymlink = false;

  [[nodiscard]] bool isExecutable() const { return execBits != 0; }

  friend bool operator==(const ContentEntry&, const ContentEntry&) = default;
};

namespace ContentHash {

// Whether a name never counts: version control, caches and what file managers leave behind.
bool isIgnored(std::string_view name);

// The entries of a skill folder, sorted. Throws `io` when a folder cannot be read.
std::vector<ContentEntry> listContentFiles(const std::filesystem::path& root);

// The fingerprint as 64 lower-case hexadecimal digits. Throws `io` when a file cannot be read or changes meanwhile.
std::string hashEntries(const std::vector<ContentEntry>& entries);
std::string hashDirectory(const std::filesystem::path& root);

// A folder's fingerprint and the time of the last change of what counts towards it, in one pass.
struct FolderContent {
  std::string hash;
  std::optional<std::int64_t> latestModifiedMs;  // nothing in an empty folder
};
// Throws as `hashDirectory`.
FolderContent readDirectory(const std::filesystem::path& root);

// `hashDirectory` of each folder, on all cores; nothing where it failed, or where a stop was requested before its turn.
std::vector<std::optional<std::string>> hashDirectories(const std::vector<std::filesystem::path>& roots,
                                                        const OperationContext& context = {});

// Copies a skill folder as `FS::copySkillTree` does and returns the fingerprint of what was copied, reading each file
// once. Throws as that does.
std::string copyAndHash(const std::filesystem::path& from, const std::filesystem::path& to);

std::int64_t totalSize(const std::vector<ContentEntry>& entries);
std::optional<std::int64_t> latestModifiedMs(const std::vector<ContentEntry>& entries);

std::string sha256Hex(std::string_view bytes);

}  // namespace ContentHash

namespace FS {

// The bytes in a folder's files that count towards its fingerprint; 0 when it cannot be read.
std::int64_t directorySize(const std::filesystem::path& folder);

}  // namespace FS
}  // namespace orvanta
