#pragma once

// What several commands share: the arguments they take and the results they show.

#include <algorithm>
#include <string>
#include <vector>

#include "cli/CommandLine.h"
#include "cli/Session.h"
#include "engine/Reports.h"
#include "foundations/SkillsError.h"

namespace orvanta::cli {

Input& skillArgument(CommandLine& line, std::string& target);
Input& skillArguments(CommandLine& line, std::vector<std::string>& target);
Input& agentArgument(CommandLine& line, std::string& target);
Input& agentOption(CommandLine& line, const std::string& name, std::string& target, const std::string& about);
Input& agentsOption(CommandLine& line, const std::string& name, std::vector<std::string>& target,
                    const std::string& about);

// "'pdf'", "3 skills".
std::string skillsAsText(const std::vector<SkillRecord>& records);
std::vector<std::string> idsOf(const std::vector<SkillRecord>& records);

// One skill after a change: JSON, or the sentence.
ExitStatus showSummary(const Session& session, const SkillSummary& summary, const std::string& sentence);

// A table of what was placed or removed when it fits on a screen, and always the figures: "3 placed, 1 left as it was".
void showPlacements(Session& session, const std::vector<Placement>& placements, const std::string& verb);

// "3 placed, 1 removed, 4 already there."
std::string figuresOf(const ApplyReport& report);

// The report after a change: JSON or the sentence, then what went wrong.
ExitStatus showReport(const Session& session, const ApplyReport& report, const std::string& sentence);

// The result of a look that may take long. A look that was stopped is no result: throws, and the run ends as
// interrupted.
template <typename Look>
auto lookedAt(Session& session, Look&& look) {
  auto found = session.change(std::forward<Look>(look));
  if (session.wasInterrupted()) throw SkillsError::refused("Stopped on request. Nothing was changed.");
  return found;
}

// The ids of all, the chosen ones first.
template <typename Record>
std::vector<std::string> idsWithFirst(const std::vector<Record>& chosen, const std::vector<Record>& all) {
  std::vector<std::string> ids;
  for (const Record& record : chosen) ids.push_back(record.id);
  for (const Record& record : all) {
    if (std::find(chosen.begin(), chosen.end(), record) == chosen.end()) ids.push_back(record.id);
  }
  return ids;
}

// Says that a bulk command was stopped, and errors one by one; nothing under --json but the former.
void showProblems(const Session& session, const std::vector<std::string>& errors, bool interrupted);

// The same where the result is an array, which has no room for errors: under --json they are one document on the error
// stream.
void showProblemsBesideArray(const Session& session, const std::vector<std::string>& errors, bool interrupted);

// The copies in agents' folders that could not be made anew after the skill changed, and why.
std::vector<std::string> copiesThatDidNotFollow(const SkillSummary& summary);

// A path as it was typed: absolute, from the working folder, or below an agent's folder.
std::filesystem::path pathInAgentFolder(Session& session, const std::string& typed, const std::string& agent);

}  // namespace orvanta::cli
