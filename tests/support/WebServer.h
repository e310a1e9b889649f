#pragma once

// A real server on loopback at a port of the system's choice, for tests of whatever talks to the web: it answers as the
// test says, over http or https.

#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include <httplib.h>

namespace orvanta {

// A certificate that nobody trusts by default, with its key, valid for 127.0.0.1 and one host name.
struct Certificate {
  std::filesystem::path certificate;
  std::filesystem::path key;

  static Certificate make(const std::filesystem::path& folder, const std::string& host);
};

class WebServer {
 public:
  using Handler = std::function<void(const httplib::Request&, httplib::Response&)>;

  WebServer();
  explicit WebServer(const Certificate& certificate);
  ~WebServer();
  WebServer(const WebServer&) = delete;
  WebServer& operator=(const WebServer&) = delete;

  // Everything is set up before the first request.
  void on(const std::string& path, const Handler& handler) { server_->Get(path, handler); }
  // Answers with this text.
  void serve(const std::string& path, const std::string& body, const std::string& type = "text/plain");
  void redirect(const std::string& path, const std::string& target, int status = 302);
  // Sends the headers and `sent`, then closes the connection though the length it told is `length`.
  void truncate(const std::string& path, std::size_t length, const std::string& sent);
  // Sends zeros until the client has enough; in chunks of known sizes or up to the end of the connection.
  enum class Framing { chunked, untilClose };
  void endless(const std::string& path, Framing framing);
  // Sends `sent` of a longer body, then nothing more; nothing at all, not even a status, when `sent` is empty.
  void stall(const std::string& path, const std::string& sent = "");

  [[nodiscard]] int port() const { return port_; }
  [[nodiscard]] std::string url(const std::string& path = "/") const;
  // The bytes that `endless` bodies have got rid of.
  [[nodiscard]] std::uint64_t bytesSent() const { return bytesSent_; }

 private:
  WebServer(std::unique_ptr<httplib::Server> server, std::string scheme);
  void waitForTheEnd();

  std::unique_ptr<httplib::Server> server_;
  const std::string scheme_;
  const int port_;
  std::atomic<std::uint64_t> bytesSent_ = 0;
  std::mutex mutex_;
  std::condition_variable ended_;
  bool ending_ = false;
  std::thread thread_;
};

}  // namespace orvanta
