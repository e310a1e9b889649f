#include "engine/FolderChanges.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <optional>
#include <set>

#include <fmt/format.h>

#include "agents/ChangeJournal.h"
#include "files/FS.h"
#include "foundations/Parallel.h"
#include "foundations/SkillsError.h"
#include "foundations/Uuid.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

// The setting that names the last operation whose changes are recorded.
constexpr const char* kRecorded = "folder_changes_recorded";

bool isRecorded(Library& library, const ChangeJournal& journal) {
  return !journal.id.empty() && library.store.setting(kRecorded) == journal.id;
}

bool holdsContent(const TargetChange::Note& note) { return !note.stage.empty() && note.content.inode != 0; }

}  // namespace

FolderChanges::~FolderChanges() {
  try {
    if (!journal_.id.empty() && isSettled()) FS::removeAny(library_.paths.changeJournal());
  } catch (const SkillsError&) {
    return;  // the next opening of the library reads it
  }
}

// On a failing disk not everything can be cleared up, or taken back, at once.
bool FolderChanges::isSettled() {
  const auto& notes = journal_.notes;
  const bool isFinal = isRecorded(library_, journal_);
  return std::none_of(notes.begin(), notes.end(), [&](const TargetChange::Note& note) {
    return (!note.stage.empty() && FS::exists(note.stage)) || (!isFinal && TargetChange::isInPlace(note));
  });
}

void FolderChanges::make(const std::vector<TargetChange*>& changes, const Failed& failed) {
  std::vector<TargetChange*> real;
  std::vector<std::size_t> indices;
  for (std::size_t i = 0; i < changes.size(); ++i) {
    if (changes[i]->isNone()) continue;
    real.push_back(changes[i]);
    indices.push_back(i);
  }
  if (real.empty()) return;
  announce(real);
  parallelFor(real.size(), [&](std::size_t i) {
    try {
      real[i]->make();
    } catch (const SkillsError& error) {
      failed(indices[i], error);
    }
  });
  settle(real);
}

void FolderChanges::make(TargetChange& change) {
  std::optional<SkillsError> failure;
  make({&change}, [&](std::size_t, const SkillsError& error) { failure = error; });
  if (failure) throw SkillsError(*failure);
}

void FolderChanges::announce(const std::vector<TargetChange*>& changes) {
  if (journal_.id.empty()) {
    journal_.notes = healFolderChanges(library_);
    journal_.id = newUuid();
  }
  std::map<std::uint64_t, fs::path> disks;  // with new content on them, and a folder there
  std::set<fs::path> folders;
  for (const auto* change : changes) {
    journal_.notes.push_back(change->note());
    folders.insert(change->note().target.parent_path());
    if (holdsContent(change->note())) {
      disks.try_emplace(change->note().content.device, change->note().stage.parent_path());
    }
  }
  for (const auto& folder : folders) sweepStages(folder);
  const fs::path file = library_.paths.changeJournal();
  journal_.write(file);
  for (const auto& [device, folder] : disks) FS::flushTree(folder);
  if (!disks.contains(FS::identity(file).device)) FS::flushFile(file);
}

void FolderChanges::settle(const std::vector<TargetChange*>& changes) {
  std::set<fs::path> folders;
  for (const auto* change : changes) {
    if (change->isMade()) folders.insert(change->note().target.parent_path());
  }
  for (const auto& folder : folders) FS::flushFolder(folder);
}

void FolderChanges::recorded() {
  if (!journal_.id.empty()) library_.store.setSetting(kRecorded, journal_.id);
}

std::vector<TargetChange::Note> healFolderChanges(Library& library) {
  const fs::path file = library.paths.changeJournal();
  auto journal = ChangeJournal::read(file);
  if (!journal) return {};
  const bool isFinal = isRecorded(library, *journal);
  const std::size_t count = journal->notes.size();
  for (const auto& note : journal->notes) {
    isFinal ? TargetChange::finish(note) : TargetChange::takeBack(note);
  }
  std::erase_if(journal->notes, [](const auto& note) { return note.stage.empty() || !FS::exists(note.stage); });
  for (auto& note : journal->notes) note.kind = TargetChange::Kind::leftBehind;
  if (journal->notes.empty()) FS::removeAny(file);
  if (!isFinal && count > 0) {
    library.store.logAudit({.action = "recover", .detail = fmt::format("{} unfinished changes taken back", count)});
  }
  return std::move(journal->notes);
}

}  // namespace orvanta
