#include "sources/StagingFolder.h"

#include <algorithm>
#include <array>
#include <string>

#include "content/SkillMetadata.h"
#include "files/FS.h"
#include "files/LockedFolder.h"
#include "foundations/ForeignJSON.h"
#include "foundations/SkillsError.h"
#include "foundations/Uuid.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

constexpr const char* kJournal = "announced.json";

// Behind the name. Others need not fit.
bool holdsWholeNumbers(const Json& item) {
  constexpr std::array<std::size_t, 4> places{1, 2, 3, 4};
  return std::all_of(places.begin(), places.end(), [&](auto place) { return item.at(place).is_number_integer(); });
}

}  // namespace

StagingFolder::StagingFolder(const fs::path& skillsFolder, std::string_view prefix)
    : path_(skillsFolder / (std::string(prefix) + newUuid())), lock_(makeLockedFolder(path_)) {}

StagingFolder::~StagingFolder() {
  if (!path_.empty()) FS::removeQuietly(path_);
}

void StagingFolder::announce(const std::vector<Announced>& skills) const {
  Json list = Json::array();
  for (const auto& skill : skills) {
    const FS::Identity& id = skill.identity;
    list.push_back({skill.name, id.device, id.inode, id.type, id.modifiedNs, skill.stamp});
  }
  FS::writeOver(path_ / kJournal, jsonText(list));
}

std::vector<StagingFolder::Announced> StagingFolder::announced(const fs::path& folder) {
  constexpr std::size_t kLargest = std::size_t{64} << 20;
  std::vector<Announced> skills;
  const auto text = FS::readText(folder / kJournal, kLargest);
  const Json list = text ? parseForeignJSON(*text) : Json();
  if (!list.is_array()) return skills;
  try {
    for (const auto& item : list) {
      if (!holdsWholeNumbers(item)) return {};
      const FS::Identity identity{
          .device = item.at(1), .inode = item.at(2), .type = item.at(3), .modifiedNs = item.at(4)};
      skills.push_back({.name = item.at(0), .identity = identity, .stamp = item.at(5)});
    }
  } catch (const Json::exception&) {
    skills.clear();  // not ours
  }
  std::erase_if(skills, [](const Announced& skill) { return !SkillMetadata::isSafeFolderName(skill.name); });
  return skills;
}

}  // namespace orvanta
