#pragma once

// Web sites that publish skills, as sources: how they are told from other words, and which of their skills are meant.

#include <string>

#include "cli/Session.h"
#include "cli/commands/InstallSource.h"
#include "sources/WellKnownIndex.h"

namespace orvanta::cli {

// Whether a word is "well-known:" and a site.
bool looksLikeSite(const std::string& word);

// Of "well-known:DOMAIN/SKILL" that skill; of "well-known:DOMAIN" those with the chosen names, or all if that was asked
// for or there is only one. Else the user chooses, or is told how many there are by a `UsageError`.
InstallSource siteNamed(Session& session, const std::string& word, const SourceChoice& choice);

// How a site offers a skill: "3 files", "archive", or why it cannot be installed.
std::string offerOf(const WellKnownIndex::Entry& entry);

}  // namespace orvanta::cli
