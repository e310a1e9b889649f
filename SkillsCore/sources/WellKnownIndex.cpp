#include "sources/WellKnownIndex.h"

#include <algorithm>
#include <array>

#include <fmt/format.h>

#include "foundations/SkillsError.h"
#include "foundations/Text.h"
#include "platform/WebAddress.h"

namespace orvanta {

namespace {

using Entry = WellKnownIndex::Entry;

constexpr std::uint64_t kLargestIndex = std::uint64_t{50} << 20;
constexpr int kOk = 200;
constexpr std::size_t kLongestDomain = 253;
constexpr std::array kPlaces{"/.well-known/agent-skills/index.json", "/.well-known/skills/index.json"};

bool isLabel(std::string_view label) {
  if (label.empty() || label.front() == '-') return false;
  while (!label.empty()) {
    const auto character = Text::firstCharacter(label);
    const bool joins = character.codePoint == U'-' || character.codePoint == U'_';
    if (!joins && !Text::isLetterOrDigit(character.codePoint)) return false;
    label.remove_prefix(character.length);
  }
  return true;
}

bool isPort(std::string_view port) {
  constexpr int kHighest = 65'535;
  const bool isNumber =
      !port.empty() && port.size() <= 5 && port.find_first_not_of("0123456789") == std::string_view::npos;
  return isNumber && std::stoi(std::string(port)) <= kHighest;
}

bool isNumeric(const std::string& host) {
  return host.starts_with('[') || host.find_first_not_of("0123456789.") == std::string::npos;
}

// A publisher may have moved to another site, but has no business in the user's own network: what a request does there
// is not the publisher's to decide. Names that lead there all the same are stopped by the certificate that https wants.
void requirePublicSite(const WebAddress& from, const std::string& to) {
  const auto target = WebAddress::ofRedirect(to, from.host);
  const bool isLocal = isNumeric(target.host) || target.host == "localhost" || target.host.ends_with(".localhost");
  if (!isLocal || target.host == from.host) return;
  throw SkillsError::network(
      fmt::format("{} redirects its index to {}, which may lie in your own network; that is not followed. If it is "
                  "what you want, ask for that host.",
                  from.host, Text::singleLine(target.text)));
}

}  // namespace

std::string bareDomain(std::string_view text) {
  auto domain = Text::lowercase(Text::trim(text));
  const auto parts = Text::split(domain, ':');
  const auto labels = Text::split(parts.front(), '.');
  const bool isDomain = parts.front().size() <= kLongestDomain && std::all_of(labels.begin(), labels.end(), isLabel);
  const bool hasGoodPort = parts.size() == 1 || (parts.size() == 2 && isPort(parts.back()));
  if (!isDomain || !hasGoodPort) throw SkillsError::invalidInput("Enter a bare domain, e.g. example.com");
  return domain;
}

WellKnownIndex WellKnownIndex::fetch(const HTTPClient& client, const std::string& domain,
                                     const OperationContext& context) {
  const auto site = bareDomain(domain);
  for (const auto* place : kPlaces) {
    const auto address = WebAddress::parse("https://" + site + place);
    if (!address) throw SkillsError::invalidInput("Enter a bare domain, e.g. example.com");
    const HTTPOptions options{.largest = kLargestIndex,
                              .checkRedirect = [&](const std::string& to) { requirePublicSite(*address, to); }};
    try {
      const auto response = client.get(address->text, options, context);
      if (response.status == kOk) return parse(response.body, site, response.finalURL);
    } catch (const HTTPTooLarge&) {
      throw SkillsError::network(
          fmt::format("Index too large: {} is more than 50 MiB. Check the domain.", address->text));
    }
  }
  throw SkillsError::notFound("No well-known index found for " + site);
}

const Entry& WellKnownIndex::entry(const std::string& name) const {
  std::vector<const Entry*> exact;
  std::vector<const Entry*> similar;
  for (const auto& each : entries) {
    if (each.name == name) exact.push_back(&each);
    if (Text::comparisonKey(each.name) == Text::comparisonKey(name)) similar.push_back(&each);
  }
  const auto& found = exact.empty() ? similar : exact;
  const auto shown = Text::singleLine(name);
  if (found.empty()) {
    throw SkillsError::notFound(fmt::format("{} publishes no skill '{}'; look at what it does publish", domain, shown));
  }
  if (found.size() > 1) {
    throw SkillsError::invalidInput(fmt::format(
        "{} publishes {} skills of the name '{}', so it says nothing which is meant", domain, found.size(), shown));
  }
  return *found.front();
}

}  // namespace orvanta
