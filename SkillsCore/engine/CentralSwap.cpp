#include "engine/CentralSwap.h"

#include <string>

#include "engine/LibraryRecovery.h"
#include "files/FS.h"
#include "files/TreeCopy.h"
#include "foundations/SkillsError.h"
#include "foundations/Uuid.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

// Temporary folders can lie on another file system than the library.
void bring(const fs::path& staged, const fs::path& aside) {
  try {
    FS::renameExclusive(staged, aside);
  } catch (const SkillsError&) {
    FS::copySkillTree(staged, aside);
  }
}

}  // namespace

CentralSwap::CentralSwap(const fs::path& staged, const fs::path& central)
    : central_(central),
      aside_(central.parent_path() /
             (std::string(kReplacingPrefix) + central.filename().string() + "-" + newUuid().substr(0, 6))) {
  FS::createDirectories(central.parent_path());
  try {
    bring(staged, aside_);
    FS::flushTree(aside_);
    replaced_ = FS::exists(central_);
    replaced_ ? FS::exchange(aside_, central_) : FS::renameExclusive(aside_, central_);
  } catch (...) {
    FS::removeQuietly(aside_);
    throw;
  }
  try {
    FS::flushFolder(central_.parent_path());
  } catch (...) {
    takeBack();
    throw;
  }
}

CentralSwap::~CentralSwap() { kept_ ? FS::removeQuietly(aside_) : takeBack(); }

void CentralSwap::takeBack() noexcept {
  try {
    if (replaced_) FS::exchange(aside_, central_);
  } catch (const SkillsError&) {
    return;  // both stand: the next opening of the library reads the new content into the record
  }
  FS::removeQuietly(replaced_ ? aside_ : central_);
}

}  // namespace orvanta
