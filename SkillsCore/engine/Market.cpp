#include "engine/Market.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "foundations/ForeignJSON.h"
#include "foundations/SkillsError.h"
#include "foundations/Text.h"

namespace orvanta {

namespace {

using PlazzaSkills = std::vector<PlazzaSkill>;

constexpr double kLeaderboardSeconds = SkillStore::longestCacheAge;
constexpr double kSearchSeconds = 600;
constexpr std::size_t kLongestName = 100;  // of users and repositories on GitHub

// The answers of another directory than the usual one have keys of their own, which no key of the usual one can equal.
std::string keyAt(const PlazzaAPI& directory, const std::string& key) {
  return directory.baseURL() == PlazzaAPI::defaultURL ? key : directory.baseURL() + " " + key;
}

bool isGithubName(std::string_view name) {
  constexpr std::string_view kAllowed = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_.";
  return !name.empty() && name.size() <= kLongestName && name[0] != '-' && name != "." &&
         name.find("..") == std::string_view::npos && name.find_first_not_of(kAllowed) == std::string_view::npos;
}

const std::string& checkedRepository(const std::string& source) {
  const auto parts = Text::split(source, '/');
  if (parts.size() == 2 && std::all_of(parts.begin(), parts.end(), isGithubName) && parts[0][0] != '.') return source;
  throw SkillsError::invalidInput(
      fmt::format("Unexpected Plazza source: {}. It must be a repository on GitHub, written OWNER/REPO.",
                  Text::singleLine(source)));
}

const std::string& checkedSkillName(const std::string& skillId) {
  const bool isName = !Text::trim(skillId).empty() && skillId[0] != '-' && skillId != "." && skillId != ".." &&
                      skillId.find_first_of("/\\") == std::string::npos && Text::singleLine(skillId) == skillId;
  if (isName) return skillId;
  throw SkillsError::invalidInput(fmt::format(
      "'{}' cannot be the name of a skill in a repository: it must be one name, no path.", Text::singleLine(skillId)));
}

}  // namespace

MarketQuestion MarketQuestion::leaderboard(const PlazzaAPI& directory, LeaderboardKind kind) {
  return {.key = keyAt(directory, fmt::format("leaderboard:{}", rawValue(kind))),
          .maxAge = kLeaderboardSeconds,
          .ask = [directory, kind](const auto& context) { return directory.fetchLeaderboard(kind, context); }};
}

MarketQuestion MarketQuestion::search(const PlazzaAPI& directory, const std::string& query) {
  const std::string wanted(Text::trim(query));
  if (wanted.empty()) throw SkillsError::invalidInput("Say what to search for: a word or two that describe the skill.");
  return {.key = keyAt(directory, "search:" + wanted), .maxAge = kSearchSeconds, .ask = [=](const auto& context) {
            return directory.search(wanted, PlazzaAPI::mostResults, context);
          }};
}

std::optional<PlazzaSkills> Market::kept(const MarketQuestion& question) {
  const auto data = library_.store.cached(question.key, question.maxAge);
  if (!data) return std::nullopt;
  try {
    return parseForeignJSON(*data).get<PlazzaSkills>();
  } catch (const Json::exception&) {
    return std::nullopt;
  }
}

void Market::keep(const MarketQuestion& question, const PlazzaSkills& answer) {
  try {
    library_.store.cache(question.key, jsonText(Json(answer)));
  } catch (const SkillsError&) {
    return;
  }
}

void Market::forgetAll() { library_.store.clearCache(); }

ListedSkill::ListedSkill(GitSettings settings, const std::string& source, const std::string& skillId)
    : source_(checkedRepository(source)),
      skillId_(checkedSkillName(skillId)),
      repository_(std::move(settings), source_) {}

void ListedSkill::withRequests(const std::optional<std::string>& name, const OperationContext& context,
                               const std::function<void(std::vector<InstallRequest>)>& body) const {
  repository_.withSkills({.name = name, .skillId = skillId_}, context, [&](GitInstallation::Found found) {
    for (auto& request : found.requests) {
      // Updates read the repository from what git was given, which stays as it is.
      request.source.type = SourceType::plazza;
      request.source.ref = source_ + "/" + skillId_;
      request.action = "install_plazza";
    }
    body(std::move(found.requests));
  });
}

}  // namespace orvanta
