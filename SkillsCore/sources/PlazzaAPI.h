#pragma once

// The community directory Plazza, which lists skills in public repositories on GitHub with how often each was
// installed. Strangers write what it lists: what cannot be read as a skill is passed over, and texts are passed on as
// they came.

#include <string>
#include <string_view>
#include <vector>

#include "foundations/Models.h"
#include "foundations/Operation.h"
#include "platform/HTTPClient.h"

namespace orvanta {

class PlazzaAPI {
 public:
  static constexpr std::string_view defaultURL = "https://plazza.example";
  static constexpr int mostResults = 100;  // of one search

  // An http or https URL with a host, and without credentials, query or fragment.
  [[nodiscard]] static bool isBaseURL(std::string_view url);

  // Slashes at the end of the URL do not count; an empty one is the default. The user agent is the client's own.
  PlazzaAPI(HTTPSettings settings, std::string_view baseURL);

  [[nodiscard]] const std::string& baseURL() const { return baseURL_; }

  // At most `limit` skills, the best match first. Throws `network` when there is no answer or none that can be read.
  [[nodiscard]] std::vector<PlazzaSkill> search(const std::string& query, int limit,
                                                const OperationContext& context) const;
  // From the top; empty when the page lists nothing. Throws `network` when there is no answer.
  [[nodiscard]] std::vector<PlazzaSkill> fetchLeaderboard(LeaderboardKind kind, const OperationContext& context) const;

  // The body of an answer to a search. Throws `network` for what is no list.
  [[nodiscard]] static std::vector<PlazzaSkill> parseSearchJSON(std::string_view json);
  // A page of the site: the data embedded in it, else what its scripts hold. Takes bounded time whatever the page
  // holds.
  [[nodiscard]] static std::vector<PlazzaSkill> parseLeaderboardHTML(std::string_view html);

 private:
  [[nodiscard]] HTTPResponse get(const std::string& url, const OperationContext& context) const;

  HTTPClient client_;
  std::string baseURL_;
};

}  // namespace orvanta
