#include "engine/MoveChecks.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include <fmt/format.h>

#include "agents/ChangeJournal.h"
#include "agents/ToolAdapters.h"
#include "content/TreeTransfer.h"
#include "engine/LibraryMove.h"
#include "engine/LibraryRecovery.h"
#include "engine/MoveJournal.h"
#include "engine/Projects.h"
#include "files/FS.h"
#include "files/LockedFolder.h"
#include "foundations/SkillsError.h"
#include "foundations/Text.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

constexpr const char* kAdvice = "; choose a folder that is empty or does not exist yet";

SkillsError unusable(const fs::path& folder, const std::string& reason) {
  return SkillsError::invalidInput("Destination " + folder.string() + " " + reason);
}

std::string megabytes(std::int64_t bytes) { return fmt::format("{:.1f} MB", static_cast<double>(bytes) / 1e6); }

}  // namespace

bool MoveChecks::isHere() const {
  return to_ == library_.paths ||
         (FS::isDirectory(to_.base()) && FS::resolved(to_.base()) == FS::resolved(library_.paths.base()));
}

void MoveChecks::require() {
  requireLibraryMovable();
  requireFolder();
  requireApartFromAgents();
  requireApartFromProjects();
  const fs::path existing = nearestExisting();
  if (::access(existing.c_str(), W_OK | X_OK) != 0) {
    throw SkillsError::system("Cannot write to " + existing.string(), errno);
  }
  if (!isOnOneDisk()) requireRoom(size());
}

void MoveChecks::requireLibraryMovable() const {
  const Paths& from = library_.paths;
  if (MoveJournal::exists(from)) {
    throw SkillsError::conflict(
        "An earlier move of the library is not finished: something could not be removed from the old folder, which " +
        from.moveJournal().string() + " names");
  }
  for (const auto* name : LibraryMove::folders) {
    const fs::path folder = from.base() / name;
    if (FS::isDirectory(folder) || FS::isCertainlyAbsent(folder)) continue;
    throw SkillsError::conflict(folder.string() + " is not a folder but a link or a file; put the folder itself there");
  }
  // Its notes name places by their paths, of which some lead into the library.
  const auto unfinished = ChangeJournal::read(from.changeJournal());
  if (!unfinished.empty()) {
    throw SkillsError::conflict("A change at " + unfinished.front().target.string() +
                                " was cut short and could not be brought to its end; make that folder available and "
                                "writable, or remove " +
                                from.changeJournal().string() + " to leave it as it is, and try again");
  }
  for (const auto& name : FS::childNames(from.skills())) {
    if (!isSetAside(name) || !isFolderLocked(from.skills() / name)) continue;
    throw SkillsError::conflict("Skills are being installed or updated; wait until that has finished and try again");
  }
}

void MoveChecks::requireFolder() const {
  const fs::path& folder = to_.base();
  for (const auto& path : {folder, library_.paths.base()}) {
    if (!Text::isValidUTF8(path.string())) {
      throw SkillsError::invalidInput("The name " + Text::repairUTF8(path.string()) +
                                      " is not valid UTF-8; a library that moves needs another");
    }
  }
  const fs::path old = FS::resolved(library_.paths.base());
  switch (FS::kind(folder)) {
    case FS::Kind::symlink: throw unusable(folder, "is a link" + std::string(kAdvice));
    case FS::Kind::file: throw unusable(folder, "is a file" + std::string(kAdvice));
    case FS::Kind::directory:
      if (isInside(old, FS::resolved(folder))) throw unusable(folder, "holds the current library");
      requireEmpty();
      break;
    case FS::Kind::absent: break;
  }
  if (isInside(FS::resolved(folder), old))
    throw SkillsError::invalidInput("Destination is inside the current library: " + folder.string());
  if (!FS::resolvesToDirectory(nearestExisting())) {
    throw unusable(folder, "cannot be made: " + nearestExisting().string() + " is not a folder");
  }
}

