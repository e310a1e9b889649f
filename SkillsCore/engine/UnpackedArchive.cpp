// The archive half of installation: unpack, find the one skill, name it.

#include "content/Scanner.h"
#include "content/SkillMetadata.h"
#include "engine/Installation.h"
#include "files/TemporaryFolder.h"
#include "foundations/SkillsError.h"
#include "sources/Archive.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

fs::path onlySkillBelow(const fs::path& folder) {
  const auto skills = FS::skillsIn(folder);
  if (skills.empty()) throw SkillsError::invalidInput("Archive does not contain a SKILL.md");
  if (skills.size() > 1) {
    throw SkillsError::invalidInput("Archive contains " + std::to_string(skills.size()) +
                                    " skills; please install them one at a time");
  }
  return skills.front();
}

}  // namespace

struct UnpackedArchive::Contents {
  fs::path archive;
  TemporaryFolder folder;
  fs::path skill;
};

UnpackedArchive::UnpackedArchive(const fs::path& archive, const UserFolders& user, const std::stop_token& stop)
    : contents_(std::make_unique<Contents>(
          Contents{standardized(archive), TemporaryFolder(user.temp, "orvanta-archive-"), {}})) {
  const fs::path extracted = contents_->folder.path() / "extract";
  Archive::extract(contents_->archive, extracted, {}, stop);
  Archive::stripSymlinks(extracted);
  contents_->skill = onlySkillBelow(extracted);
}

UnpackedArchive::~UnpackedArchive() = default;

// A skill that does not name itself is named after the archive, not after the folder it was unpacked into.
InstallRequest UnpackedArchive::request(const std::optional<std::string>& name) const {
  std::optional<std::string> chosen = name ? name : SkillMetadata::parseSkillMd(contents_->skill).name;
  if (!name && !SkillMetadata::sanitizeSkillName(chosen.value_or(""))) chosen = contents_->archive.stem().string();
  return {.folder = contents_->skill,
          .name = chosen,
          .source = {.type = SourceType::local,
                     .ref = contents_->archive.string(),
                     .resolved = {},
                     .branch = {},
                     .subpath = {},
                     .revision = {}},
          .action = "install_archive"};
}

}  // namespace orvanta
