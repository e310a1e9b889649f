#include "tests/support/WebServer.h"

#include <utility>

#include <gtest/gtest.h>

#include "platform/ProcessRunner.h"

namespace orvanta {

namespace {

int bindToAnyPort(httplib::Server& server) {
  // Otherwise the second half of each answer waits 40 ms for the client to acknowledge the first.
  server.set_tcp_nodelay(true);
  return server.bind_to_any_port("127.0.0.1");
}

}  // namespace

Certificate Certificate::make(const std::filesystem::path& folder, const std::string& host) {
  Certificate made{folder / (host + ".pem"), folder / (host + ".key")};
  const auto result = ProcessRunner::run(
      "/usr/bin/openssl", {"req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
                           "-days", "2", "-subj", "/CN=" + host, "-addext", "subjectAltName=IP:127.0.0.1,DNS:" + host,
                           "-out", made.certificate.string(), "-keyout", made.key.string()});
  EXPECT_TRUE(result.succeeded()) << result.failureText();
  return made;
}

WebServer::WebServer() : WebServer(std::make_unique<httplib::Server>(), "http") {}

WebServer::WebServer(const Certificate& certificate)
    : WebServer(std::make_unique<httplib::SSLServer>(certificate.certificate.c_str(), certificate.key.c_str()),
                "https") {}

WebServer::WebServer(std::unique_ptr<httplib::Server> server, std::string scheme)
    : server_(std::move(server)), scheme_(std::move(scheme)), port_(bindToAnyPort(*server_)) {
  EXPECT_GT(port_, 0);
  thread_ = std::thread([this] { server_->listen_after_bind(); });
  while (!server_->is_running()) std::this_thread::yield();
}

WebServer::~WebServer() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  ended_.notify_all();
  server_->stop();
  thread_.join();
}

void WebServer::waitForTheEnd() {
  std::unique_lock lock(mutex_);
  ended_.wait(lock, [this] { return ending_; });
}

std::string WebServer::url(const std::string& path) const {
  return scheme_ + "://127.0.0.1:" + std::to_string(port_) + path;
}

void WebServer::serve(const std::string& path, const std::string& body, const std::string& type) {
  on(path, [=](const auto&, auto& response) { response.set_content(body, type); });
}

void WebServer::redirect(const std::string& path, const std::string& target, int status) {
  on(path, [=](const auto&, auto& response) {
    response.set_redirect(target, status);
    response.set_content("the page of a redirect", "text/plain");
  });
}

void WebServer::truncate(const std::string& path, std::size_t length, const std::string& sent) {
  on(path, [=](const auto&, auto& response) {
    response.set_content_provider(length, "text/plain", [sent](std::size_t, std::size_t, httplib::DataSink& sink) {
      sink.write(sent.data(), sent.size());
      return false;
    });
  });
}

void WebServer::endless(const std::string& path, Framing framing) {
  on(path, [=, this](const auto&, auto& response) {
    const auto provider = [this](std::size_t, httplib::DataSink& sink) {
      const std::string block(std::size_t{64} << 10, '\0');
      const bool taken = sink.write(block.data(), block.size());
      if (taken) bytesSent_ += block.size();
      return taken;
    };
    if (framing == Framing::chunked) {
      response.set_chunked_content_provider("application/octet-stream", provider);
    } else {
      response.set_content_provider("application/octet-stream", provider);
    }
  });
}

void WebServer::stall(const std::string& path, const std::string& sent) {
  on(path, [=, this](const auto&, auto& response) {
    if (sent.empty()) return waitForTheEnd();
    response.set_content_provider(sent.size() + 1, "text/plain",
                                  [=, this](std::size_t, std::size_t, httplib::DataSink& sink) {
                                    sink.write(sent.data(), sent.size());
                                    waitForTheEnd();
                                    return false;
                                  });
  });
}

}  // namespace orvanta
