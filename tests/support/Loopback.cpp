#include "tests/support/Loopback.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <string_view>

#include <gtest/gtest.h>

namespace orvanta {

namespace {

constexpr int patience = 50;  // milliseconds between two looks at whether to end

bool waitFor(int fd, const std::stop_token& end) {
  pollfd watched{fd, POLLIN, 0};
  while (!end.stop_requested()) {
    if (::poll(&watched, 1, patience) > 0) return true;
  }
  return false;
}

void send(int to, std::string_view bytes) {
  while (!bytes.empty()) {
    const auto count = ::send(to, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count <= 0) return;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
}

UniqueFd connectTo(int port) {
  UniqueFd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  EXPECT_EQ(::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  return fd;
}

// Up to the empty line, byte by byte, because what follows is the server's.
std::string readHead(int client, const std::stop_token& end) {
  std::string head;
  char byte = 0;
  while (!head.ends_with("\r\n\r\n") && waitFor(client, end) && ::read(client, &byte, 1) == 1) head += byte;
  return head;
}

void relay(int a, int b, const std::stop_token& end) {
  std::array<pollfd, 2> watched{{{a, POLLIN, 0}, {b, POLLIN, 0}}};
  std::array<char, 65536> buffer{};
  while (!end.stop_requested()) {
    ::poll(watched.data(), watched.size(), patience);
    for (const auto& [from, to] : {std::pair(0U, b), std::pair(1U, a)}) {
      if (watched.at(from).revents == 0) continue;
      const auto count = ::read(watched.at(from).fd, buffer.data(), buffer.size());
      if (count <= 0) return;
      send(to, {buffer.data(), static_cast<std::size_t>(count)});
    }
  }
}

}  // namespace

LoopbackPort::LoopbackPort() : socket_(::socket(AF_INET, SOCK_STREAM, 0)) {
  ::fcntl(socket_.get(), F_SETFD, FD_CLOEXEC);
  sockaddr_in address{};
  socklen_t size = sizeof address;
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  EXPECT_EQ(::bind(socket_.get(), generic, size), 0);
  EXPECT_EQ(::listen(socket_.get(), SOMAXCONN), 0);
  EXPECT_EQ(::getsockname(socket_.get(), generic, &size), 0);
  number_ = ntohs(address.sin_port);
}

WebProxy::WebProxy(int destination)
    : destination_(destination), acceptor_([this](const std::stop_token& end) { acceptAll(end); }) {}

std::string WebProxy::requests() {
  const std::lock_guard lock(mutex_);
  return requests_;
}

void WebProxy::acceptAll(const std::stop_token& end) {
  while (waitFor(port_.socket(), end)) {
    connections_.emplace_back([this, client = UniqueFd(::accept4(port_.socket(), nullptr, nullptr, SOCK_CLOEXEC))](
                                  const std::stop_token& over) { serve(client, over); });
  }
}

void WebProxy::serve(const UniqueFd& client, const std::stop_token& end) {
  auto head = readHead(client.get(), end);
  {
    const std::lock_guard lock(mutex_);
    requests_ += head;
  }
  const UniqueFd server = connectTo(destination_);
  if (head.starts_with("CONNECT ")) {
    send(client.get(), "HTTP/1.1 200 Connected\r\n\r\n");
  } else {
    // "GET http://host/path": the server wants only the path.
    const auto target = head.find(' ') + 1;
    send(server.get(), head.erase(target, head.find('/', head.find("://") + 3) - target));
  }
  relay(client.get(), server.get(), end);
}

}  // namespace orvanta
