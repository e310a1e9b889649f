#pragma once

// Skills that web sites publish. What is fetched lives only while it is looked at, one skill at a time.

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "engine/Installation.h"
#include "foundations/Operation.h"
#include "platform/HTTPClient.h"
#include "sources/WellKnownIndex.h"

namespace orvanta {

class SiteInstallation {
 public:
  // Fetches below `temp`. The index must outlive this.
  SiteInstallation(HTTPClient client, const WellKnownIndex& index, std::filesystem::path temp)
      : client_(std::move(client)), index_(index), temp_(std::move(temp)) {}

  struct Failures {
    std::vector<std::string> errors;  // "NAME: " and why it could not be fetched
    bool interrupted = false;         // before all were fetched
  };
  // Fetches these entries of the index one after the other and hands each to `body`, after which its files go; goes on
  // past failures. Throws as `body`, and `invalidInput` for one name for several skills.
  Failures forEachSkill(const std::vector<WellKnownIndex::Entry>& entries, const std::optional<std::string>& name,
                        const OperationContext& context, const std::function<void(const InstallRequest&)>& body) const;

 private:
  HTTPClient client_;
  const WellKnownIndex& index_;
  std::filesystem::path temp_;
};

}  // namespace orvanta
