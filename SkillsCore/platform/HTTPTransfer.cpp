#include "platform/HTTPTransfer.h"

#include <algorithm>
#include <chrono>

#include <fmt/format.h>

#include "foundations/SkillsError.h"
#include "foundations/Text.h"

namespace orvanta {

namespace {

using SteadyClock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

constexpr std::size_t largestHeaders = std::size_t{256} << 10;
// How long a requested stop may go unnoticed.
constexpr Milliseconds longestWait(200);
// What a server must send within the idle time to count as one that keeps moving.
constexpr std::uint64_t movingBytes = std::uint64_t{64} << 10;

std::string shown(const std::string& url) { return Text::singleLine(Text::maskCredentials(url)); }

double seconds(Milliseconds time) { return std::chrono::duration<double>(time).count(); }

}  // namespace

std::string requestFailureText(const std::string& url, std::string_view what, std::string_view advice) {
  return fmt::format("Could not load {}: {}. {}", shown(url), Text::singleLine(Text::maskCredentials(what)), advice);
}

void failRequest(const std::string& url, std::string_view what, std::string_view advice) {
  throw SkillsError::network(requestFailureText(url, what, advice));
}

void throwIfStopped(const std::string& url, const OperationContext& context) {
  if (context.stop.stop_requested()) throw SkillsError::network("Loading " + shown(url) + " was stopped.");
}

HTTPTransfer::HTTPTransfer(std::string url, const HTTPSettings& settings, const HTTPOptions& options,
                           const HTTPRecipient& recipient)
    : url_(std::move(url)), settings_(settings), options_(options), recipient_(recipient) {
  if (easy_ == nullptr) throw SkillsError::network("Cannot start a request: out of memory.");
  describeRequest();
  describeConnection();
  takeAnswer();
}

int HTTPTransfer::status() const {
  long code = 0;
  curl_.easyGetinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &code);
  return static_cast<int>(code);
}

std::optional<std::string> HTTPTransfer::redirect() const {
  const char* target = nullptr;
  curl_.easyGetinfo(easy_.get(), CURLINFO_REDIRECT_URL, &target);
  return target == nullptr ? std::nullopt : std::optional<std::string>(target);
}

template <typename Value>
void HTTPTransfer::set(CURLoption option, Value value) {
  if (const auto code = curl_.easySetopt(easy_.get(), option, value); code != CURLE_OK) {
    failRequest(url_, curl_.easyStrerror(code), "Install a newer libcurl.");
  }
}

void HTTPTransfer::describeRequest() {
  set(CURLOPT_URL, url_.c_str());
  set(CURLOPT_USERAGENT, settings_.userAgent.c_str());
  if (recipient_.acceptsCompression) set(CURLOPT_ACCEPT_ENCODING, "");
  for (const auto& [name, value] : options_.headers) {
    const auto line = name + ": " + value;
    // On failure the list stays as it was, still ours to free.
    auto* longer = curl_.slistAppend(requestHeaders_.get(), line.c_str());
    if (longer == nullptr) throw SkillsError::network("Cannot start a request: out of memory.");
    static_cast<void>(requestHeaders_.release());
    requestHeaders_.reset(longer);
  }
  set(CURLOPT_HTTPHEADER, requestHeaders_.get());
}

void HTTPTransfer::describeConnection() {
  // A library must not catch signals for the whole program.
  set(CURLOPT_NOSIGNAL, 1L);
  set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(options_.connectTimeout.count()));
  set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
  if (!settings_.proxyURL.empty()) set(CURLOPT_PROXY, settings_.proxyURL.c_str());
  if (certificates_) {
    set(CURLOPT_CAINFO, certificates_->c_str());
    set(CURLOPT_PROXY_CAINFO, certificates_->c_str());
  }
#if LIBCURL_VERSION_NUM >= 0x075700
  // A stop must not wait for a name server. Where the loaded library is older than its header, it does.
  curl_.easySetopt(easy_.get(), CURLOPT_QUICK_EXIT, 1L);
#endif
}

void HTTPTransfer::takeAnswer() {
  set(CURLOPT_ERRORBUFFER, reason_.data());
  set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
  set(CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(options_.largest));
  set(CURLOPT_HEADERFUNCTION, &HTTPTransfer::onHeader);
  set(CURLOPT_HEADERDATA, this);
  set(CURLOPT_WRITEFUNCTION, &HTTPTransfer::onBody);
  set(CURLOPT_WRITEDATA, this);
}

std::size_t HTTPTransfer::onHeader(char* bytes, std::size_t size, std::size_t count, void* transfer) {
  return static_cast<HTTPTransfer*>(transfer)->guarded(&HTTPTransfer::addHeader, {bytes, size * count});
}

std::size_t HTTPTransfer::onBody(char* bytes, std::size_t size, std::size_t count, void* transfer) {
  return static_cast<HTTPTransfer*>(transfer)->guarded(&HTTPTransfer::addBody, {bytes, size * count});
}

