#include "platform/HTTPClient.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <exception>
#include <mutex>
#include <optional>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "foundations/SkillsError.h"
#include "foundations/Text.h"
#include "platform/CurlLibrary.h"
#include "platform/Host.h"
#include "platform/UniqueFd.h"
#include "platform/WebAddress.h"

namespace orvanta {

namespace {

using SteadyClock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

constexpr int mostRedirects = 5;
constexpr std::size_t largestHeaders = std::size_t{256} << 10;
// How long a requested stop may go unnoticed.
constexpr Milliseconds longestWait(200);
// What a server must send within the idle time to count as one that keeps moving.
constexpr std::uint64_t movingBytes = std::uint64_t{64} << 10;

std::string shown(const std::string& url) { return Text::singleLine(Text::maskCredentials(url)); }

// The text every failed request ends with; `what` has no full stop, `advice` is a sentence or two.
std::string failureText(const std::string& url, std::string_view what, std::string_view advice) {
  return fmt::format("Could not load {}: {}. {}", shown(url), Text::singleLine(Text::maskCredentials(what)), advice);
}

[[noreturn]] void fail(const std::string& url, std::string_view what, std::string_view advice) {
  throw SkillsError::network(failureText(url, what, advice));
}

double seconds(Milliseconds time) { return std::chrono::duration<double>(time).count(); }

bool hasScheme(const std::string& url, std::string_view scheme) {
  const auto start = Text::lowercase(url.substr(0, scheme.size() + 3));
  return start == std::string(scheme) + "://";
}

// Who receives the body.
struct Recipient {
  std::function<void(int status, std::string_view bytes)> take;
  // Whether servers may compress the body on its way. Files are taken as they lie there: a server that sends an archive
  // with the mark of a compressed answer would have it unpacked.
  bool acceptsCompression = false;
};

// One request and its answer; redirects are not followed.
class Transfer {
 public:
  Transfer(std::string url, const HTTPSettings& settings, const HTTPOptions& options, const Recipient& recipient)
      : url_(std::move(url)), settings_(settings), options_(options), recipient_(recipient) {
    if (easy_ == nullptr) throw SkillsError::network("Cannot start a request: out of memory.");
    describeRequest();
    describeConnection();
    takeAnswer();
  }
  ~Transfer() = default;
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;

  // Returns once the answer is complete; throws otherwise.
  void run(CURLM* multi, const OperationContext& context);

  [[nodiscard]] int status() const {
    long code = 0;
    curl_.easyGetinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &code);
    return static_cast<int>(code);
  }

  // The absolute address the server sends us to.
  [[nodiscard]] std::optional<std::string> redirect() const {
    const char* target = nullptr;
    curl_.easyGetinfo(easy_.get(), CURLINFO_REDIRECT_URL, &target);
    return target == nullptr ? std::nullopt : std::optional<std::string>(target);
  }

  [[nodiscard]] std::map<std::string, std::string> takeHeaders() { return std::move(headers_); }

 private:
  template <typename Value>
  void set(CURLoption option, Value value) {
    if (const auto code = curl_.easySetopt(easy_.get(), option, value); code != CURLE_OK) {
      fail(url_, curl_.easyStrerror(code), "Install a newer libcurl.");
    }
  }

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
  std::size_t guarded(void (Transfer::*take)(std::string_view), std::string_view bytes);

