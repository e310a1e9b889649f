// The community directory, as the engine offers it. No turn is held while the network is waited for. What is kept of
// answers is nobody's work: keeping it takes no lock against other processes, and fails silently.

#include <algorithm>

#include <fmt/format.h>

#include "engine/GitInstallation.h"
#include "engine/SkillsEngineState.h"
#include "foundations/Text.h"
#include "sources/PlazzaAPI.h"

namespace orvanta {

namespace {

using PlazzaSkills = std::vector<PlazzaSkill>;

constexpr double kLeaderboardSeconds = 3600;
constexpr double kSearchSeconds = 600;
constexpr std::size_t kLongestName = 100;  // of users and repositories on GitHub

// A row that cannot be read counts as absent.
std::optional<PlazzaSkills> keptSkills(SkillStore& store, const std::string& key, double maxAge) {
  const auto data = store.cached(key, maxAge);
  if (!data) return std::nullopt;
  try {
    return Json::parse(*data).get<PlazzaSkills>();
  } catch (const Json::exception&) {
    return std::nullopt;
  }
}

void keep(SkillStore& store, const std::string& key, const PlazzaSkills& skills) {
  if (skills.empty()) return;
  try {
    store.cache(key, jsonText(Json(skills)));
  } catch (const SkillsError&) {
    return;  // it will be fetched again
  }
}

// The answers of another directory than the usual one have keys of their own, which no key of the usual one can equal.
std::string keyAt(const PlazzaAPI& plazza, const std::string& key) {
  return plazza.baseURL() == PlazzaAPI::defaultURL ? key : plazza.baseURL() + " " + key;
}

bool isGithubName(std::string_view name) {
  constexpr std::string_view kAllowed = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_.";
  return !name.empty() && name.size() <= kLongestName && name[0] != '-' && name != "." &&
         name.find("..") == std::string_view::npos && name.find_first_not_of(kAllowed) == std::string_view::npos;
}

void requireRepository(const std::string& source) {
  const auto parts = Text::split(source, '/');
  if (parts.size() == 2 && std::all_of(parts.begin(), parts.end(), isGithubName) && parts[0][0] != '.') return;
  throw SkillsError::invalidInput(
      fmt::format("Unexpected Plazza source: {}. It must be a repository on GitHub, written OWNER/REPO.",
                  Text::singleLine(source)));
}

void requireSkillName(const std::string& skillId) {
  const bool isName = !Text::trim(skillId).empty() && skillId[0] != '-' && skillId != "." && skillId != ".." &&
                      skillId.find_first_of("/\\") == std::string::npos && Text::singleLine(skillId) == skillId;
  if (isName) return;
  throw SkillsError::invalidInput(fmt::format(
      "'{}' cannot be the name of a skill in a repository: it must be one name, no path.", Text::singleLine(skillId)));
}

GitInstallation repositoryOf(GitSettings settings, const std::string& source, const std::string& skillId) {
  requireRepository(source);
  requireSkillName(skillId);
  return {std::move(settings), source};
}

// The requests as they are recorded for a listed skill; updates read the repository from what git was given.
std::vector<InstallRequest> asListed(std::vector<InstallRequest> requests, const std::string& source,
                                     const std::string& skillId) {
  for (auto& request : requests) {
    request.source.type = SourceType::plazza;
    request.source.ref = source + "/" + skillId;
    request.action = "install_plazza";
  }
  return requests;
}

}  // namespace

PlazzaAPI SkillsEngine::plazza(const OperationContext& context) {
  return {httpSettings(context), setting("plazza_url").value_or("")};
}

PlazzaSkills SkillsEngine::keptOrFetched(const std::string& key, std::optional<double> maxAge,
                                         const std::function<PlazzaSkills()>& fetch) {
  if (maxAge) {
    const Turn turn(state_->mutex);
    if (auto kept = keptSkills(state_->library.store, key, *maxAge)) return std::move(*kept);
  }
  PlazzaSkills fetched = fetch();
  const Turn turn(state_->mutex);
  keep(state_->library.store, key, fetched);
  return fetched;
}

PlazzaSkills SkillsEngine::leaderboard(LeaderboardKind kind, bool forceRefresh, const OperationContext& context) {
  const PlazzaAPI directory = plazza(context);
  const auto key = keyAt(directory, fmt::format("leaderboard:{}", rawValue(kind)));
  return keptOrFetched(key, forceRefresh ? std::nullopt : std::optional(kLeaderboardSeconds),
                       [&] { return directory.fetchLeaderboard(kind, context); });
}

PlazzaSkills SkillsEngine::searchMarket(const std::string& query, std::size_t limit, const OperationContext& context) {
  const std::string wanted(Text::trim(query));
  if (wanted.empty()) throw SkillsError::invalidInput("Say what to search for: a word or two that describe the skill.");
  const PlazzaAPI directory = plazza(context);
  // Always the longest answer, so that one kept answer serves every limit.
  PlazzaSkills skills = keptOrFetched(keyAt(directory, "search:" + wanted), kSearchSeconds,
                                      [&] { return directory.search(wanted, PlazzaAPI::mostResults, context); });
  if (skills.size() > limit) skills.resize(limit);
  return skills;
}

void SkillsEngine::clearMarketCache() {
  const Turn turn(state_->mutex);
  state_->library.store.clearCache();
}

SkillSummary SkillsEngine::installFromPlazza(const std::string& source, const std::string& skillId,
                                             const std::optional<std::string>& name, const OperationContext& context) {
  PreparedInstall prepared;
  const auto repository = repositoryOf(gitSettings(context), source, skillId);
  repository.withSkills({.name = name, .skillId = skillId}, context, [&](GitInstallation::Found found) {
    prepared = Installation::prepare(state_->paths, asListed(std::move(found.requests), source, skillId), context);
  });
  const State::ChangeTurn turn(*state_);
  return state_->components.installation.settleOne(prepared);
}

Plan SkillsEngine::planInstallFromPlazza(const std::string& source, const std::string& skillId,
                                         const std::optional<std::string>& name, const OperationContext& context) {
  Plan plan;
  const auto repository = repositoryOf(gitSettings(context), source, skillId);
  repository.withSkills({.name = name, .skillId = skillId}, context, [&](const GitInstallation::Found& found) {
    const Turn turn(state_->mutex);
    plan = state_->components.installation.plan(found.requests);
  });
  return plan;
}

}  // namespace orvanta
