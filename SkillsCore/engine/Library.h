#pragma once

// What every component of the engine works on: where the library lies, its records, and whose folders it serves.

#include "files/Paths.h"
#include "persistence/SkillStore.h"
#include "platform/Host.h"

namespace orvanta {

struct Library {
  Paths paths;
  UserFolders user;
  SkillStore store;

  // Runs `body` in one write transaction, so that a bulk operation is written and flushed once.
  template <typename Body>
  auto transaction(Body body) {
    return store.connection().transaction(body);
  }
};

}  // namespace orvanta
