#pragma once

// Unpacking an archive whose maker is not trusted, with a look at whether it did what it promises.

#include <sys/stat.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <stop_token>
#include <string_view>
#include <thread>

#include "files/FS.h"
#include "fuzz/Fuzzing.h"
#include "sources/Archive.h"

namespace orvanta::fuzzing {

inline constexpr Archive::Limits unpackingLimits{.maxBytes = std::int64_t{1} << 20, .maxEntries = 50};

// What came out lies within the limits, and all of it belongs to its owner.
inline void requireHarmless(const std::filesystem::path& folder) {
  std::int64_t bytes = 0;
  std::int64_t entries = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    struct stat info {};
    require(::lstat(entry.path().c_str(), &info) == 0);
    require(S_ISDIR(info.st_mode) || S_ISREG(info.st_mode) || S_ISLNK(info.st_mode));
    require(S_ISLNK(info.st_mode) || (info.st_mode & 07022U) == 0);
    if (S_ISREG(info.st_mode)) bytes += info.st_size;
    ++entries;
  }
  require(bytes <= unpackingLimits.maxBytes && entries <= unpackingLimits.maxEntries);
}

// Calls `look` with the folder when unpacking worked. Nothing appears anywhere else, and nothing at all when it failed.
template <typename Look>
void unpack(std::string_view bytes, const Look& look) {
  const auto archive = scratchFolder() / "archive.zip";
  const auto work = scratchFolder() / "a" / "b" / "work";
  std::filesystem::create_directories(work);
  writeFile(archive, bytes);
  bool isUnpacked = false;
  // unzip never comes to an end with some damaged archives.
  std::stop_source stop;
  const std::jthread patience([&](const std::stop_token& done) {
    std::mutex mutex;
    std::unique_lock lock(mutex);
    std::condition_variable_any never;
    never.wait_for(lock, done, std::chrono::seconds(2), [] { return false; });
    if (!done.stop_requested()) stop.request_stop();
  });
  try {
    Archive::extract(archive, work / "unpacked", unpackingLimits, stop.get_token());
    isUnpacked = true;
  } catch (const SkillsError& error) {
    // unzip may fail at what nobody foresees.
    require(error.kind() == SkillsError::Kind::invalidInput || error.kind() == SkillsError::Kind::io);
  }
  require(FS::childNames(scratchFolder()).size() == 2 && FS::childNames(scratchFolder() / "a").size() == 1);
  require(FS::childNames(work.parent_path()).size() == 1 && FS::childNames(work).size() == (isUnpacked ? 1 : 0));
  if (!isUnpacked) return;
  requireHarmless(work / "unpacked");
  look(work / "unpacked");
  FS::removeAny(work / "unpacked");
}

}  // namespace orvanta::fuzzing
