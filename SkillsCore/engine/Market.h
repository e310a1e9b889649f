#pragma once

// The community directory in the engine: what is asked of it and how long an answer serves, and the skills it lists as
// skills of the repositories they lie in.

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "engine/GitInstallation.h"
#include "engine/Installation.h"
#include "engine/Library.h"
#include "foundations/Models.h"
#include "foundations/Operation.h"
#include "sources/PlazzaAPI.h"

namespace orvanta {

struct MarketQuestion {
  std::string key;  // under which its answer is kept; each directory has its own
  double maxAge;    // seconds for which a kept answer serves
  std::function<std::vector<PlazzaSkill>(const OperationContext&)> ask;

  static MarketQuestion leaderboard(const PlazzaAPI& directory, LeaderboardKind kind);
  // Asks for as many skills as there may be, so that one kept answer serves every limit. Throws `invalidInput` for a
  // query with nothing in it.
  static MarketQuestion search(const PlazzaAPI& directory, const std::string& query);
};

// The answers that are kept. They are nobody's work: keeping one takes no lock against other processes.
class Market {
 public:
  explicit Market(Library& library) : library_(library) {}

  // Nothing as well for what is kept and cannot be read.
  std::optional<std::vector<PlazzaSkill>> kept(const MarketQuestion& question);
  // An answer that cannot be kept will be fetched again.
  void keep(const MarketQuestion& question, const std::vector<PlazzaSkill>& answer);
  void forgetAll();

 private:
  Library& library_;
};

// One skill that the directory lists.
class ListedSkill {
 public:
  // Throws `invalidInput` when `source` can be no "OWNER/REPO" on GitHub, or `skillId` no skill in one.
  ListedSkill(GitSettings settings, const std::string& source, const std::string& skillId);

  // Hands what is to be installed to `body`, recorded as from the directory, while a checkout of the repository lasts.
  // Throws as `GitInstallation::withSkills`.
  void withRequests(const std::optional<std::string>& name, const OperationContext& context,
                    const std::function<void(std::vector<InstallRequest>)>& body) const;

 private:
  std::string source_;
  std::string skillId_;
  GitInstallation repository_;
};

}  // namespace orvanta
