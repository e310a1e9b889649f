#include "platform/HTTPClient.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>
#include <string_view>

#include <fmt/format.h>

#include "foundations/SkillsError.h"
#include "foundations/Text.h"
#include "platform/CurlLibrary.h"
#include "platform/HTTPTransfer.h"
#include "platform/UniqueFd.h"
#include "platform/WebAddress.h"
#include "platform/WriteAll.h"

namespace orvanta {

namespace {

constexpr int mostRedirects = 5;

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
    if (!writeAll(fd_.get(), bytes)) throw SkillsError::system("Cannot write " + path_.string(), errno);
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

bool hasScheme(const std::string& url, std::string_view scheme) {
  const auto start = Text::lowercase(url.substr(0, scheme.size() + 3));
  return start == std::string(scheme) + "://";
}

void checkRedirect(const std::string& from, const std::string& to, int followed) {
  if (followed == mostRedirects) {
    failRequest(from, fmt::format("the server redirects more than {} times", mostRedirects), "Check the address.");
  }
  if (hasScheme(from, "https") && !hasScheme(to, "https")) {
    failRequest(from, "the server redirects to " + to + ", which is not protected by https", "Check the address.");
  }
}

}  // namespace

// Idle connections. Each handle of libcurl's keeps those of the requests made with it, one after the other; so a
// request takes one that nobody else uses and gives it back.
class HTTPClient::Connections {
 public:
  HTTPResponse request(std::string url, const HTTPSettings& settings, const HTTPOptions& options,
                       const OperationContext& context, const HTTPRecipient& recipient) {
    auto multi = take();
    for (int followed = 0;; ++followed) {
      if (!hasScheme(url, "http") && !hasScheme(url, "https")) {
        failRequest(url, "it is no http or https address", "Check the address.");
      }
      throwIfStopped(url, context);
      HTTPTransfer transfer(url, settings, options, recipient);
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
  const HTTPRecipient recipient{[&](int, std::string_view bytes) { body += bytes; }, /*acceptsCompression=*/true};
  auto response = connections_->request(url, settings_, options, context, recipient);
  response.body = std::move(body);
  return response;
}

HTTPResponse HTTPClient::download(const std::string& url, const std::filesystem::path& file, const HTTPOptions& options,
                                  const OperationContext& context) const {
  NewFile target(file);
  const HTTPRecipient recipient{[&](int status, std::string_view bytes) {
    if (status >= 200 && status <= 299) target.write(bytes);
  }};
  auto response = connections_->request(url, settings_, options, context, recipient);
  if (!response.succeeded()) {
    throw HTTPStatusError(
        response.status,
        requestFailureText(response.finalURL, fmt::format("the server answered with status {}", response.status),
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
