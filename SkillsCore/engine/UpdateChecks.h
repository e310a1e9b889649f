#pragma once

// Asks where skills came from whether there is something newer. Skills from the same branch of the same repository
// share one question. Touches neither the library nor its records.

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "engine/SkillOrigin.h"
#include "foundations/Operation.h"
#include "sources/GitClient.h"

namespace orvanta {

// What the source of one skill says.
struct CheckOutcome {
  const SkillRecord* skill = nullptr;  // as it was recorded when the source was asked
  // The revision or fingerprint there; it is news when the skill has another one. Else `status` says it all.
  std::optional<std::string> found = {};
  UpdateStatus status = UpdateStatus::unknown;
  std::optional<std::string> error = {};
};

class UpdateChecks {
 public:
  // `skills` must outlive the checks and their outcomes.
  explicit UpdateChecks(const std::vector<SkillRecord>& skills) : groups_(groupedByOrigin(skills)) {}

  // Those whose check waits for the network.
  [[nodiscard]] std::vector<std::string> remoteIds() const;

  // Asks up to `concurrency` sources at once and hands over the outcomes as they come, from any thread, those of one
  // repository together. Skills that a requested stop left unasked have none.
  void run(const GitSettings& settings, std::size_t concurrency, const OperationContext& context,
           const std::function<void(const std::vector<CheckOutcome>&)>& finished) const;

 private:
  const SkillsByOrigin groups_;
};

}  // namespace orvanta
