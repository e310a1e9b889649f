#include "cli/Application.h"

#include <algorithm>
#include <chrono>
#include <exception>

#include <fmt/format.h>

#include "cli/CommandLine.h"
#include "cli/Completion.h"
#include "cli/Help.h"
#include "cli/Output.h"
#include "cli/UsageError.h"
#include "foundations/SkillsError.h"
#include "foundations/Text.h"

namespace orvanta::cli {

namespace {

constexpr std::string_view kCompletionCommand = "__complete";

// Tells errors in the form that was asked for, also when the words could not be read.
class ErrorWriter {
 public:
  ErrorWriter(const std::vector<std::string>& words, const Streams& streams) : streams_(streams) {
    const auto end = std::find(words.begin(), words.end(), "--");
    json_ = std::find(words.begin(), end, "--json") != end;
    color_ = colorChoice(valueOfGlobal("--color", words));
  }

  void write(std::string_view kind, const std::string& message) const {
    if (json_) return writeError(streams_.err, kind, message);
    const Terminal terminal(streams_.err, streams_.errIsTerminal, streams_.columns, color_);
    std::string text;
    for (const std::string_view line : Text::split(message, '\n')) text += Text::singleLine(line) + '\n';
    streams_.err << terminal.styled("error:", Style::bad) << ' ' << text;
  }

 private:
  const Streams& streams_;
  bool json_ = false;
  ColorChoice color_ = ColorChoice::automatic;
};

bool asksForHelp(const std::vector<std::string>& words) {
  return std::any_of(words.begin(), words.end(), [](const auto& word) { return word == "--help" || word == "-h"; });
}

ExitStatus runCommand(const CommandLine& line, Session& session) {
  const auto start = std::chrono::steady_clock::now();
  const ExitStatus status = line.run(session);
  if (session.options().verbose && session.hasOpenedEngine()) {
    const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - start;
    session.note(fmt::format("Library {}, {:.1f} ms", session.paths().base().string(), taken.count()));
  }
  return status;
}

ExitStatus writeVersion(const Streams& streams) {
  streams.out << "orvanta " << version() << '\n';
  return ExitStatus::done;
}

ExitStatus runInvocation(const Command& command, const std::vector<std::string>& words, const Streams& streams,
                         const ErrorWriter& errors) {
  GlobalOptions globals;
  CommandLine line(command, globals);
  const auto parsed = line.parse(words);
  if (parsed == CommandLine::Parsed::wantsVersion) return writeVersion(streams);
  Session session(streams, globals);
  if (parsed == CommandLine::Parsed::wantsHelp) {
    writeHelp(session.out(), command);
    return ExitStatus::done;
  }
  try {
    return runCommand(line, session);
  } catch (const SkillsError& error) {
    errors.write(rawValue(error.kind()), error.message());
    return session.wasInterrupted() ? ExitStatus::interrupted : ExitStatus::failed;
  }
}

// The name of a command is missing: the words asked for help, or for nothing, or for what does not exist.
ExitStatus runWithoutCommand(const Invocation& invocation, const Streams& streams, const ErrorWriter& errors) {
  const bool isNoun = invocation.command != nullptr;
  if (!invocation.next.empty()) {
    throwUnknownCommand(isNoun ? invocation.name + " " + invocation.next : invocation.next);
  }
  if (asksForHelp(invocation.rest)) {
    const Terminal out(streams.out, streams.outIsTerminal, streams.columns, ColorChoice::automatic);
    isNoun ? writeHelp(out, *invocation.command) : writeOverview(out);
    return ExitStatus::done;
  }
  if (!isNoun) return runInvocation(*findCommand("status"), invocation.rest, streams, errors);
  throw UsageError(fmt::format("'orvanta {0}' needs a verb. 'orvanta help {0}' shows them.", invocation.name));
}

ExitStatus dispatch(const std::vector<std::string>& words, const Streams& streams, const ErrorWriter& errors) {
  if (words.size() == 1 && words.front() == "--version") return writeVersion(streams);
  const Invocation invocation = invocationOf(words);
  const bool runs = invocation.command != nullptr && invocation.command->setUp != nullptr;
  return runs ? runInvocation(*invocation.command, invocation.rest, streams, errors)
              : runWithoutCommand(invocation, streams, errors);
}

ExitStatus runReportingErrors(const std::vector<std::string>& words, const Streams& streams) {
  const ErrorWriter errors(words, streams);
  try {
    const ExitStatus status = dispatch(words, streams, errors);
    streams.out.flush();
    if (streams.out.good()) return status;
    errors.write("io", "The result could not be written to standard output.");
  } catch (const UsageError& error) {
    errors.write("invalidInput", error.what());
    return ExitStatus::usage;
  } catch (const SkillsError& error) {
    errors.write(rawValue(error.kind()), error.message());
  } catch (const std::exception& error) {
    errors.write("io", Text::singleLine(error.what()));
  }
  return ExitStatus::failed;
}

}  // namespace

std::string_view version() { return ORVANTA_VERSION; }

int run(const std::vector<std::string>& words, const Streams& streams) {
  if (!words.empty() && words.front() == kCompletionCommand) {
    writeCompletions(words, streams.out);
    return 0;
  }
  return static_cast<int>(runReportingErrors(words, streams));
}

}  // namespace orvanta::cli
