#include "content/TreeTransfer.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include <fmt/format.h>

#include "content/Fingerprint.h"
#include "files/FS.h"
#include "files/FileReader.h"
#include "foundations/SkillsError.h"
#include "platform/FileTimes.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

bool leavesOutNothing(std::string_view /*name*/) { return false; }

std::vector<TreeEntry> everythingIn(int folder, const fs::path& shown) {
  return listTree(folder, shown, leavesOutNothing);
}

class Transfer : public Fingerprint {
 public:
  explicit Transfer(const std::function<void()>& each) : Fingerprint(leavesOutNothing), each_(each) {}

  bool beginFile(const std::string& relativePath, std::int64_t size, bool executable) override {
    each_();
    return Fingerprint::beginFile(relativePath, size, executable);
  }

 private:
  const std::function<void()>& each_;
};

std::string fingerprintOf(int folder, const fs::path& shown, const std::vector<TreeEntry>& entries,
                          const std::function<void()>& each) {
  Fingerprint fingerprint(leavesOutNothing);
  for (const auto& entry : entries) {
    if (entry.kind == TreeEntry::Kind::symlink) {
      fingerprint.link(entry.relativePath, readLinkText(folder, entry.relativePath, shown));
    } else if (entry.kind == TreeEntry::Kind::file) {
      each();
      fingerprint.addFile(folder, entry.relativePath, entry.relativePath, shown);
    }
  }
  return fingerprint.hex();
}

}  // namespace

TreeMeasure measureTree(const fs::path& root) {
  constexpr std::int64_t kBlock = 4096;
  const UniqueFd folder = openFolder(root);
  TreeMeasure measure{.bytes = kBlock, .files = 0, .stamp = {}};
  Sha256 digest;
  for (const auto& entry : everythingIn(folder.get(), root)) {
    struct stat status {};
    if (::fstatat(folder.get(), entry.relativePath.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
      throw SkillsError::system("Cannot read " + (root / entry.relativePath).string(), errno);
    }
    const bool isFile = entry.kind == TreeEntry::Kind::file;
    measure.bytes += isFile ? (status.st_size + kBlock - 1) / kBlock * kBlock : kBlock;
    measure.files += isFile ? 1U : 0U;
    const timespec& modified = modificationTime(status);
    // Counting what a folder holds, not when it changed: reading programs leave and take away files beside theirs.
    digest.add(fmt::format("{}\n{} {} {} {}.{}\n", entry.relativePath, status.st_mode, status.st_ino,
                           isFile ? status.st_size : 0, isFile ? modified.tv_sec : 0, isFile ? modified.tv_nsec : 0));
  }
  measure.stamp = digest.hex();
  return measure;
}

void copyAndCompare(const fs::path& from, const fs::path& to, const std::function<void()>& each) {
  Transfer read(each);
  FS::copyWholeTree(from, to, &read);
  FS::flushTree(to);
  const UniqueFd source = openFolder(from);
  const UniqueFd copy = openFolder(to);
  const auto copied = everythingIn(copy.get(), to);
  const bool isSame =
      copied == everythingIn(source.get(), from) && fingerprintOf(copy.get(), to, copied, each) == read.hex();
  if (isSame) return;
  throw SkillsError::io("The copy of " + from.string() + " at " + to.string() +
                        " is not what was copied: the folder changed meanwhile, or the disk cannot be trusted");
}

bool isSameTree(const fs::path& a, const fs::path& b) {
  const UniqueFd first = openFolder(a);
  const UniqueFd second = openFolder(b);
  const auto entries = everythingIn(first.get(), a);
  const auto each = [] {};
  return entries == everythingIn(second.get(), b) &&
         fingerprintOf(first.get(), a, entries, each) == fingerprintOf(second.get(), b, entries, each);
}

}  // namespace orvanta
