#include "sources/PlazzaAPI.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <limits>
#include <optional>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "foundations/ForeignJSON.h"
#include "foundations/ModelsJSON.h"
#include "foundations/SkillsError.h"
#include "foundations/Text.h"
#include "sources/PlazzaScripts.h"

namespace orvanta {

namespace {

constexpr auto npos = std::string_view::npos;
constexpr std::string_view kUserAgent = "orvanta-macos";
constexpr std::string_view kAdvice = "Try again later, or check the setting plazza_url.";
constexpr std::uint64_t kLargestBody = std::uint64_t{16} << 20;
constexpr std::int64_t kMostInstalls = std::numeric_limits<std::int64_t>::max();

HTTPSettings withUserAgent(HTTPSettings settings) {
  settings.userAgent = kUserAgent;
  return settings;
}

std::string_view pagePath(LeaderboardKind kind) {
  switch (kind) {
    case LeaderboardKind::allTime: return "/";
    case LeaderboardKind::trending: return "/trending";
    case LeaderboardKind::hot: return "/hot";
  }
  return "/";
}

const Json* member(const Json& json, const char* key) {
  if (!json.is_object()) return nullptr;
  const auto found = json.find(key);
  return found == json.end() ? nullptr : &*found;
}

// Empty where there is no such text.
std::string textOf(const Json& json, const char* key) {
  const Json* value = member(json, key);
  return value != nullptr && value->is_string() ? value->get<std::string>() : "";
}

std::int64_t countIn(std::string_view text) {
  text = Text::trim(text);
  std::int64_t count = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
  if (end != text.data() + text.size()) return 0;
  return std::max<std::int64_t>(error == std::errc::result_out_of_range && text[0] != '-' ? kMostInstalls : count, 0);
}

std::int64_t countOf(const Json& value) {
  if (value.is_string()) return countIn(value.get_ref<const std::string&>());
  if (!value.is_number()) return 0;
  // Exact for any number of installs there can be.
  const auto count = value.get<double>();
  if (count >= static_cast<double>(kMostInstalls)) return kMostInstalls;
  return count > 0 ? static_cast<std::int64_t>(count) : 0;
}

PlazzaSkill skillWith(std::string id, std::string source, std::string skillId, std::string name,
                      std::int64_t installs) {
  PlazzaSkill skill{.id = std::move(id),
                    .skillId = std::move(skillId),
                    .name = std::move(name),
                    .source = std::move(source),
                    .installs = installs};
  if (skill.id.empty()) skill.id = skill.address();
  if (Text::trim(skill.name).empty()) skill.name = skill.skillId;
  return skill;
}

std::optional<PlazzaSkill> skillIn(const Json& json) {
  auto source = textOf(json, "source");
  auto skillId = textOf(json, "skillId");
  if (skillId.empty()) skillId = textOf(json, "skill_id");
  if (source.empty() || skillId.empty()) return std::nullopt;
  const Json* installs = member(json, "installs");
  return skillWith(textOf(json, "id"), std::move(source), std::move(skillId), textOf(json, "name"),
                   installs == nullptr ? 0 : countOf(*installs));
}

std::vector<PlazzaSkill> skillsIn(const Json& list) {
  std::vector<PlazzaSkill> skills;
  for (const auto& element : list) {
    if (auto skill = skillIn(element)) skills.push_back(std::move(*skill));
  }
  return skills;
}

// The first of these members that is an array.
const Json* listIn(const Json& json, const std::array<const char*, 3>& keys) {
  for (const auto* key : keys) {
    const Json* list = member(json, key);
    if (list != nullptr && list->is_array()) return list;
  }
  return nullptr;
}

// Nothing where the page has no such data.
std::vector<PlazzaSkill> embeddedSkills(std::string_view html) {
  constexpr std::string_view kBegin = R"(<script id="__NEXT_DATA__" type="application/json">)";
  const auto begin = html.find(kBegin);
  if (begin == npos) return {};
  const auto data = html.substr(begin + kBegin.size());
  const auto end = data.find("</script>");
  if (end == npos) return {};
  const Json json = parseForeignJSON(data.substr(0, end));
  const Json* props = member(json, "props");
  const Json* pageProps = props == nullptr ? nullptr : member(*props, "pageProps");
  const Json* list = pageProps == nullptr ? nullptr : listIn(*pageProps, {"initialSkills", "skills", "items"});
  return list == nullptr ? std::vector<PlazzaSkill>{} : skillsIn(*list);
}

}  // namespace

bool PlazzaAPI::isBaseURL(std::string_view url) {
  const auto lower = Text::lowercase(url);
  const bool isWeb = lower.starts_with("https://") || lower.starts_with("http://");
  if (!isWeb || Text::singleLine(url) != url || url.find_first_of(" @?#\\") != npos) return false;
  const auto afterScheme = url.substr(url.find("://") + 3);
  const auto host = afterScheme.substr(0, afterScheme.find_first_of(":/"));
  return !host.empty();
}

PlazzaAPI::PlazzaAPI(HTTPSettings settings, std::string_view baseURL)
    : client_(withUserAgent(std::move(settings))), baseURL_(baseURL.empty() ? defaultURL : baseURL) {
  while (baseURL_.ends_with('/')) baseURL_.pop_back();
}

HTTPResponse PlazzaAPI::get(const std::string& url, const OperationContext& context) const {
  return client_.get(url, {.largest = kLargestBody}, context);
}

std::vector<PlazzaSkill> PlazzaAPI::search(const std::string& query, int limit, const OperationContext& context) const {
  const auto url = withQuery(baseURL_ + "/api/search", {{"q", query}, {"limit", std::to_string(limit)}});
  const auto response = get(url, context);
  if (!response.succeeded()) {
    throw SkillsError::network(fmt::format("Plazza search failed ({}). {}", response.status, kAdvice));
  }
  auto skills = parseSearchJSON(response.body);
  if (skills.size() > static_cast<std::size_t>(limit)) skills.resize(static_cast<std::size_t>(limit));
  return skills;
}

std::vector<PlazzaSkill> PlazzaAPI::fetchLeaderboard(LeaderboardKind kind, const OperationContext& context) const {
  const auto response = get(fmt::format("{}{}", baseURL_, pagePath(kind)), context);
  if (!response.succeeded()) {
    throw SkillsError::network(fmt::format("Plazza returned an error ({}). {}", response.status, kAdvice));
  }
  return parseLeaderboardHTML(response.body);
}

std::vector<PlazzaSkill> PlazzaAPI::parseSearchJSON(std::string_view json) {
  const Json answer = parseForeignJSON(json);
  const Json* list = answer.is_array() ? &answer : listIn(answer, {"skills", "results", "items"});
  if (list == nullptr) {
    throw SkillsError::network(
        fmt::format("Plazza answered the search with something that is no list of skills. {}", kAdvice));
  }
  return skillsIn(*list);
}

std::vector<PlazzaSkill> PlazzaAPI::parseLeaderboardHTML(std::string_view html) {
  auto skills = embeddedSkills(html);
  if (!skills.empty()) return skills;
  forEachSkillInScripts(html, [&](const ScriptedSkill& found) {
    skills.push_back(skillWith("", Text::repairUTF8(found.source), Text::repairUTF8(found.skillId),
                               Text::repairUTF8(found.name), countIn(found.installs)));
  });
  return skills;
}

}  // namespace orvanta
