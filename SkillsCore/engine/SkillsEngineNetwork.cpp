// What every operation on the network takes from the user's settings: the proxy and the GitHub token.

#include <future>

#include <fmt/format.h>

#include "engine/SkillsEngineState.h"
#include "foundations/Text.h"
#include "platform/HTTPClient.h"
#include "platform/Keychain.h"
#include "sources/GitClient.h"

namespace orvanta {

namespace {

// After a removal that removed nothing: there must have been nothing to remove, as far as anybody can tell.
void requireNoToken(const std::stop_token& stop) {
  const bool isStillThere = Keychain::githubToken(stop).has_value();
  if (stop.stop_requested()) throw SkillsError::io("Removing the GitHub token was stopped.");
  if (isStillThere) throw SkillsError::io("The key store did not remove the GitHub token. Unlock it and try again.");
}

}  // namespace

bool SkillsEngine::hasGithubToken() { return Keychain::githubToken().has_value(); }

bool SkillsEngine::setGithubToken(const std::optional<std::string>& token, const OperationContext& context) {
  if (!Keychain::setGithubToken(token, context.stop)) {
    requireNoToken(context.stop);
    return false;
  }
  const bool isSet = !Text::trim(token.value_or("")).empty();
  const State::ChangeTurn turn(*state_);
  state_->library.store.logAudit({.action = isSet ? "github_token_set" : "github_token_cleared"});
  return true;
}

std::optional<std::string> SkillsEngine::proxyURL() {
  const auto value = setting("proxy_url");
  return value.value_or("").empty() ? std::nullopt : value;
}

GitSettings SkillsEngine::gitSettings(const OperationContext& context) {
  GitSettings settings;
  settings.proxyURL = proxyURL();
  // Read when a command first needs it, and once: a key store may have to ask its user.
  auto token = std::async(std::launch::deferred, [stop = context.stop] { return Keychain::githubToken(stop); });
  settings.githubToken = [token = token.share()] { return token.get(); };
  settings.temp = state_->user.temp;
  settings.onCommand = [trace = context.trace](const GitCommand& command) {
    if (trace) trace(fmt::format("{} ({} ms)", command.commandLine, command.duration.count()));
  };
  return settings;
}

HTTPSettings SkillsEngine::httpSettings(const OperationContext& context) {
  HTTPSettings settings;
  settings.proxyURL = proxyURL().value_or("");
  settings.onExchange = [trace = context.trace](const HTTPExchange& exchange) {
    if (!trace) return;
    trace(fmt::format("{} {} → {} ({} ms)", exchange.method, exchange.url, exchange.status, exchange.duration.count()));
  };
  return settings;
}

}  // namespace orvanta
