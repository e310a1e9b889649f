#include "platform/WebAddress.h"

#include <algorithm>
#include <array>

#include <fmt/format.h>

#include "foundations/SkillsError.h"
#include "foundations/Text.h"
#include "platform/CurlLibrary.h"

namespace orvanta {

namespace {

std::optional<std::string> part(const CurlURL& url, CURLUPart which, unsigned flags = 0) {
  char* text = nullptr;
  if (CurlLibrary::get().urlGet(url.get(), which, &text, flags) != CURLUE_OK) return std::nullopt;
  return std::string(CurlText(text).get());
}

bool hasControl(std::string_view text) {
  return std::any_of(text.begin(), text.end(), [](char byte) {
    const auto code = static_cast<unsigned char>(byte);
    return code < 0x20 || code == 0x7F;
  });
}

// Reads one address, or a second one from where the first leads.
bool add(const CurlURL& url, const std::string& text, unsigned flags = 0) {
  // libcurl would see only what stands before a NUL.
  return !hasControl(text) && CurlLibrary::get().urlSet(url.get(), CURLUPART_URL, text.c_str(), flags) == CURLUE_OK;
}

std::optional<WebAddress> addressIn(const CurlURL& url) {
  const auto scheme = part(url, CURLUPART_SCHEME);
  const auto host = part(url, CURLUPART_HOST);
  const auto port = part(url, CURLUPART_PORT, CURLU_DEFAULT_PORT);
  const auto path = part(url, CURLUPART_PATH);
  if (!scheme || !host || !port || !path || (*scheme != "http" && *scheme != "https")) return std::nullopt;
  if (part(url, CURLUPART_USER) || part(url, CURLUPART_PASSWORD)) return std::nullopt;
  // libcurl decodes what is percent-encoded in a host and leaves it so in the address: read again, that would be
  // another host or none.
  if (hasControl(*host) || host->find('%') != std::string::npos) return std::nullopt;
  CurlLibrary::get().urlSet(url.get(), CURLUPART_FRAGMENT, nullptr, 0);
  const auto text = part(url, CURLUPART_URL);
  if (!text) return std::nullopt;
  const auto comparable = Text::lowercase(*host);
  return WebAddress{.text = *text,
                    .origin = fmt::format("{}://{}:{}", *scheme, comparable, *port),
                    .host = comparable,
                    .path = *path};
}

CurlURL emptyURL() {
  CurlURL url(CurlLibrary::get().urlInit());
  if (!url) throw SkillsError::network("Cannot read an address: out of memory.");
  return url;
}

}  // namespace

std::optional<WebAddress> WebAddress::parse(const std::string& text) {
  const auto url = emptyURL();
  return add(url, text) ? addressIn(url) : std::nullopt;
}

WebAddress WebAddress::ofRedirect(const std::string& to, const std::string& host) {
  if (auto target = parse(to)) return *std::move(target);
  throw SkillsError::network(fmt::format("{} redirects to {}, which is no address of a web site. Tell its publisher.",
                                         host, shownAddress(to)));
}

std::optional<WebAddress> WebAddress::resolve(const std::string& reference) const {
  const auto url = emptyURL();
  return add(url, text) && add(url, reference) ? addressIn(url) : std::nullopt;
}

bool isProxyAddress(const std::string& text) {
  constexpr std::array<std::string_view, 6> schemes{"http", "https", "socks4", "socks4a", "socks5", "socks5h"};
  // libcurl is not strict about how many slashes there are.
  const bool hasSlashes = text.find("://") != std::string::npos && text.find(":///") == std::string::npos;
  const bool isPlain = Text::singleLine(text) == text && text.find(' ') == std::string::npos;
  const auto url = emptyURL();
  if (!hasSlashes || !isPlain || !add(url, text, CURLU_NON_SUPPORT_SCHEME)) return false;
  const auto scheme = part(url, CURLUPART_SCHEME);
  const bool isKnown = scheme && std::find(schemes.begin(), schemes.end(), Text::lowercase(*scheme)) != schemes.end();
  const bool hasMore =
      part(url, CURLUPART_PATH).value_or("/") != "/" || part(url, CURLUPART_QUERY) || part(url, CURLUPART_FRAGMENT);
  return isKnown && !hasMore && !part(url, CURLUPART_HOST).value_or("").empty() && part(url, CURLUPART_PORT) != "0";
}

// Passwords may hold anything, so all of what stands before the last "@" counts as one.
std::string shownAddress(std::string_view text) {
  const auto at = text.rfind('@');
  if (at == std::string_view::npos) return Text::singleLine(text);
  const auto colon = text.find(':');
  const bool hasScheme = colon < at && text.substr(colon).starts_with("://");
  const auto scheme = text.substr(0, hasScheme ? colon + 3 : 0);
  return Text::singleLine(fmt::format("{}***{}", scheme, text.substr(at)));
}

std::string percentEncoded(std::string_view text) {
  constexpr std::string_view plain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";
  std::string result;
  for (const char byte : text) {
    if (plain.find(byte) != std::string_view::npos) {
      result += byte;
    } else {
      result += fmt::format("%{:02X}", static_cast<unsigned char>(byte));
    }
  }
  return result;
}

}  // namespace orvanta