  const CurlLibrary& curl_ = CurlLibrary::get();
  const std::string url_;
  const HTTPSettings& settings_;
  const HTTPOptions& options_;
  const Recipient& recipient_;
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

void Transfer::describeRequest() {
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

void Transfer::describeConnection() {
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

void Transfer::takeAnswer() {
  set(CURLOPT_ERRORBUFFER, reason_.data());
  set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
  set(CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(options_.largest));
  set(CURLOPT_HEADERFUNCTION, &Transfer::onHeader);
  set(CURLOPT_HEADERDATA, this);
  set(CURLOPT_WRITEFUNCTION, &Transfer::onBody);
  set(CURLOPT_WRITEDATA, this);
}

std::size_t Transfer::onHeader(char* bytes, std::size_t size, std::size_t count, void* transfer) {
  return static_cast<Transfer*>(transfer)->guarded(&Transfer::addHeader, {bytes, size * count});
}

std::size_t Transfer::onBody(char* bytes, std::size_t size, std::size_t count, void* transfer) {
  return static_cast<Transfer*>(transfer)->guarded(&Transfer::addBody, {bytes, size * count});
}

std::size_t Transfer::guarded(void (Transfer::*take)(std::string_view), std::string_view bytes) {
  try {
    (this->*take)(bytes);
    return bytes.size();
  } catch (...) {
    failure_ = std::current_exception();
    return 0;
  }
}

void Transfer::addHeader(std::string_view line) {
  headerBytes_ += line.size();
  if (headerBytes_ > largestHeaders) fail(url_, "the server sends headers without end", "Check the address.");
  // Each of several answers to one request (100, then 200) starts anew.
  if (line.starts_with("HTTP/")) headers_.clear();
  const auto colon = line.find(':');
  if (colon == std::string_view::npos) return;
  headers_[Text::lowercase(line.substr(0, colon))] = Text::repairUTF8(Text::trim(line.substr(colon + 1)));
}

void Transfer::addBody(std::string_view bytes) {
  if (bytes.size() > options_.largest - bodyBytes_) explain(CURLE_FILESIZE_EXCEEDED);
  bodyBytes_ += bytes.size();
  // The page that comes with a redirect is not what was asked for.
  if (const int code = status(); code < 300 || code > 399) recipient_.take(code, bytes);
}

void Transfer::report(const OperationContext& context) const {
  curl_off_t total = 0;
  curl_.easyGetinfo(easy_.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &total);
  context.report("Downloading", bodyBytes_, static_cast<std::size_t>(std::max<curl_off_t>(total, 0)));
}

void Transfer::run(CURLM* multi, const OperationContext& context) {
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

CURLcode Transfer::follow(CURLM* multi, const OperationContext& context) {
  auto deadline = SteadyClock::now() + options_.idleTimeout;
  std::uint64_t receivedBefore = 0;
  int running = 1;
  while (true) {
    if (const auto code = curl_.multiPerform(multi, &running); code != CURLM_OK) {
      fail(url_, "the transfer broke down inside libcurl", "Try again.");
    }
    report(context);
    if (running == 0) break;
    if (context.stop.stop_requested()) throw SkillsError::network("Loading " + shown(url_) + " was stopped.");
    const auto now = SteadyClock::now();
    if (const auto received = headerBytes_ + bodyBytes_; received >= receivedBefore + movingBytes) {
      receivedBefore = received;
      deadline = now + options_.idleTimeout;
    }
    if (now >= deadline) {
      fail(url_, fmt::format("the server sent next to nothing for {} seconds", seconds(options_.idleTimeout)),
           "Try again later.");
    }
    const auto wait = std::min(std::chrono::ceil<Milliseconds>(deadline - now), longestWait);
    curl_.multiPoll(multi, nullptr, 0, static_cast<int>(wait.count()), nullptr);
  }
  int left = 0;
  const auto* message = curl_.multiInfoRead(multi, &left);
  return message == nullptr ? CURLE_RECV_ERROR : message->data.result;
}

void Transfer::explain(CURLcode code) const {
  switch (code) {
    case CURLE_FILESIZE_EXCEEDED:
      throw HTTPTooLarge(failureText(url_, fmt::format("it is larger than the limit of {} bytes", options_.largest),
                                     "Check that the address is the right one."));
    case CURLE_PARTIAL_FILE: fail(url_, "the server ended its answer early", "Try again later.");
    case CURLE_OPERATION_TIMEDOUT:
      fail(url_, fmt::format("there was no connection within {} seconds", seconds(options_.connectTimeout)),
           "Check the address, your network connection and the proxy setting.");
    // libcurl's own words would show the password of a malformed proxy.
    case CURLE_COULDNT_RESOLVE_PROXY:
      fail(url_, "the proxy cannot be used, because its address is malformed or its host unknown",
           "Check the proxy setting.");
    case CURLE_SSL_CACERT_BADFILE:
      fail(url_, "the trusted certificates cannot be read from " + certificates_.value_or("the system's file"),
           "Check the variable SSL_CERT_FILE.");
    case CURLE_PEER_FAILED_VERIFICATION:
      fail(url_, fmt::format("the server's certificate is not trusted ({})", reason_.data()),
           "If your network has a certificate authority of its own, name its file in the variable SSL_CERT_FILE.");
    default: break;
  }
  const std::string_view reason = reason_.front() != '\0' ? reason_.data() : curl_.easyStrerror(code);
  fail(url_, reason, "Check the address, your network connection and the proxy setting, or try again later.");
}

// A file that does not outlive a failure.
class NewFile {
 public:
  explicit NewFile(std::filesystem::path path)
      : path_(std::move(path)), fd_(::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644)) {
    if (!fd_) throw SkillsError::system("Cannot create " + path_.string(), errno);
  }
  ~NewFile() {
    if (!complete_) ::unlink(path_.c_str());
  }
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  void write(std::string_view bytes) const {
    while (!bytes.empty()) {
      const auto count = ::write(fd_.get(), bytes.data(), bytes.size());
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) throw SkillsError::system("Cannot write " + path_.string(), errno);
      bytes.remove_prefix(static_cast<std::size_t>(count));
    }
  }

  // Some file systems only now say that the disk is full.
  void complete() {
    if (::close(fd_.release()) != 0) throw SkillsError::system("Cannot write " + path_.string(), errno);
    complete_ = true;
  }

 private:
  const std::filesystem::path path_;
  UniqueFd fd_;
  bool complete_ = false;
};

void checkRedirect(const std::string& from, const std::string& to, int followed) {
  if (followed == mostRedirects) {
    fail(from, fmt::format("the server redirects more than {} times", mostRedirects), "Check the address.");
  }
  if (hasScheme(from, "https") && !hasScheme(to, "https")) {
    fail(from, "the server redirects to " + to + ", which is not protected by https", "Check the address.");
  }
}

}  // namespace

// Idle connections. Each handle of libcurl's keeps those of the requests made with it, one after the other; so a
// request takes one that nobody else uses and gives it back.
class HTTPClient::Connections {
 public:
  HTTPResponse request(std::string url, const HTTPSettings& settings, const HTTPOptions& options,
                       const OperationContext& context, const Recipient& recipient) {
    auto multi = take();
    for (int followed = 0;; ++followed) {
      if (!hasScheme(url, "http") && !hasScheme(url, "https")) {
        fail(url, "it is no http or https address", "Check the address.");
      }
      if (context.stop.stop_requested()) throw SkillsError::network("Loading " + shown(url) + " was stopped.");
      Transfer transfer(url, settings, options, recipient);
      transfer.run(multi.get(), context);
      const auto target = transfer.redirect();
      if (!target) {
        giveBack(std::move(multi));
        return {.status = transfer.status(), .finalURL = std::move(url), .headers = transfer.takeHeaders()};
      }
      checkRedirect(url, *target, followed);
      if (options.checkRedirect) options.checkRedirect(*target);
      url = *target;
    }
  }

