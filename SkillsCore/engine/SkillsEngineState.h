#pragma once

// What is behind the facade: the library, its components, and the turns by which operations share them. Only for the
// facade's own files.

#include "engine/AgentFolders.h"
#include "engine/AgentSettings.h"
#include "engine/AuditLog.h"
#include "engine/BackupRecords.h"
#include "engine/Deployment.h"
#include "engine/Diagnostics.h"
#include "engine/Import.h"
#include "engine/Installation.h"
#include "engine/Library.h"
#include "engine/Market.h"
#include "engine/MoveRecovery.h"
#include "engine/PathsInForce.h"
#include "engine/PresetApplication.h"
#include "engine/Presets.h"
#include "engine/ProjectExchange.h"
#include "engine/ProjectSkillMoves.h"
#include "engine/Projects.h"
#include "engine/Reconciliation.h"
#include "engine/Relocation.h"
#include "engine/Repair.h"
#include "engine/SkillActivation.h"
#include "engine/SkillRemoval.h"
#include "engine/Skills.h"
#include "engine/SkillsEngine.h"
#include "engine/Tags.h"
#include "engine/Updates.h"
#include "files/FS.h"
#include "files/LibraryLock.h"
#include "foundations/ThreadSafety.h"

namespace orvanta {

// The components in the order in which they build on one another.
struct Components {
  explicit Components(Library& library)
      : agents(library),
        presets(library),
        skills(library),
        tags(library),
        activation(library, skills),
        removal(library, skills),
        installation(library, skills),
        deployment(library, skills),
        repair(library),
        presetApplication(library, presets, deployment),
        folders(library, agents),
        import(library, agents, folders, skills),
        projects(library),
        projectExchange(library, skills, deployment, repair),
        projectMoves(library, deployment),
        updates(library, skills, repair),
        market(library),
        backup(library),
        reconciliation(library, skills, repair),
        audit(library),
        relocation(library),
        diagnostics(library) {}

  AgentSettings agents;
  Presets presets;
  Skills skills;
  Tags tags;
  SkillActivation activation;
  SkillRemoval removal;
  Installation installation;
  Deployment deployment;
  Repair repair;
  PresetApplication presetApplication;
  AgentFolders folders;
  Import import;
  Projects projects;
  ProjectExchange projectExchange;
  ProjectSkillMoves projectMoves;
  Updates updates;
  Market market;
  BackupRecords backup;
  Reconciliation reconciliation;
  AuditLog audit;
  Relocation relocation;
  Diagnostics diagnostics;
};

// One operation's turn, while which no other runs in this process.
class ORVANTA_SCOPED_CAPABILITY Turn {
 public:
  explicit Turn(Mutex& mutex) ORVANTA_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~Turn() ORVANTA_RELEASE() { mutex_.unlock(); }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

 private:
  Mutex& mutex_;
};

inline const Paths& withDirectories(const Paths& paths) {
  paths.ensureDirectories();
  return paths;
}

struct SkillsEngine::State {
  class ChangeReservation;
  class ChangeTurn;
  class UpdateMarks;

  State(const Paths& libraryPaths, const UserFolders& userFolders)
      : user(userFolders),
        pathsInForce(libraryPaths),
        library{withDirectories(libraryPaths), userFolders, SkillStore(libraryPaths.database())},
        components(library),
        openDatabase(FS::identity(libraryPaths.database())) {}

  [[nodiscard]] const Paths& paths() const { return pathsInForce.current(); }

  // Throws `conflict` when the library that was opened is no longer where it was: what this process changed would be
  // lost.
  void requireInPlace() const {
    requireNotMoving(paths());
    const auto found = FS::identity(paths().database());
    if (found.device == openDatabase.device && found.inode == openDatabase.inode) return;
    throw SkillsError::conflict("The library was moved or removed meanwhile; run the command again");
  }

  const UserFolders user;
  PathsInForce pathsInForce;
  Mutex changers;  // held by the one operation that changes the library, or waits to
  Mutex mutex;
  Library library ORVANTA_GUARDED_BY(mutex);
  Components components ORVANTA_GUARDED_BY(mutex);
  FS::Identity openDatabase;  // changed by the operation that holds `changers`
};

// The right to change the library, while which nobody else changes it, in this process or another, but everybody may
// read. The operations of this process that change something queue for it apart from those that read, so that nobody
// reads late because another process keeps the library's lock, or because git works on the files.
class SkillsEngine::State::ChangeReservation {
 public:
  // Another process may have ended half-way since this one opened the library.
  explicit ChangeReservation(State& state) ORVANTA_UNCHECKED : queue_(state.changers), lock_(lockOf(state)) {
    const Turn turn(state.mutex);
    healFolderChanges(state.library);
  }
  ~ChangeReservation() ORVANTA_UNCHECKED {}  // NOLINT(modernize-use-equals-default)
  ChangeReservation(const ChangeReservation&) = delete;
  ChangeReservation& operator=(const ChangeReservation&) = delete;

 private:
  static LibraryLock lockOf(const State& state) {
    state.requireInPlace();  // before the lock's file would be made anew in a folder that the library has left
    auto lock = LibraryLock::acquire(state.paths().lock(), kLockPatience);
    state.requireInPlace();
    return lock;
  }

  const Turn queue_;
  const LibraryLock lock_;
};

// A turn that changes the library.
class ORVANTA_SCOPED_CAPABILITY SkillsEngine::State::ChangeTurn {
 public:
  explicit ChangeTurn(State& state) ORVANTA_ACQUIRE(state.mutex) ORVANTA_UNCHECKED : reservation_(state),
                                                                                     turn_(state.mutex) {}
  ~ChangeTurn() ORVANTA_RELEASE() ORVANTA_UNCHECKED {}  // NOLINT(modernize-use-equals-default)
  ChangeTurn(const ChangeTurn&) = delete;
  ChangeTurn& operator=(const ChangeTurn&) = delete;

 private:
  const ChangeReservation reservation_;
  const Turn turn_;
};

}  // namespace orvanta
