#include "cli/Session.h"

#include <fmt/format.h>

#include "cli/UsageError.h"
#include "foundations/SkillsError.h"
#include "foundations/Text.h"

namespace orvanta::cli {

namespace {

// More than anybody answers: what is piped in by mistake may have no end.
constexpr std::size_t kLongestLine = std::size_t{64} << 10;

}  // namespace

Session::Session(const Streams& streams, const GlobalOptions& options)
    : streams_(streams),
      options_(options),
      out_(streams.out, streams.outIsTerminal, streams.columns, colorChoice(options.color)),
      err_(streams.err, streams.errIsTerminal, streams.columns, colorChoice(options.color)) {}

const UserFolders& Session::user() {
  if (!user_) user_ = currentUserFolders();
  return *user_;
}

const Paths& Session::paths() {
  if (engine_) return engine_->paths();  // opening may have found it elsewhere, and a command may move it
  if (paths_) return *paths_;
  const auto chosen = options_.library.empty() ? environmentVariable("ORVANTA_HOME") : options_.library;
  return paths_.emplace(Paths::resolveDefault(user(), chosen));
}

const Paths& Session::settledPaths() {
  if (engine_) return engine_->paths();
  return paths_.emplace(SkillsEngine::settledPaths(paths(), user()));
}

std::string_view Session::namedBy() const {
  if (!options_.library.empty()) return "--library";
  return environmentVariable("ORVANTA_HOME") ? "ORVANTA_HOME" : "";
}

SkillsEngine& Session::engine() {
  if (engine_) return *engine_;
  try {
    engine_ = std::make_unique<SkillsEngine>(paths(), user());
  } catch (const SkillsError& error) {
    throw SkillsError(error.kind(),
                      fmt::format("The library at {} cannot be opened: {}", paths().base().string(), error.message()));
  }
  return *engine_;
}

void Session::note(std::string_view text) const {
  if (!options_.quiet) err_.line(text);
}

void Session::problem(std::string_view text) const {
  err_.line(fmt::format("{} {}", err_.styled("error:", Style::bad), text));
}

void Session::problems(const std::vector<std::string>& texts) const {
  if (json()) return;
  for (const std::string& text : texts) problem(Text::singleLine(text));
}

std::optional<std::string> Session::ask(std::string_view question) const {
  streams_.err << question << ' ' << std::flush;
  auto answer = readLine();
  if (!answer) streams_.err << '\n';
  return answer;
}

std::optional<std::string> Session::readLine() const {
  std::string line;
  char byte = 0;
  while (streams_.in.get(byte) && byte != '\n') {
    if (line.size() == kLongestLine) {
      throw SkillsError::invalidInput(
          fmt::format("A line of standard input is longer than {} KiB. Check what is piped in.", kLongestLine >> 10));
    }
    line += byte;
  }
  if (line.empty() && !streams_.in) return std::nullopt;
  return std::string(Text::trim(line));
}

void Session::confirm(std::string_view question) const {
  if (options_.yes) return;
  if (!canAsk()) {
    throw UsageError(fmt::format(
        "\"{}\" needs an answer, and there is no terminal to ask on. Add --yes to agree beforehand.", question));
  }
  const std::string answer = Text::lowercase(ask(fmt::format("{} [y/N]", question)).value_or(""));
  if (answer != "y" && answer != "yes") throw SkillsError::refused("Not confirmed, so nothing was changed.");
}

OperationContext Session::contextFor(ProgressLine& line, std::stop_token stop) const {
  OperationContext context{std::move(stop), {}};
  if (err_.isTerminal() && !options_.quiet) {
    context.progress = [&line](const Progress& progress) { line.show(progress); };
  }
  if (options_.verbose) {
    context.trace = [&line](std::string_view command) { line.writeAbove(command); };
  }
  return context;
}

}  // namespace orvanta::cli
