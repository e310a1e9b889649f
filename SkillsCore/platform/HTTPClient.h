#pragma once

// Gets what web servers hold, over http and https, directly or through a proxy. Servers are not trusted: what they send
// is limited in size, a server that stalls is given up, redirects are few and never lead from https to http.

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "foundations/Operation.h"
#include "foundations/SkillsError.h"

namespace orvanta {

// One request as it went over the wire, for whoever logs them; a redirect makes one of its own.
struct HTTPExchange {
  std::string method;
  std::string url;  // credentials masked
  int status = 0;   // 0: no answer
  std::chrono::milliseconds duration{};
};

struct HTTPSettings {
  // Scheme, host and optional port, with credentials if need be. Empty: what the system's environment says
  // (http_proxy, https_proxy); hosts in no_proxy are asked directly in either case.
  std::string proxyURL = {};
  std::string userAgent = "orvanta";
  // Called in the thread that made the request.
  std::function<void(const HTTPExchange&)> onExchange = {};
};

struct HTTPOptions {
  // Bytes of the body, decompressed; a larger one ends the transfer.
  std::uint64_t largest = std::uint64_t{16} << 20;
  // Sent to every server that redirects lead to, so never a secret.
  std::map<std::string, std::string> headers = {};
  std::chrono::milliseconds connectTimeout = std::chrono::seconds(20);
  // A server that sends less than 64 KiB in this time, and does not end, has stalled. There is no limit on the whole.
  std::chrono::milliseconds idleTimeout = std::chrono::seconds(60);
  // Called with each address that a server redirects to, before anything is asked of it; throws to refuse it.
  std::function<void(const std::string& url)> checkRedirect = {};
};

struct HTTPResponse {
  int status = 0;
  std::string body = {};
  // Where redirects led; the requested URL where there were none.
  std::string finalURL = {};
  // By lower-case name; of several with one name, the last.
  std::map<std::string, std::string> headers = {};

  [[nodiscard]] bool succeeded() const { return status >= 200 && status <= 299; }
};

// The `network` errors that a caller may know what to do about: a body above the limit, and a download that the server
// answered with a status other than 2xx.
class HTTPTooLarge : public SkillsError {
 public:
  explicit HTTPTooLarge(const std::string& message) : SkillsError(Kind::network, message) {}
};
class HTTPStatusError : public SkillsError {
 public:
  HTTPStatusError(int status, const std::string& message) : SkillsError(Kind::network, message), status_(status) {}

  [[nodiscard]] int status() const { return status_; }

 private:
  int status_;
};

// A value that may be copied; copies share idle connections. Any number of threads may use one at the same time.
//
// Certificates are checked against the system's, or those in the file that SSL_CERT_FILE names. A requested stop ends
// a transfer within a quarter of a second. Progress counts bytes; its total is 0 while the server has not told it.
//
// Both operations throw `network`, with the URL and what to do, when there is no complete answer: no connection, a
// certificate that is not trusted, more than 5 redirects, a body above the limit, a stalled or broken transfer, a stop.
class HTTPClient {
 public:
  explicit HTTPClient(HTTPSettings settings = {});

  // The answer, whatever its status.
  [[nodiscard]] HTTPResponse get(const std::string& url, const HTTPOptions& options = {},
                                 const OperationContext& context = {}) const;

  // Makes `file`, which must not exist yet, hold the body. A status other than 2xx is a `network` error; a file that
  // cannot be written is `io`. There is no file after an error.
  HTTPResponse download(const std::string& url, const std::filesystem::path& file, const HTTPOptions& options = {},
                        const OperationContext& context = {}) const;

 private:
  class Connections;

  HTTPSettings settings_;
  std::shared_ptr<Connections> connections_;
};

// The URL with these names and values as its query, or added to the one it has; any bytes are fine.
[[nodiscard]] std::string withQuery(const std::string& url,
                                    const std::vector<std::pair<std::string, std::string>>& items);

}  // namespace orvanta
