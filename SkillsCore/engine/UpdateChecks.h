#pragma once

// Asks where skills came from whether there is something newer. Skills from the same branch of the same repository
// share one question. Touches neither the library nor its records.

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "foundations/Models.h"
#include "foundations/Operation.h"
#include "sources/GitClient.h"

namespace orvanta {

// What the source of one skill says.
struct CheckOutcome {
  std::string skillId;
  // The revision or fingerprint there; it is news when the skill has another one. Else `status` says it all.
  std::optional<std::string> found = {};
  UpdateStatus status = UpdateStatus::unknown;
  std::optional<std::string> error = {};
};

class UpdateChecks {
 public:
  explicit UpdateChecks(const std::vector<SkillRecord>& skills);
  UpdateChecks(const UpdateChecks&) = delete;
  UpdateChecks& operator=(const UpdateChecks&) = delete;

  // Those whose check waits for the network.
  [[nodiscard]] std::vector<std::string> remoteIds() const;

  // Asks up to `concurrency` sources at once and hands over the outcomes as they come, from any thread, those of one
  // repository together. Skills that a requested stop left unasked have none.
  void run(const GitSettings& settings, std::size_t concurrency, const OperationContext& context,
           const std::function<void(const std::vector<CheckOutcome>&)>& finished) const;

 private:
  struct Question {
    std::optional<ParsedGitSource> source;  // none: the one skill is asked about in another way
    std::vector<const SkillRecord*> skills;
  };

  static std::vector<CheckOutcome> ask(const Question& question, const GitClient& client,
                                       const OperationContext& context);

  std::vector<CheckOutcome> answered_;  // without asking anybody
  std::vector<Question> questions_;
};

}  // namespace orvanta
