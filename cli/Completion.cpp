#include "cli/Completion.h"

#include <algorithm>
#include <exception>
#include <optional>
#include <system_error>

#include "cli/CommandLine.h"
#include "cli/Format.h"
#include "foundations/Text.h"

namespace orvanta::cli {

namespace {

using Candidates = std::vector<Candidate>;

// Where the cursor stands in the words of a command.
struct Place {
  const Input* option = nullptr;  // the option whose value is being typed
  std::size_t argument = 0;       // else the position among the arguments
  bool onlyArguments = false;     // after "--"
};

Place placeAfter(const CommandLine& line, const std::vector<std::string>& words) {
  Place place;
  for (const std::string& word : words) {
    if (!place.onlyArguments && word == "--") {
      place = {nullptr, place.argument, true};
    } else if (!place.onlyArguments && word.size() > 1 && word.front() == '-') {
      place.option = line.optionCalled(word);
      if (place.option != nullptr && place.option->isFlag()) place.option = nullptr;
    } else if (place.option == nullptr) {
      ++place.argument;
    } else if (!place.option->takesSeveral) {
      place.option = nullptr;
    }
  }
  return place;
}

Candidates commandNames(std::string_view noun) {
  const std::size_t skipped = noun.empty() ? 0 : noun.size() + 1;
  Candidates names;
  for (const Command& command : allCommands()) {
    const bool isBelow = noun.empty() || command.name.starts_with(std::string(noun) + " ");
    if (!isBelow || command.name.find(' ', skipped) != std::string_view::npos) continue;
    names.push_back({std::string(command.name.substr(skipped)), std::string(command.summary)});
  }
  return names;
}

Candidates optionNames(const CommandLine& line) {
  Candidates names;
  const auto add = [&](const std::vector<const Input*>& options) {
    for (const Input* option : options) {
      names.push_back({option->longName(), option->about});
    }
  };
  add(line.ownOptions());
  add(line.globalOptions());
  return names;
}

Candidates valuesOf(const Input& input, const LibraryWords& library) {
  Candidates values;
  for (const std::string& value : input.offered) values.push_back({value, ""});
  switch (input.completes) {
    case Completes::nothing: return values;
    case Completes::skills: return library.skills();
    case Completes::agents: return library.agents();
    case Completes::tags: return library.tags();
    case Completes::presets: return library.presets();
    case Completes::projects: return library.projects();
    case Completes::files: return {{std::string(kFilesCandidate), ""}};
    case Completes::commands: return commandNames("");
  }
  return values;
}

Candidates argumentValues(const CommandLine& line, std::size_t position, const LibraryWords& library) {
  const auto arguments = line.arguments();
  if (arguments.empty()) return {};
  if (position < arguments.size()) return valuesOf(*arguments[position], library);
  return arguments.back()->takesSeveral ? valuesOf(*arguments.back(), library) : Candidates{};
}

// "--color=al" is the value "al" of the option "--color".
std::optional<std::size_t> endOfOptionName(const std::string& word) {
  const std::size_t equals = word.find('=');
  if (!word.starts_with("--") || equals == std::string::npos) return std::nullopt;
  return equals;
}

Candidates allFor(const CommandLine& line, const std::vector<std::string>& before, const std::string& current,
                  const LibraryWords& library) {
  if (const auto end = endOfOptionName(current)) {
    const Input* option = line.optionCalled(current.substr(0, *end));
    Candidates values = option == nullptr ? Candidates{} : valuesOf(*option, library);
    for (Candidate& value : values) {
      if (value.word != kFilesCandidate) value.word.insert(0, current.substr(0, *end + 1));
    }
    return values;
  }
  const Place place = placeAfter(line, before);
  if (!place.onlyArguments && current.starts_with('-')) return optionNames(line);
  if (place.option != nullptr) return valuesOf(*place.option, library);
  Candidates values = argumentValues(line, place.argument, library);
  const auto verbs = place.argument == 0 ? commandNames(line.command().name) : Candidates{};
  values.insert(values.end(), verbs.begin(), verbs.end());
  return values;
}

bool fits(const Candidate& candidate, const std::string& wanted) {
  return candidate.word == kFilesCandidate || Text::comparisonKey(candidate.word).starts_with(wanted);
}

// A word with control characters cannot be typed, and in a script's answer it would end the line.
bool isTypable(const std::string& word) { return Text::singleLine(word) == word; }

// What is typed for something with a name and an id.
std::string wordFor(const std::string& name, const std::string& id) { return isTypable(name) ? name : id; }

LibraryWords wordsOf(Session& session) {
  // Looking must not make a library where there is none.
  const auto exists = [&session] {
    std::error_code error;
    return std::filesystem::exists(session.paths().database(), error);
  };
  LibraryWords library;
  library.skills = [&session, exists] {
    Candidates skills;
    if (!exists()) return skills;
    for (const SkillRecord& record : session.engine().skills()) {
      skills.push_back({wordFor(record.name, record.id), record.description.value_or("")});
    }
    return skills;
  };
  library.agents = [&session, exists] {
    Candidates agents;
    const auto adapters = exists() ? session.engine().adapters() : ToolAdapters::all({});
    for (const ToolAdapter& adapter : adapters) agents.push_back({adapter.key, adapter.displayName});
    return agents;
  };
  library.tags = [&session, exists] {
    Candidates tags;
    if (!exists()) return tags;
    for (const TagCount& tag : session.engine().allTags()) {
      tags.push_back({tag.tag, counted(static_cast<std::size_t>(tag.count), "skill")});
    }
    return tags;
  };
  library.presets = [&session, exists] {
    Candidates presets;
    if (!exists()) return presets;
    for (const Preset& preset : session.engine().presets()) {
      presets.push_back({wordFor(preset.name, preset.id), counted(preset.skillIds.size(), "skill")});
    }
    return presets;
  };
  library.projects = [&session, exists] {
    Candidates projects;
    if (!exists()) return projects;
    for (const ProjectRecord& project : session.engine().projectRecords()) {
      projects.push_back({wordFor(project.name, project.id), project.path});
    }
    return projects;
  };
  return library;
}

// bash hands "--color=al" over as three words.
std::vector<std::string> withoutLoneEquals(std::vector<std::string> words) {
  if (!words.empty() && words.back() == "=") words.back().clear();
  words.erase(std::remove(words.begin(), words.end(), "="), words.end());
  return words;
}

}  // namespace

std::vector<Candidate> candidatesFor(const std::vector<std::string>& words, const LibraryWords& library) {
  if (words.empty()) return {};
  const std::string& current = words.back();
  const Invocation invocation = invocationOf({words.begin(), words.end() - 1});
  GlobalOptions globals;
  const bool hasOptions = invocation.command != nullptr && invocation.command->setUp != nullptr;
  const CommandLine line(hasOptions ? *invocation.command : *findCommand("status"), globals);
  if (!hasOptions && !invocation.next.empty()) return {};
  const bool isCommand =
      !hasOptions && !current.starts_with('-') && placeAfter(line, invocation.rest).option == nullptr;
  Candidates candidates = isCommand ? commandNames(invocation.name) : allFor(line, invocation.rest, current, library);
  const std::string wanted = Text::comparisonKey(current);
  const auto unwanted = [&](const Candidate& each) { return !fits(each, wanted) || !isTypable(each.word); };
  candidates.erase(std::remove_if(candidates.begin(), candidates.end(), unwanted), candidates.end());
  return candidates;
}

void writeCompletions(const std::vector<std::string>& words, std::ostream& out) {
  try {
    const std::size_t first = words.size() > 1 && words[1] == "--" ? 2 : 1;
    const auto typed = withoutLoneEquals({words.begin() + static_cast<std::ptrdiff_t>(first), words.end()});
    GlobalOptions globals;
    globals.library = valueOfGlobal("--library", typed);
    // The session of a completion has no one to speak with.
    std::istream nothing(nullptr);
    std::ostream nowhere(nullptr);
    Session session({nothing, nowhere, nowhere}, globals);
    for (const Candidate& candidate : candidatesFor(typed, wordsOf(session))) {
      out << candidate.word;
      if (!candidate.about.empty()) out << '\t' << Text::fitToWidth(Text::singleLine(candidate.about), 60);
      out << '\n';
    }
    out.flush();
  } catch (const std::exception&) {
    // A library that cannot be read offers nothing; the command itself will say why.
  }
}

std::string_view completionScript(std::string_view shell) {
  if (shell == "bash") {
    return R"SCRIPT(_orvanta() {
  local current="${COMP_WORDS[COMP_CWORD]}" line
  COMPREPLY=()
  while IFS= read -r line; do
    if [ "$line" = ":files" ]; then
      compopt -o filenames 2>/dev/null
      while IFS= read -r line; do COMPREPLY+=("$line"); done < <(compgen -f -- "$current")
    else
      COMPREPLY+=("$(printf '%q' "${line%%$'\t'*}")")
    fi
  done < <(orvanta __complete -- "${COMP_WORDS[@]:1:COMP_CWORD-1}" "${current//\\/}" 2>/dev/null)
  }
complete -F _orvanta orvanta
)SCRIPT";
  }
  if (shell == "zsh") {
    return R"SCRIPT(#compdef orvanta
_orvanta() {
  local line
  local -a candidates
  local -i files=0
  while IFS= read -r line; do
    if [[ $line == ":files" ]]; then
      files=1
    else
      candidates+=("${${line%%$'\t'*}//:/\\:}${${(M)line%$'\t'*}/$'\t'/:}")
    fi
  done < <(orvanta __complete -- "${(@Q)words[2,CURRENT]}" 2>/dev/null)
  (( $#candidates )) && _describe -V 'orvanta' candidates
  (( files )) && _files
}
if [[ $funcstack[1] == _orvanta ]]; then _orvanta "$@"; else compdef _orvanta orvanta; fi
)SCRIPT";
  }
  return R"SCRIPT(function __orvanta_complete
  set -l words (commandline -opc)
  set -l current (commandline -ct)
  for line in (orvanta __complete -- $words[2..-1] "$current" 2>/dev/null)
    if test "$line" = ":files"
      __fish_complete_path "$current"
    else
      echo -- $line
    end
  end
end
complete -c orvanta -f -a '(__orvanta_complete)'
)SCRIPT";
}

}  // namespace orvanta::cli
