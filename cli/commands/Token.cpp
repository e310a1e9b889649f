#include "cli/CommandLine.h"
#include "cli/Output.h"
#include "cli/SecretInput.h"
#include "cli/UsageError.h"
#include "cli/commands/Common.h"
#include "foundations/Text.h"

namespace orvanta::cli {

namespace {

ExitStatus show(const Session& session, bool isSet, std::string_view sentence) {
  if (session.json()) {
    writeJson(session.out().stream(), {{"set", isSet}});
  } else {
    session.out().line(sentence);
  }
  return ExitStatus::done;
}

ExitStatus runStatus(Session& session) {
  const bool isSet = SkillsEngine::hasGithubToken();
  return show(session, isSet,
              isSet ? "A GitHub token is stored in the system's key store."
                    : "No GitHub token is stored, or no key store answers. Store one with: orvanta token set");
}

ExitStatus runSet(Session& session) {
  const std::string token = askSecret(session, "GitHub token (it is not shown):").value_or("");
  if (Text::trim(token).empty()) {
    throw UsageError(
        "There is no token on standard input. Type or pipe one in, or remove it with orvanta token clear.");
  }
  session.change([&](const OperationContext& context) { return session.engine().setGithubToken(token, context); });
  return show(session, true, "The token is stored in the system's key store. It is sent to GitHub only.");
}

ExitStatus runClear(Session& session) {
  const bool wasRemoved = session.change(
      [&](const OperationContext& context) { return session.engine().setGithubToken(std::nullopt, context); });
  return show(session, false,
              wasRemoved ? "The GitHub token is removed from the system's key store."
                         : "No GitHub token is stored, or no key store answers.");
}

}  // namespace

void setUpTokenStatus(CommandLine& line) {
  line.runs(runStatus);
  line.example("orvanta token status", "Whether a token is stored; it is never shown");
}

void setUpTokenSet(CommandLine& line) {
  line.runs(runSet);
  line.example("orvanta token set", "Type the token; the terminal does not show it");
  line.explain(
      "The token may also be piped in, as in 'orvanta token set < FILE'. A personal access token lets Orvanta read "
      "private repositories on GitHub. It lies in the system's key store (the Secret Service of a Linux desktop, the "
      "keychain of macOS) and nowhere else.");
}

void setUpTokenClear(CommandLine& line) {
  line.runs(runClear);
  line.example("orvanta token clear", "Remove the token from the key store");
}

}  // namespace orvanta::cli
