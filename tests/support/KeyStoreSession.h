#pragma once

// A desktop session of the test's own: a message bus and, once started, the key store of a desktop. What uses them runs
// in another process, because a process connects to its session only once.

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

namespace orvanta {

class KeyStoreSession {
 public:
  // From now on there is no session but this one, which keeps everything it needs below `root`.
  explicit KeyStoreSession(const std::filesystem::path& root);
  ~KeyStoreSession();
  KeyStoreSession(const KeyStoreSession&) = delete;
  KeyStoreSession& operator=(const KeyStoreSession&) = delete;

  // Both return the process, which ends with the session.
  pid_t startBus();
  // Unlocked with a password, as at login; `locked`: nobody has logged in, and nobody is there to be asked.
  enum class Login { unlocked, locked };
  pid_t startKeyStore(Login login = Login::unlocked);

  [[nodiscard]] std::string address() const { return "unix:path=" + (root_ / "session").string(); }

 private:
  pid_t remember(const std::string& text);

  const std::filesystem::path root_;
  std::vector<pid_t> processes_;
};

}  // namespace orvanta
