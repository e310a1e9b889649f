#pragma once

// Where a library is that a process was moving when it was killed.

#include <chrono>

#include "files/LibraryLock.h"
#include "files/Paths.h"
#include "platform/Host.h"

namespace orvanta {

// Where a move of the library at this place, or to it, was cut short: finishes it or takes it back. Returns where the
// library is now: the same place, or the one it moved to. A process that works on the move is waited for. Throws
// `conflict` with nothing changed when it works on longer than `patience`, when the other place cannot be reached, and
// where the traces of a move contradict one another; `io` and `database` when it cannot be put right.
Paths settledLibrary(const Paths& paths, const UserFolders& user, std::chrono::milliseconds patience = kLockPatience);

// Throws `conflict` when a move of the library away from this place has begun.
void requireNotMoving(const Paths& paths);

}  // namespace orvanta
