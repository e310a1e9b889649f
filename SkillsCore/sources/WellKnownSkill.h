#pragma once

// One skill of a web site, fetched into a temporary folder that goes with this. The publisher is not trusted: nothing
// is asked of any other site, what is fetched is limited, and digests that the index gives must be right.

#include <filesystem>

#include "files/TemporaryFolder.h"
#include "foundations/Operation.h"
#include "platform/HTTPClient.h"
#include "sources/WellKnownIndex.h"

namespace orvanta {

class WellKnownSkill {
 public:
  // Fetches an entry of the index below `temp`. Throws `invalidInput` for one that cannot be installed or holds no
  // skill, `refused` for a digest that is wrong, `network` and `io`; nothing is left behind then.
  WellKnownSkill(const HTTPClient& client, const WellKnownIndex& index, const WellKnownIndex::Entry& entry,
                 const std::filesystem::path& temp, const OperationContext& context);

  // The skill: plain files and folders, none of them a link.
  [[nodiscard]] const std::filesystem::path& folder() const { return folder_; }

 private:
  TemporaryFolder temporary_;
  std::filesystem::path folder_;
};

}  // namespace orvanta
