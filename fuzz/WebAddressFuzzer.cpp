// Whatever a user or a server gives as an address: one that is used holds no password and means the same when it is
// read again, and one that is shown is a line of text. The input's first line is resolved against the second.

#include "foundations/Text.h"
#include "fuzz/Fuzzing.h"
#include "platform/WebAddress.h"
#include "sources/PlazzaAPI.h"
#include "sources/WellKnownIndex.h"

namespace {

using namespace orvanta;  // NOLINT(google-build-using-namespace)
using fuzzing::require;

void check(const std::optional<WebAddress>& address) {
  if (!address) return;
  const auto& text = address->text;
  require(text.starts_with("https://") || text.starts_with("http://"));
  const auto site = text.substr(text.find("://") + 3);
  require(site.substr(0, site.find_first_of("/?#")).find('@') == std::string::npos);
  require(text.find('#') == std::string::npos && !address->host.empty() && address->path.starts_with('/'));
  const auto again = WebAddress::parse(text);
  require(again && again->isSameSite(*address));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto text = fuzzing::textOf(data, size);
  const auto line = std::string(text.substr(0, text.find('\n')));
  const auto second = text.substr(std::min(line.size() + 1, text.size()));
  check(WebAddress::parse(line));
  const auto base = WebAddress::parse(std::string(second));
  check(base);
  if (base) check(base->resolve(line));

  const auto shown = shownAddress(text);
  require(Text::singleLine(shown) == shown);
  if (isProxyAddress(line)) require(Text::singleLine(line) == line);
  if (PlazzaAPI::isBaseURL(line)) require(line.find('@') == std::string::npos && Text::singleLine(line) == line);
  fuzzing::allowing(SkillsError::Kind::invalidInput, [&] {
    const auto address = WebAddress::parse("https://" + bareDomain(line) + "/");
    check(address);
    require(!address || address->path == "/");
  });
  return 0;
}
