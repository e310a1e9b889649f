#pragma once

// Skills that web sites publish. What is fetched lives only while it is looked at.

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "engine/Installation.h"
#include "foundations/Operation.h"
#include "platform/HTTPClient.h"
#include "sources/WellKnownIndex.h"

namespace orvanta {

struct SiteInstallation {
  // The skills that could be fetched, while they last.
  struct Found {
    std::vector<InstallRequest> requests;
    std::vector<std::string> errors;  // "NAME: " and why it could not be
    bool interrupted = false;
  };

  // Fetches these entries of the index below `temp` and hands them to `body`; goes on past failures. Throws as `body`,
  // and `invalidInput` for one name for several skills.
  static void withSkills(const HTTPClient& client, const WellKnownIndex& index,
                         const std::vector<WellKnownIndex::Entry>& entries, const std::optional<std::string>& name,
                         const std::filesystem::path& temp, const OperationContext& context,
                         const std::function<void(Found)>& body);
};

}  // namespace orvanta
