#include "sources/Installer.h"

#include "content/ContentHash.h"
#include "content/SkillMetadata.h"
#include "files/Paths.h"
#include "foundations/SkillsError.h"
#include "foundations/Text.h"
#include "sources/StagingFolder.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

bool holds(const fs::path& folder, const std::string& hash) {
  return FS::isDirectory(folder) && ContentHash::hashDirectories({folder}).front() == hash;
}

fs::path candidate(const fs::path& root, const std::string& name, int number) {
  return root / (number == 1 ? name : name + "-" + std::to_string(number));
}

void refuseOverlap(const fs::path& source, const fs::path& root) {
  const fs::path from = FS::resolved(source);
  const fs::path to = FS::resolved(root);
  if (isInside(to, from) || isInside(from, to)) {
    throw SkillsError::invalidInput("Source and destination overlap");
  }
}

}  // namespace

Installer::Destination Installer::uniqueDestination(const fs::path& root, const std::string& name,
                                                    const std::string& sourceHash, const Taken& taken) {
  for (int number = 1;; ++number) {
    const fs::path path = candidate(root, name, number);
    const auto earlier = taken.find(path);
    if (earlier != taken.end() && earlier->second == sourceHash) return {path, true};
    if (earlier != taken.end()) continue;
    if (!FS::exists(path)) return {path, false};
    if (holds(path, sourceHash)) return {path, true};
  }
}

std::string Installer::skillFolderName(const fs::path& source, const std::optional<std::string>& name) {
  if (!SkillMetadata::isValidSkillDir(source)) {
    throw SkillsError::invalidInput(source.string() + " is not a skill directory (no SKILL.md found)");
  }
  std::string wanted(name ? Text::trim(*name) : "");
  if (wanted.empty()) wanted = SkillMetadata::inferSkillName(source);
  const auto safe = SkillMetadata::sanitizeSkillName(wanted);
  if (!safe) throw SkillsError::invalidInput("Invalid skill name: " + wanted);
  return *safe;
}

Installer::PreparedSkill Installer::prepare(const fs::path& source, const std::optional<std::string>& name,
                                            const fs::path& root, const fs::path& slot) {
  PreparedSkill prepared{.source = source, .name = skillFolderName(source, name), .contentHash = {}, .staged = {}};
  refuseOverlap(source, root);
  if (FS::exists(candidate(root, prepared.name, 1))) {
    prepared.contentHash = ContentHash::hashDirectory(source);
    if (uniqueDestination(root, prepared.name, prepared.contentHash).reuse) return prepared;
  }
  try {
    prepared.contentHash = ContentHash::copyAndHash(source, slot);
  } catch (...) {
    FS::removeAny(slot);
    throw;
  }
  prepared.staged = slot;
  return prepared;
}

InstalledDirectory Installer::expect(const fs::path& source, const std::optional<std::string>& name,
                                     const fs::path& root, const Taken& taken) {
  const std::string folderName = skillFolderName(source, name);
  refuseOverlap(source, root);
  const std::string hash = ContentHash::hashDirectory(source);
  const Destination destination = uniqueDestination(root, folderName, hash, taken);
  return {.destination = destination.path, .name = folderName, .contentHash = hash, .reused = destination.reuse};
}

InstalledDirectory Installer::settle(const PreparedSkill& prepared, const Destination& destination) {
  if (destination.reuse ? !FS::isDirectory(destination.path) : !prepared.staged) {
    throw SkillsError::conflict("The library changed while '" + prepared.name + "' was installed; try again");
  }
  if (!destination.reuse) FS::renameExclusive(*prepared.staged, destination.path);
  return {.destination = destination.path,
          .name = prepared.name,
          .contentHash = prepared.contentHash,
          .reused = destination.reuse};
}

void Installer::unsettle(const InstalledDirectory& installed) noexcept {
  if (!installed.reused) FS::removeQuietly(installed.destination);
}

InstalledDirectory Installer::installDirectory(const fs::path& source, const fs::path& root,
                                               const std::optional<std::string>& name,
                                               const std::optional<fs::path>& fixedDestination) {
  const StagingFolder staging(root);
  if (!fixedDestination) {
    const PreparedSkill prepared = prepare(source, name, root, staging.slot(0));
    return settle(prepared, uniqueDestination(root, prepared.name, prepared.contentHash));
  }
  const std::string safeName = skillFolderName(source, name);
  refuseOverlap(source, *fixedDestination);
  const fs::path slot = staging.slot(0);
  const std::string hash = ContentHash::copyAndHash(source, slot);
  if (FS::exists(*fixedDestination)) {
    FS::exchange(slot, *fixedDestination);
  } else {
    FS::renameExclusive(slot, *fixedDestination);
  }
  return {.destination = *fixedDestination, .name = safeName, .contentHash = hash, .reused = false};
}

}  // namespace orvanta
