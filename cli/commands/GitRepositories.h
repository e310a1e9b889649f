#pragma once

// Git repositories as sources of skills: how they are told from other words, and which of their skills are meant.

#include <string>
#include <vector>

#include "cli/Session.h"

namespace orvanta::cli {

// A source named on the command line, and what of it is to be installed.
struct Repository {
  std::string url;
  GitChoice choice;
};

// Whether a word that names no file may name a repository.
bool looksLikeRepository(const std::string& word);

// The skills at `paths`; without any, all of them if that was asked for or there is only one. Else the user chooses, or
// is told how many there are by a `UsageError`.
Repository repositoryNamed(Session& session, const std::string& url, const std::vector<std::string>& paths, bool all);

}  // namespace orvanta::cli