 private:
  CurlMulti take() {
    const std::lock_guard lock(mutex_);
    if (idle_.empty()) return CurlMulti(CurlLibrary::get().multiInit());
    auto multi = std::move(idle_.back());
    idle_.pop_back();
    return multi;
  }

  void giveBack(CurlMulti multi) {
    const std::lock_guard lock(mutex_);
    idle_.push_back(std::move(multi));
  }

  std::mutex mutex_;
  std::vector<CurlMulti> idle_;
};

HTTPClient::HTTPClient(HTTPSettings settings)
    : settings_(std::move(settings)), connections_(std::make_shared<Connections>()) {}

HTTPResponse HTTPClient::get(const std::string& url, const HTTPOptions& options,
                             const OperationContext& context) const {
  std::string body;
  const Recipient recipient{[&](int, std::string_view bytes) { body += bytes; }, /*acceptsCompression=*/true};
  auto response = connections_->request(url, settings_, options, context, recipient);
  response.body = std::move(body);
  return response;
}

HTTPResponse HTTPClient::download(const std::string& url, const std::filesystem::path& file, const HTTPOptions& options,
                                  const OperationContext& context) const {
  NewFile target(file);
  const Recipient recipient{[&](int status, std::string_view bytes) {
    if (status >= 200 && status <= 299) target.write(bytes);
  }};
  auto response = connections_->request(url, settings_, options, context, recipient);
  if (!response.succeeded()) {
    throw HTTPStatusError(
        response.status,
        failureText(response.finalURL, fmt::format("the server answered with status {}", response.status),
                    "Check the address."));
  }
  target.complete();
  return response;
}

std::string withQuery(const std::string& url, const std::vector<std::pair<std::string, std::string>>& items) {
  std::string result = url;
  char separator = url.find('?') == std::string::npos ? '?' : '&';
  for (const auto& [name, value] : items) {
    result += separator + percentEncoded(name) + "=" + percentEncoded(value);
    separator = '&';
  }
  return result;
}

}  // namespace orvanta
