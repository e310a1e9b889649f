#pragma once

// Copies whole folder trees with permission bits and modification times, by the file system's copy-on-write where it
// has it. Links are copied as links; fifos, sockets and devices are left out.

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "files/TreeWalk.h"

namespace orvanta {

// Told of every file and link as it is copied, in the order of `listTree`, so that the bytes are read only once.
class CopyObserver {
 public:
  CopyObserver() = default;
  CopyObserver(const CopyObserver&) = delete;
  CopyObserver& operator=(const CopyObserver&) = delete;
  virtual ~CopyObserver() = default;

  // Whether the bytes of this file are wanted; if so, `bytes` follows until `size` bytes were given.
  virtual bool beginFile(const std::string& relativePath, std::int64_t size, bool executable) = 0;
  virtual void bytes(std::string_view block) = 0;
  virtual void link(const std::string& relativePath, std::string_view destination) = 0;
};

namespace FS {

// Copies the tree `from` to `to`, which must not exist yet; its parents are made. ".git" is left out at every level,
// set-user-id and the like are dropped.
// Throws `invalidInput` "Source and destination overlap" before anything is made, `io` otherwise; what was copied by
// then stays, and the caller removes it.
void copyTree(const std::filesystem::path& from, const std::filesystem::path& to);

// The same for a skill on its way into or out of the library: ".DS_Store" is left out as well, and the root is always
// writable for its owner, without which it could not be moved from its staging folder to its place.
void copySkillTree(const std::filesystem::path& from, const std::filesystem::path& to,
                   CopyObserver* observer = nullptr);

// The same with nothing left out and nothing changed: ".git", the times of links and all permission bits are kept.
void copyWholeTree(const std::filesystem::path& from, const std::filesystem::path& to,
                   CopyObserver* observer = nullptr);

}  // namespace FS
}  // namespace orvanta
