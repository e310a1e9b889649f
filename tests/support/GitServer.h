#pragma once

// Real repositories behind a real web server on this machine, which git reaches by smart HTTP and by HTTPS with a
// certificate of the server's own. While it lives, git reads no configuration of the user's, but one in which this
// server stands in for GitHub: https://github.com/OWNER/NAME leads to the repository "OWNER/NAME".
//
// Repositories below "private/" want the user "reader" with the password "p@ss/word"; those below "slow/" are handed
// out at 64 KiB a second.

#include <sys/types.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "tests/support/Loopback.h"

namespace orvanta {

class GitServer {
 public:
  using Path = std::filesystem::path;
  using Files = std::map<std::string, std::string>;  // relative path → content

  // Keeps everything it needs below `root`.
  explicit GitServer(const Path& root);
  ~GitServer() { stop(); }
  GitServer(const GitServer&) = delete;
  GitServer& operator=(const GitServer&) = delete;

  // Adds a commit with these files to a branch, made from the current one if new, as is the repository. Returns its id.
  std::string commit(const std::string& repository, const Files& files, const std::string& branch = "main");
  // Makes a repository without files, to which may be pushed.
  void openForPushing(const std::string& repository);
  // Runs git in the repository's working folder and returns what it says; the test fails when git does.
  std::string git(const std::string& repository, const std::vector<std::string>& arguments);
  // Where the files of a repository lie; what is changed there becomes part of the next commit.
  [[nodiscard]] Path folder(const std::string& repository) const {
    return root_ / "repositories" / (repository + ".git");
  }

  [[nodiscard]] std::string address() const { return "http://127.0.0.1:" + std::to_string(port_.number()) + "/"; }
  [[nodiscard]] std::string url(const std::string& repository) const { return address() + repository + ".git"; }
  // Where HTTPS is spoken; the certificate is for github.com as well.
  [[nodiscard]] int securePort() const { return securePort_.number(); }
  [[nodiscard]] Path certificate() const { return root_ / "github.com.pem"; }

  // What was asked of the server, a line each: method, address, and the Authorization header in brackets.
  [[nodiscard]] std::string requests() const;
  // The configuration that git reads.
  [[nodiscard]] Path configuration() const { return root_ / "gitconfig"; }

  // Connections are refused from now on.
  void stop();

 private:
  void writeFiles() const;
  void start();

  const Path root_;
  LoopbackPort port_;
  LoopbackPort securePort_;
  pid_t server_ = -1;
};

}  // namespace orvanta