void MoveChecks::requireEmpty() const {
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(to_.base(), error)) {
    const std::string name = entry.path().filename().string();
    // What a move that was cut short at its very beginning leaves is incidental; its journal is not, for it has begun.
    if (!isIncidental(name) || name == to_.moveJournal().filename())
      throw unusable(to_.base(), "is not empty" + std::string(kAdvice));
  }
  if (error) throw SkillsError::system("Cannot read the folder " + to_.base().string(), error.value());
}

void MoveChecks::requireApartFromAgents() {
  for (const auto& adapter : ToolAdapters::all(library_.store.toolOverrides())) {
    const std::string whose = adapter.displayName + "'s skills folder ";
    for (const auto& folder : adapter.allScanDirs(library_.user)) requireApartFrom(folder, whose);
  }
}

// What lies in a workspace's folders counts as its skills; and a workspace that lies in the library is refused as well.
void MoveChecks::requireApartFromProjects() {
  for (const auto& workspace : Projects(library_).all()) {
    const std::string whose = "a folder of the project '" + workspace.record().name + "', ";
    for (const auto& root : workspace.roots()) requireApartFrom(root, whose);
    if (isInside(FS::resolved(workspace.record().path), FS::resolved(to_.base()))) {
      throw unusable(to_.base(), "holds " + whose + workspace.record().path);
    }
  }
}

void MoveChecks::requireApartFrom(const fs::path& folder, const std::string& whose) const {
  const fs::path destination = FS::resolved(to_.base());
  const fs::path other = FS::resolved(folder);
  if (isInside(destination, other)) throw unusable(to_.base(), "is inside " + whose + folder.string());
  if (isInside(other, destination)) throw unusable(to_.base(), "holds " + whose + folder.string());
}

fs::path MoveChecks::nearestExisting() const {
  fs::path folder = to_.base();
  while (!FS::exists(folder) && folder.has_relative_path()) folder = folder.parent_path();
  return folder;
}

int MoveChecks::missingFolders() const {
  const fs::path existing = nearestExisting();
  int missing = 0;
  for (fs::path folder = to_.base(); folder != existing; folder = folder.parent_path()) ++missing;
  return missing;
}

bool MoveChecks::isOnOneDisk() const {
  const auto device = FS::identity(FS::resolved(nearestExisting())).device;
  const fs::path base = FS::resolved(library_.paths.base());
  return FS::identity(base).device == device &&
         std::all_of(std::begin(LibraryMove::folders), std::end(LibraryMove::folders), [&](const char* name) {
           return !FS::exists(base / name) || FS::identity(base / name).device == device;
         });
}

std::int64_t MoveChecks::size() const {
  std::int64_t bytes = 0;
  for (const auto* name : LibraryMove::folders) {
    if (FS::isDirectory(library_.paths.base() / name)) bytes += measureTree(library_.paths.base() / name).bytes;
  }
  std::error_code error;
  for (const auto* suffix : {"", "-wal"}) {
    const auto size = fs::file_size(library_.paths.database().string() + suffix, error);
    if (!error) bytes += static_cast<std::int64_t>(size);
  }
  // The database is written once more when its records are changed.
  constexpr std::int64_t kReserve = std::int64_t{1} << 20;
  return bytes + kReserve;
}

void MoveChecks::requireRoom(std::int64_t bytes) const {
  std::error_code error;
  const auto space = fs::space(nearestExisting(), error);
  if (error) throw SkillsError::system("Cannot ask for the free space at " + nearestExisting().string(), error.value());
  if (space.available >= static_cast<std::uintmax_t>(bytes)) return;
  throw SkillsError::io(fmt::format("There is not enough room at {}: the library takes {}, and {} are free",
                                    to_.base().string(), megabytes(bytes),
                                    megabytes(static_cast<std::int64_t>(space.available))));
}

}  // namespace orvanta
