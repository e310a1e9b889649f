#include "content/ContentHash.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <numeric>

#include "content/Fingerprint.h"
#include "content/Sha256.h"
#include "files/FileReader.h"
#include "files/Paths.h"
#include "files/TreeCopy.h"
#include "foundations/Parallel.h"
#include "foundations/SkillsError.h"
#include "platform/UniqueFd.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

constexpr mode_t kExecute = S_IXUSR | S_IXGRP | S_IXOTH;

}  // namespace

bool ContentHash::isIgnored(std::string_view name) {
  constexpr std::array<std::string_view, 5> kNames{".git", ".DS_Store", "Thumbs.db", ".gitignore", "__pycache__"};
  constexpr std::string_view kCompiled = ".pyc";
  if (std::find(kNames.begin(), kNames.end(), name) != kNames.end()) return true;
  return name.size() >= kCompiled.size() && name.substr(name.size() - kCompiled.size()) == kCompiled;
}

std::vector<ContentEntry> ContentHash::listContentFiles(const fs::path& root) {
  const UniqueFd folder = openFolder(root);
  const fs::path base = standardized(root);
  std::vector<ContentEntry> entries;
  for (auto& found : listTree(folder.get(), root, isIgnored)) {
    if (found.kind == TreeEntry::Kind::directory) continue;
    struct stat status {};
    if (::fstatat(folder.get(), found.relativePath.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
      throw SkillsError::system("Cannot read " + (root / found.relativePath).string(), errno);
    }
    const bool isSymlink = found.kind == TreeEntry::Kind::symlink;
    entries.push_back({.relativePath = found.relativePath,
                       .url = base / found.relativePath,
                       .execBits = isSymlink ? 0U : static_cast<std::uint32_t>(status.st_mode & kExecute),
                       .modifiedMs = modifiedMillis(status),
                       .size = status.st_size,
                       .isSymlink = isSymlink});
  }
  return entries;
}

std::string ContentHash::hashEntries(const std::vector<ContentEntry>& entries) {
  Fingerprint fingerprint(isIgnored);
  for (const auto& entry : entries) {
    const std::string path = entry.url.string();
    if (entry.isSymlink) {
      fingerprint.link(entry.relativePath, readLinkText(AT_FDCWD, path, {}));
    } else {
      fingerprint.addFile(AT_FDCWD, path, entry.relativePath, {});
    }
  }
  return fingerprint.hex();
}

std::string ContentHash::hashDirectory(const fs::path& root) { return readDirectory(root).hash; }

ContentHash::FolderContent ContentHash::readDirectory(const fs::path& root) {
  const UniqueFd folder = openFolder(root);
  Fingerprint fingerprint(isIgnored);
  FolderContent content;
  const auto count = [&](std::int64_t modified) {
    content.latestModifiedMs = std::max(content.latestModifiedMs, std::optional(modified));
  };
  for (const auto& entry : listTree(folder.get(), root, isIgnored)) {
    if (entry.kind == TreeEntry::Kind::file) {
      count(fingerprint.addFile(folder.get(), entry.relativePath, entry.relativePath, root));
    }
    if (entry.kind == TreeEntry::Kind::symlink) {
      fingerprint.link(entry.relativePath, readLinkText(folder.get(), entry.relativePath, root));
      struct stat status {};
      if (::fstatat(folder.get(), entry.relativePath.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
        count(modifiedMillis(status));
      }
    }
  }
  content.hash = fingerprint.hex();
  return content;
}

std::vector<std::optional<std::string>> ContentHash::hashDirectories(const std::vector<fs::path>& roots,
                                                                     const OperationContext& context) {
  std::vector<std::optional<std::string>> hashes(roots.size());
  parallelFor(roots.size(), [&](std::size_t i) {
    if (context.stop.stop_requested()) return;
    try {
      hashes[i] = hashDirectory(roots[i]);
    } catch (const SkillsError&) {
      hashes[i] = std::nullopt;
    }
  });
  return hashes;
}

std::string ContentHash::copyAndHash(const fs::path& from, const fs::path& to) {
  Fingerprint fingerprint(isIgnored);
  FS::copySkillTree(from, to, &fingerprint);
  return fingerprint.hex();
}

std::int64_t ContentHash::totalSize(const std::vector<ContentEntry>& entries) {
  return std::accumulate(entries.begin(), entries.end(), std::int64_t{0},
                         [](std::int64_t sum, const ContentEntry& entry) { return sum + entry.size; });
}

std::optional<std::int64_t> ContentHash::latestModifiedMs(const std::vector<ContentEntry>& entries) {
  std::optional<std::int64_t> latest;
  for (const auto& entry : entries) latest = std::max(latest, entry.modifiedMs);
  return latest;
}

std::string ContentHash::sha256Hex(std::string_view bytes) {
  Sha256 digest;
  digest.add(bytes);
  return digest.hex();
}

std::int64_t FS::directorySize(const fs::path& folder) {
  try {
    return ContentHash::totalSize(ContentHash::listContentFiles(folder));
  } catch (const SkillsError&) {
    return 0;
  }
}

}  // namespace orvanta