std::size_t HTTPTransfer::guarded(void (HTTPTransfer::*take)(std::string_view), std::string_view bytes) {
  try {
    (this->*take)(bytes);
    return bytes.size();
  } catch (...) {
    failure_ = std::current_exception();
    return 0;
  }
}

void HTTPTransfer::addHeader(std::string_view line) {
  headerBytes_ += line.size();
  if (headerBytes_ > largestHeaders) failRequest(url_, "the server sends headers without end", "Check the address.");
  // Each of several answers to one request (100, then 200) starts anew.
  if (line.starts_with("HTTP/")) headers_.clear();
  const auto colon = line.find(':');
  if (colon == std::string_view::npos) return;
  headers_[Text::lowercase(line.substr(0, colon))] = Text::repairUTF8(Text::trim(line.substr(colon + 1)));
}

void HTTPTransfer::addBody(std::string_view bytes) {
  if (bytes.size() > options_.largest - bodyBytes_) explain(CURLE_FILESIZE_EXCEEDED);
  bodyBytes_ += bytes.size();
  // The page that comes with a redirect is not what was asked for.
  if (const int code = status(); code < 300 || code > 399) recipient_.take(code, bytes);
}

void HTTPTransfer::report(const OperationContext& context) const {
  curl_off_t total = 0;
  curl_.easyGetinfo(easy_.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &total);
  context.report("Downloading", bodyBytes_, static_cast<std::size_t>(std::max<curl_off_t>(total, 0)));
}

void HTTPTransfer::run(CURLM* multi, const OperationContext& context) {
  const auto start = SteadyClock::now();
  curl_.multiAddHandle(multi, easy_.get());
  CURLcode code = CURLE_OK;
  try {
    code = follow(multi, context);
  } catch (...) {
    failure_ = std::current_exception();
  }
  curl_.multiRemoveHandle(multi, easy_.get());
  if (settings_.onExchange) {
    const auto duration = std::chrono::duration_cast<Milliseconds>(SteadyClock::now() - start);
    settings_.onExchange({"GET", shown(url_), status(), duration});
  }
  if (failure_) std::rethrow_exception(failure_);
  if (code != CURLE_OK) explain(code);
}

CURLcode HTTPTransfer::follow(CURLM* multi, const OperationContext& context) {
  auto deadline = SteadyClock::now() + options_.idleTimeout;
  std::uint64_t receivedBefore = 0;
  int running = 1;
  while (true) {
    if (const auto code = curl_.multiPerform(multi, &running); code != CURLM_OK) {
      failRequest(url_, "the transfer broke down inside libcurl", "Try again.");
    }
    report(context);
    if (running == 0) break;
    throwIfStopped(url_, context);
    const auto now = SteadyClock::now();
    if (const auto received = headerBytes_ + bodyBytes_; received >= receivedBefore + movingBytes) {
      receivedBefore = received;
      deadline = now + options_.idleTimeout;
    }
    if (now >= deadline) {
      failRequest(url_, fmt::format("the server sent next to nothing for {} seconds", seconds(options_.idleTimeout)),
                  "Try again later.");
    }
    const auto wait = std::min(std::chrono::ceil<Milliseconds>(deadline - now), longestWait);
    curl_.multiPoll(multi, nullptr, 0, static_cast<int>(wait.count()), nullptr);
  }
  int left = 0;
  const auto* message = curl_.multiInfoRead(multi, &left);
  return message == nullptr ? CURLE_RECV_ERROR : message->data.result;
}

void HTTPTransfer::explain(CURLcode code) const {
  switch (code) {
    case CURLE_FILESIZE_EXCEEDED:
      throw HTTPTooLarge(requestFailureText(url_,
                                            fmt::format("it is larger than the limit of {} bytes", options_.largest),
                                            "Check that the address is the right one."));
    case CURLE_PARTIAL_FILE: failRequest(url_, "the server ended its answer early", "Try again later.");
    case CURLE_OPERATION_TIMEDOUT:
      failRequest(url_, fmt::format("there was no connection within {} seconds", seconds(options_.connectTimeout)),
                  "Check the address, your network connection and the proxy setting.");
    // libcurl's own words would show the password of a malformed proxy.
    case CURLE_COULDNT_RESOLVE_PROXY:
      failRequest(url_, "the proxy cannot be used, because its address is malformed or its host unknown",
                  "Check the proxy setting.");
    case CURLE_SSL_CACERT_BADFILE:
      failRequest(url_, "the trusted certificates cannot be read from " + certificates_.value_or("the system's file"),
                  "Check the variable SSL_CERT_FILE.");
    case CURLE_PEER_FAILED_VERIFICATION:
      failRequest(
          url_, fmt::format("the server's certificate is not trusted ({})", reason_.data()),
          "If your network has a certificate authority of its own, name its file in the variable SSL_CERT_FILE.");
    default: break;
  }
  const std::string_view reason = reason_.front() != '\0' ? reason_.data() : curl_.easyStrerror(code);
  failRequest(url_, reason, "Check the address, your network connection and the proxy setting, or try again later.");
}

}  // namespace orvanta
