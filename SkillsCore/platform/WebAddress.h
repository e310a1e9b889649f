#pragma once

// Addresses on the web, read by the same library that makes the requests: what is checked here is what is asked for.
// Every function accepts any bytes.

#include <optional>
#include <string>
#include <string_view>

namespace orvanta {

struct WebAddress {
  std::string text;    // the whole address in its normal form, without a fragment
  std::string origin;  // "https://example.com:443": equal for addresses of one site
  std::string host;    // lower-case letters
  std::string path;    // percent-encoded, without the query

  // Nothing for what is no absolute http or https address, or has a user name or password in it. Throws `network` where
  // the system has no libcurl.
  static std::optional<WebAddress> parse(const std::string& text);

  // Where a server at `host` redirects to. Throws `network` for what is no address as above.
  static WebAddress ofRedirect(const std::string& to, const std::string& host);

  // Where a reference on the page at this address leads. Nothing as above.
  [[nodiscard]] std::optional<WebAddress> resolve(const std::string& reference) const;

  [[nodiscard]] bool isSameSite(const WebAddress& other) const { return origin == other.origin; }
};

// Whether libcurl can take the text as the address of a proxy: http, https or socks with a host, a port and credentials
// if need be, and nothing else.
[[nodiscard]] bool isProxyAddress(const std::string& text);

// What was given as an address, and may be none, as one line without whatever in it may be a user name and password.
[[nodiscard]] std::string shownAddress(std::string_view text);

// The text as one part of a path, or as a name or value in a query.
[[nodiscard]] std::string percentEncoded(std::string_view text);

}  // namespace orvanta
