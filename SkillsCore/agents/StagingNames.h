#pragma once

// The names under which the changes of a folder that other tools own let things wait beside their targets, and who may
// clear them up: new content under one, what it replaces, or what is removed, under another.
//
// New content is nobody's but its maker's, who holds a lock in the folder while there is any: whoever gets that lock
// knows that the maker has ended, however it ended and wherever it ran. What is replaced may be somebody's, and is
// never swept up.

#include <atomic>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "platform/UniqueFd.h"

namespace orvanta {

// Held while new content of this process waits in a folder.
class StagingLock {
 public:
  // The one that this process holds on the folder, else a new one. Throws `io`.
  static std::shared_ptr<StagingLock> of(const std::filesystem::path& folder);

  explicit StagingLock(const std::filesystem::path& folder);
  ~StagingLock();
  StagingLock(const StagingLock&) = delete;
  StagingLock& operator=(const StagingLock&) = delete;

  // A name in the folder for new content, given to nobody else.
  std::filesystem::path newStage();

 private:
  std::filesystem::path folder_;
  std::string token_;
  UniqueFd lock_;
  std::atomic<std::size_t> given_ = 0;
};

// A name beside the target for what is removed from there.
std::filesystem::path newAside(const std::filesystem::path& target);

// The name for what new content with this name replaces, and back.
std::filesystem::path asideOf(const std::filesystem::path& stage);
std::filesystem::path stageOf(const std::filesystem::path& aside);

// Whether a name is one of these.
bool isStageName(std::string_view name);

// Removes new content that processes which have ended left in a folder, and their locks.
void sweepStages(const std::filesystem::path& folder);

}  // namespace orvanta
