#pragma once

// A folder in the library in which skills are made complete before they take their place: on the same file system,
// under a name that is never a skill's. Removed with all that is left in it when the work ends; one that a killed
// process left can be told from one in use, because the system drops the lock that its maker holds on it.

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "files/FS.h"
#include "platform/UniqueFd.h"

namespace orvanta {

class StagingFolder {
 public:
  static constexpr std::string_view kPrefix = ".installing-";

  // A skill that is about to leave the folder for its place in the library.
  struct Announced {
    std::string name;  // of its folder in the library
    FS::Identity identity;
    std::string stamp;  // `measureTree` of it
  };

  // Makes "PREFIXuuid" in the library's skills folder. Throws `io`.
  explicit StagingFolder(const std::filesystem::path& skillsFolder, std::string_view prefix = kPrefix);
  ~StagingFolder();
  StagingFolder(const StagingFolder&) = delete;
  StagingFolder& operator=(const StagingFolder&) = delete;

  // Leaves the folder to be found by a later start, as that of a killed process is.
  void leaveBehind() { path_.clear(); }

  // The place of the item with this number; nothing stands there yet.
  [[nodiscard]] std::filesystem::path slot(std::size_t number) const { return path_ / std::to_string(number); }

  // Notes which skills take which places, before they do. Together with the records this tells a later start what a
  // process brought into the library that was killed before it had recorded it. Throws `io`.
  void announce(const std::vector<Announced>& skills) const;
  // What was noted in a folder that a killed process left.
  static std::vector<Announced> announced(const std::filesystem::path& folder);

 private:
  std::filesystem::path path_;
  UniqueFd lock_;
};

}  // namespace orvanta
