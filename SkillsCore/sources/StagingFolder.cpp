#include "sources/StagingFolder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>

#include "content/SkillMetadata.h"
#include "files/FS.h"
#include "foundations/ModelsJSON.h"
#include "foundations/SkillsError.h"
#include "foundations/Uuid.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

constexpr const char* kJournal = "announced.json";

UniqueFd openForLock(const fs::path& folder) {
  return UniqueFd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

}  // namespace

StagingFolder::StagingFolder(const fs::path& skillsFolder, std::string_view prefix)
    : path_(skillsFolder / (std::string(prefix) + newUuid())) {
  // Another process that heals the library may take the folder for a leftover until it is locked; it is then made anew.
  constexpr int kAttempts = 5;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (::mkdir(path_.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
      throw SkillsError::system("Cannot create " + path_.string(), errno);
    }
    lock_ = openForLock(path_);
    if (lock_ && ::flock(lock_.get(), LOCK_EX | LOCK_NB) == 0 && FS::isDirectory(path_)) return;
  }
  throw SkillsError::io("Cannot keep the folder " + path_.string() + "; another process removes it");
}

StagingFolder::~StagingFolder() {
  if (!path_.empty()) FS::removeQuietly(path_);
}

void StagingFolder::announce(const std::vector<Announced>& skills) const {
  Json list = Json::array();
  for (const auto& skill : skills) {
    const FS::Identity& id = skill.identity;
    list.push_back({skill.name, id.device, id.inode, id.type, id.modifiedNs});
  }
  FS::writeAtomically(path_ / kJournal, jsonText(list));
}

std::vector<StagingFolder::Announced> StagingFolder::announced(const fs::path& folder) {
  constexpr std::size_t kLargest = std::size_t{64} << 20;
  std::vector<Announced> skills;
  const auto text = FS::readText(folder / kJournal, kLargest);
  const Json list = text ? Json::parse(*text, nullptr, /*allow_exceptions=*/false) : Json();
  if (!list.is_array()) return skills;
  try {
    for (const auto& item : list) {
      const FS::Identity identity{
          .device = item.at(1), .inode = item.at(2), .type = item.at(3), .modifiedNs = item.at(4)};
      skills.push_back({.name = item.at(0), .identity = identity});
    }
  } catch (const Json::exception&) {
    skills.clear();  // not ours
  }
  std::erase_if(skills, [](const Announced& skill) { return !SkillMetadata::isSafeFolderName(skill.name); });
  return skills;
}

bool StagingFolder::isInUse(const fs::path& folder) {
  const UniqueFd fd = openForLock(folder);
  return fd && ::flock(fd.get(), LOCK_EX | LOCK_NB) != 0;
}

}  // namespace orvanta
