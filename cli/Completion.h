#pragma once

// What a shell offers while a command line is being typed. The shells' scripts are a few lines that ask the program
// itself, so they know every command, option, skill, agent, tag, preset and project. Nothing here fails, asks or
// creates a library.

#include <functional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace orvanta::cli {

struct Candidate {
  std::string word;
  std::string about;  // shown beside the word where the shell can

  friend bool operator==(const Candidate&, const Candidate&) = default;
};

// A candidate that makes the shell offer files.
inline constexpr std::string_view kFilesCandidate = ":files";

// What can be named in a library.
struct LibraryWords {
  std::function<std::vector<Candidate>()> skills;
  std::function<std::vector<Candidate>()> agents;
  std::function<std::vector<Candidate>()> tags;
  std::function<std::vector<Candidate>()> presets;
  std::function<std::vector<Candidate>()> projects;
};

// What may stand in the place of the last of the words, which may be empty.
std::vector<Candidate> candidatesFor(const std::vector<std::string>& words, const LibraryWords& library);

// Answers a script: its words are "__complete", "--", and those typed after the program's name. One candidate a line, a
// tab between word and description.
void writeCompletions(const std::vector<std::string>& words, std::ostream& out);

// The script for "bash", "zsh" or "fish".
std::string_view completionScript(std::string_view shell);

}  // namespace orvanta::cli
