#pragma once

// Git repositories as sources of skills: how they are told from other words, and which of their skills are meant.

#include <string>

#include "cli/Session.h"
#include "cli/commands/InstallSource.h"

namespace orvanta::cli {

// Whether a word that names no file may name a repository.
bool looksLikeRepository(const std::string& word);

// The skills at the chosen paths; without any, all of them if that was asked for or there is only one. Else the user
// chooses, or is told how many there are by a `UsageError`.
InstallSource repositoryNamed(Session& session, const std::string& url, const SourceChoice& choice);

}  // namespace orvanta::cli
