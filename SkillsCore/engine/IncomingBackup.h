#pragma once

// What must not come into the library from a remote, judged before git writes a single file.

#include <string>

#include "foundations/Operation.h"
#include "sources/GitBackup.h"

namespace orvanta {

// Throws `refused` for a snapshot that holds names under which Orvanta keeps its own work, references to other
// repositories, names that no file can have, a manifest of a later format, or, where `mustBeBackup`, neither a manifest
// nor any skill.
void judgeIncoming(const GitBackup& backup, const std::string& commit, bool mustBeBackup,
                   const OperationContext& context);

}  // namespace orvanta
