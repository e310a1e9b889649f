#pragma once

// What the commands for the backup show.

#include <string>

#include "cli/Session.h"

namespace orvanta::cli {

// "all saved 2026-01-31 12:00", "3 changes not saved, 1 to push".
std::string backupText(const BackupStatus& status);

// The state of the backup after a command: JSON, or the sentence.
ExitStatus showBackup(Session& session, const std::string& sentence);

// What a change of the files by git brought: JSON, or the sentence and the skills concerned.
ExitStatus showReconciled(Session& session, const ReconcileReport& report, const std::string& sentence);

}  // namespace orvanta::cli
