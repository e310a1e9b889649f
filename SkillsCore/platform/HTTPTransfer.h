#pragma once

// One request of `HTTPClient` on its way over the wire, and the words for whatever may go wrong with it.

#include <array>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "foundations/Operation.h"
#include "platform/CurlLibrary.h"
#include "platform/HTTPClient.h"
#include "platform/Host.h"

namespace orvanta {

// The text that every failed request ends with, credentials masked; `what` has no full stop, `advice` is a sentence or
// two.
[[nodiscard]] std::string requestFailureText(const std::string& url, std::string_view what, std::string_view advice);
// Throws this text as a `network` error.
[[noreturn]] void failRequest(const std::string& url, std::string_view what, std::string_view advice);
// Throws `network` once a stop is requested.
void throwIfStopped(const std::string& url, const OperationContext& context);

// Who receives the body.
struct HTTPRecipient {
  std::function<void(int status, std::string_view bytes)> take;
  // Whether servers may compress the body on its way. Files are taken as they lie there: a server that sends an archive
  // with the mark of a compressed answer would have it unpacked.
  bool acceptsCompression = false;
};

// One request and its answer; redirects are not followed.
class HTTPTransfer {
 public:
  // Throws `network` where the request cannot even be described. What the references lead to outlives the transfer.
  HTTPTransfer(std::string url, const HTTPSettings& settings, const HTTPOptions& options,
               const HTTPRecipient& recipient);
  ~HTTPTransfer() = default;
  HTTPTransfer(const HTTPTransfer&) = delete;
  HTTPTransfer& operator=(const HTTPTransfer&) = delete;

  // Returns once the answer is complete; throws `network` otherwise, and what the recipient throws.
  void run(CURLM* multi, const OperationContext& context);

  [[nodiscard]] int status() const;
  // The absolute address the server sends us to.
  [[nodiscard]] std::optional<std::string> redirect() const;
  [[nodiscard]] std::map<std::string, std::string> takeHeaders() { return std::move(headers_); }

 private:
  template <typename Value>
  void set(CURLoption option, Value value);
  void describeRequest();
  void describeConnection();
  void takeAnswer();

  CURLcode follow(CURLM* multi, const OperationContext& context);
  void report(const OperationContext& context) const;
  [[noreturn]] void explain(CURLcode code) const;

  void addHeader(std::string_view line);
  void addBody(std::string_view bytes);
  static std::size_t onHeader(char* bytes, std::size_t size, std::size_t count, void* transfer);
  static std::size_t onBody(char* bytes, std::size_t size, std::size_t count, void* transfer);
  std::size_t guarded(void (HTTPTransfer::*take)(std::string_view), std::string_view bytes);

  const CurlLibrary& curl_ = CurlLibrary::get();
  const std::string url_;
  const HTTPSettings& settings_;
  const HTTPOptions& options_;
  const HTTPRecipient& recipient_;
  const std::optional<std::string> certificates_ = environmentVariable("SSL_CERT_FILE");
  std::array<char, CURL_ERROR_SIZE> reason_{};
  CurlList requestHeaders_;
  std::map<std::string, std::string> headers_;
  std::size_t headerBytes_ = 0;
  std::uint64_t bodyBytes_ = 0;
  // What ends the transfer; kept, because libcurl, which hands us the data, knows no exceptions.
  std::exception_ptr failure_;
  CurlEasy easy_{curl_.easyInit()};
};

}  // namespace orvanta
