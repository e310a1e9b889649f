#include "engine/FolderChanges.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>

#include <fmt/format.h>

#include "files/FS.h"
#include "files/Paths.h"
#include "foundations/Parallel.h"
#include "foundations/SkillsError.h"
#include "foundations/Uuid.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

// The setting that names the last operation whose changes are recorded.
constexpr const char* kRecorded = "folder_changes_recorded";
// The operation of notes that only have to be cleared up, whatever is recorded since.
constexpr const char* kFinal = "final";

bool holdsContent(const TargetChange::Note& note) { return note.content.inode != 0; }

// A link that we place leads into the library, and no note of another is believed.
bool isForeign(const TargetChange::Note& note, const fs::path& skills) {
  if (note.kind != TargetChange::Kind::placedLink) return false;
  return !isInside(note.linkTo, skills) && !isInside(FS::resolved(note.linkTo), FS::resolved(skills));
}

// Brings what was noted to its end, the last first; returns what that failed for. What was taken back is on the disk.
ChangeJournal::Notes settled(Library& library, const ChangeJournal::Notes& notes) {
  const auto recorded = library.store.setting(kRecorded);
  ChangeJournal::Notes kept;
  std::set<fs::path> folders;
  std::set<fs::path> restored;
  for (std::size_t i = notes.size(); i-- > 0;) {
    const TargetChange::Note& note = notes[i];
    if (isForeign(note, library.paths.skills())) continue;
    const fs::path folder = note.target.parent_path();
    folders.insert(folder);
    const bool isFinal = note.operation == kFinal || note.operation == recorded;
    try {
      if (!FS::resolvesToDirectory(folder)) throw SkillsError::io(folder.string() + " is not there");
      isFinal ? TargetChange::finish(note) : TargetChange::takeBack(note);
      if (!isFinal) restored.insert(folder);
    } catch (const SkillsError&) {
      kept.insert(kept.begin(), note);
      if (isFinal) kept.front().operation = kFinal;
    }
  }
  for (const auto& folder : folders) sweepStages(folder);
  for (const auto& folder : restored) FS::flushFolder(folder);
  return kept;
}

void leaveInJournal(const Library& library, const ChangeJournal::Notes& notes) {
  const fs::path file = library.paths.changeJournal();
  notes.empty() ? FS::removeAny(file) : ChangeJournal::rewrite(file, notes);
}

}  // namespace

FolderChanges::~FolderChanges() {
  if (notes_.empty()) return;
  try {
    leaveInJournal(library_, settled(library_, notes_));
  } catch (const SkillsError&) {
    return;  // the next opening of the library reads it
  }
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
  std::vector<std::optional<SkillsError>> failures(real.size());
  parallelFor(real.size(), [&](std::size_t i) {
    try {
      real[i]->make();
    } catch (const SkillsError& error) {
      failures[i] = error;
    }
  });
  for (std::size_t i = 0; i < real.size(); ++i) {
    if (failures[i]) failed(indices[i], *failures[i]);
  }
  flush(real);
}

void FolderChanges::make(TargetChange& change) { makeOrThrow({&change}); }

void FolderChanges::makeTogether(std::vector<TargetChange>& changes) {
  std::vector<TargetChange*> all;
  for (auto& change : changes) all.push_back(&change);
  makeOrThrow(all);
}

void FolderChanges::makeOrThrow(const std::vector<TargetChange*>& changes) {
  std::optional<SkillsError> failure;
  make(changes, [&](std::size_t, const SkillsError& error) {
    if (!failure) failure = error;
  });
  if (failure) throw SkillsError(*failure);
}

void FolderChanges::announce(const std::vector<TargetChange*>& changes) {
  const fs::path file = library_.paths.changeJournal();
  ChangeJournal::requireOwn(file);
  if (notes_.empty() && FS::exists(file)) {  // what an earlier operation could not clear up, without a torn end
    notes_ = ChangeJournal::read(file);
    leaveInJournal(library_, notes_);
  }
  if (id_.empty()) id_ = newUuid();
  ChangeJournal::Notes added;
  std::map<std::uint64_t, fs::path> disks;  // with new content on them, and a folder there
  std::set<fs::path> folders;
  for (const auto* change : changes) {
    added.push_back(change->note());
    added.back().operation = id_;
    const fs::path folder = change->note().target.parent_path();
    folders.insert(folder);
    if (holdsContent(change->note())) disks.try_emplace(change->note().content.device, folder);
  }
  for (const auto& folder : folders) sweepStages(folder);
  notes_.insert(notes_.end(), added.begin(), added.end());
  ChangeJournal::append(file, added);
  for (const auto& [device, folder] : disks) FS::flushTree(folder);
  if (!disks.contains(FS::identity(file).device)) FS::flushFile(file);
}

void FolderChanges::flush(const std::vector<TargetChange*>& changes) {
  std::set<fs::path> folders;
  for (const auto* change : changes) {
    if (change->isMade()) folders.insert(change->note().target.parent_path());
  }
  for (const auto& folder : folders) FS::flushFolder(folder);
}

void FolderChanges::recorded() {
  if (!id_.empty()) library_.store.setSetting(kRecorded, id_);
}

void healFolderChanges(Library& library) {
  if (!ChangeJournal::isOwn(library.paths.changeJournal())) return;
  const auto notes = ChangeJournal::read(library.paths.changeJournal());
  const auto kept = settled(library, notes);
  leaveInJournal(library, kept);
  if (kept.size() == notes.size()) return;
  library.store.logAudit(
      {.action = "recover",
       .detail = fmt::format("{} unfinished changes brought to their end", notes.size() - kept.size())});
}

}  // namespace orvanta
