#include "cli/commands/PlazzaSource.h"

#include <algorithm>
#include <string_view>

#include <fmt/format.h>

#include "cli/Format.h"
#include "cli/UsageError.h"
#include "foundations/Text.h"

namespace orvanta::cli {

namespace {

constexpr std::string_view kPrefix = "plazza:";

}  // namespace

bool namesListedSkill(const std::string& word) { return word.starts_with(kPrefix); }

InstallSource listedSkill(SkillsEngine& engine, const std::string& word, const std::optional<std::string>& name) {
  const std::string address = word.substr(kPrefix.size());
  const auto parts = Text::split(address, '/');
  const bool isComplete =
      parts.size() == 3 && std::none_of(parts.begin(), parts.end(), [](auto part) { return part.empty(); });
  if (!isComplete) {
    throw UsageError(
        fmt::format("{} names no skill of the directory: write plazza:OWNER/REPO/SKILL, as `orvanta search` "
                    "shows it.",
                    inQuotes(word)));
  }
  const std::string source = address.substr(0, address.rfind('/'));
  const std::string skillId(parts[2]);
  return {.plan = [=, &engine](
                      const auto& context) { return engine.planInstallFromPlazza(source, skillId, name, context); },
          .install =
              [=, &engine](const auto& context) {
                return InstallReport{.installed = {engine.installFromPlazza(source, skillId, name, context)}};
              }};
}

}  // namespace orvanta::cli
