#include "tests/support/WebServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include <gtest/gtest.h>

#include "platform/ProcessRunner.h"

namespace orvanta {

namespace {

sockaddr_in loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

UniqueFd listenOnLoopback() {
  UniqueFd fd(::socket(AF_INET, SOCK_STREAM, 0));
  const auto address = loopback(0);
  EXPECT_EQ(::bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  EXPECT_EQ(::listen(fd.get(), 16), 0);
  return fd;
}

UniqueFd connectToLoopback(int port) {
  UniqueFd fd(::socket(AF_INET, SOCK_STREAM, 0));
  const auto address = loopback(port);
  EXPECT_EQ(::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  return fd;
}

int portOf(const UniqueFd& fd) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  EXPECT_EQ(::getsockname(fd.get(), reinterpret_cast<sockaddr*>(&address), &size), 0);
  return ntohs(address.sin_port);
}

// To a side that has gone is no error here; httplib makes the process ignore SIGPIPE.
void sendAll(const UniqueFd& to, std::string_view bytes) {
  while (!bytes.empty()) {
    const auto count = ::write(to.get(), bytes.data(), bytes.size());
    if (count <= 0) return;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
}

// Empty at the end of the connection.
std::string receive(const UniqueFd& from) {
  std::string buffer(std::size_t{64} << 10, '\0');
  const auto count = ::recv(from.get(), buffer.data(), buffer.size(), 0);
  buffer.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  return buffer;
}

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

WebProxy::WebProxy(const WebServer& upstream) : upstreamPort_(upstream.port()), listener_(listenOnLoopback()) {
  thread_ = std::thread([this] { listen(); });
}

WebProxy::~WebProxy() {
  ending_ = true;
  connectToLoopback(portOf(listener_));  // Wakes the thread that waits for one.
  thread_.join();
}

std::string WebProxy::url(const std::string& credentials) const {
  return "http://" + credentials + "127.0.0.1:" + std::to_string(portOf(listener_));
}

std::vector<std::string> WebProxy::requests() {
  const std::lock_guard lock(mutex_);
  return requests_;
}

void WebProxy::listen() {
  std::vector<std::jthread> connections;
  while (true) {
    UniqueFd client(::accept(listener_.get(), nullptr, nullptr));
    if (ending_ || !client) return;
    connections.emplace_back([this, fd = client.release()] { handle(UniqueFd(fd)); });
  }
}

void WebProxy::handle(UniqueFd client) {
  std::string head;
  while (head.find("\r\n\r\n") == std::string::npos) {
    const auto bytes = receive(client);
    if (bytes.empty()) return;
    head += bytes;
  }
  {
    const std::lock_guard lock(mutex_);
    requests_.push_back(head);
  }
  const auto upstream = connectToLoopback(upstreamPort_);
  if (head.starts_with("CONNECT ")) {
    sendAll(client, "HTTP/1.1 200 Connection established\r\n\r\n");
  } else {
    // "GET http://host/path": the server wants only the path.
    const auto host = head.find("://") + 3;
    const auto target = head.find(' ') + 1;
    sendAll(upstream, head.erase(target, head.find('/', host) - target));
  }
  std::array<pollfd, 2> sides{{{client.get(), POLLIN, 0}, {upstream.get(), POLLIN, 0}}};
  while (::poll(sides.data(), sides.size(), -1) > 0) {
    const bool fromClient = sides[0].revents != 0;
    const auto bytes = receive(fromClient ? client : upstream);
    if (bytes.empty()) return;
    sendAll(fromClient ? upstream : client, bytes);
  }
}

}  // namespace orvanta
