#pragma once

// A source of skills that has to be fetched or unpacked before anything of it can be installed. What is meant by the
// words of the command line is settled before one is made; installing it later asks no more questions.

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "engine/Reports.h"
#include "foundations/Operation.h"

namespace orvanta::cli {

struct InstallSource {
  std::function<Plan(const OperationContext&)> plan;
  std::function<InstallReport(const OperationContext&)> install;
};

// What the command line says about which of a source's skills are meant.
struct SourceChoice {
  std::vector<std::string> paths = {};
  bool all = false;
  std::optional<std::string> name = {};  // for one skill alone
};

}  // namespace orvanta::cli
