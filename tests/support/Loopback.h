#pragma once

// Ports of this machine alone, and a web proxy that leads to one of them.

#include <list>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>

#include "platform/UniqueFd.h"

namespace orvanta {

// A port of this machine at which somebody listens, but nobody has answered yet.
class LoopbackPort {
 public:
  LoopbackPort();
  [[nodiscard]] int number() const { return number_; }
  [[nodiscard]] int socket() const { return socket_.get(); }
  // From now on connections are refused, unless another process listens too.
  void close() { socket_.reset(); }

 private:
  UniqueFd socket_;
  int number_ = 0;
};

// Leads every connection to one port, whatever host it was asked for: what is said to a host of the real world reaches
// a server of the test.
class WebProxy {
 public:
  explicit WebProxy(int destination);

  // With credentials that end in an "@", if any.
  [[nodiscard]] std::string url(const std::string& credentials = "") const {
    return "http://" + credentials + "127.0.0.1:" + std::to_string(port_.number());
  }
  // The heads of the requests as they came.
  std::string requests();

 private:
  void acceptAll(const std::stop_token& end);
  void serve(const UniqueFd& client, const std::stop_token& end);

  const int destination_;
  LoopbackPort port_;
  std::mutex mutex_;
  std::string requests_;
  std::list<std::jthread> connections_;
  std::jthread acceptor_;
};

}  // namespace orvanta
