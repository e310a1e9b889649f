#include "cli/Choice.h"

#include <algorithm>
#include <charconv>
#include <set>

#include <fmt/format.h>

#include "cli/UsageError.h"
#include "foundations/SkillsError.h"
#include "foundations/Text.h"

namespace orvanta::cli {

namespace {

std::optional<std::size_t> number(std::string_view text) {
  std::size_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

}  // namespace

std::optional<std::vector<std::size_t>> parseChoice(std::string_view answer, std::size_t count) {
  std::string words(answer);
  std::replace(words.begin(), words.end(), ',', ' ');
  std::set<std::size_t> chosen;
  for (const std::string_view word : Text::split(words, ' ')) {
    if (word.empty()) continue;
    const bool isAll = Text::lowercase(word) == "all";
    const std::size_t dash = word.find('-');
    const auto first = isAll ? 1 : number(word.substr(0, dash));
    const auto last = isAll ? count : number(word.substr(dash == std::string_view::npos ? 0 : dash + 1));
    if (!first || !last || *first == 0 || *first > *last || *last > count) return std::nullopt;
    for (std::size_t i = *first; i <= *last; ++i) chosen.insert(i - 1);
  }
  return std::vector<std::size_t>(chosen.begin(), chosen.end());
}

std::vector<std::size_t> choose(const Session& session, const std::vector<std::string>& items,
                                std::string_view question) {
  for (std::size_t i = 0; i < items.size(); ++i) {
    session.err().line(fmt::format("{:>4}  {}", i + 1, Text::singleLine(items[i])));
  }
  for (;;) {
    const auto answer = session.ask(fmt::format("{} [numbers such as 1 3-5, or all]", question));
    const auto chosen = parseChoice(answer.value_or(""), items.size());
    if (chosen && !chosen->empty()) return *chosen;
    if (chosen) throw SkillsError::refused("Nothing was chosen, so nothing was changed.");
    session.err().line(
        fmt::format("Type numbers from 1 to {}, or 'all'; an empty line chooses nothing.", items.size()));
  }
}

std::vector<std::size_t> chooseSome(const Session& session, const std::string& source,
                                    const std::vector<std::string>& skills) {
  const std::string found = fmt::format("{} holds {} skills.", source, skills.size());
  if (!session.canAsk() || session.json()) {
    throw UsageError(found + " Install all of them with --all, or those at --path REL….");
  }
  session.err().line(found);
  return choose(session, skills, "Install which?");
}

}  // namespace orvanta::cli
