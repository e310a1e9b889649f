#pragma once

// What the process needs to know about its user and its surroundings. Read once at start and handed down, so that
// nothing below asks the operating system again and a test hands in folders of its own.

#include <filesystem>
#include <optional>
#include <string>

namespace orvanta {

struct UserFolders {
  std::filesystem::path home;
  // Where programs keep the user's settings.
  std::filesystem::path config;
  // Where short-lived files go.
  std::filesystem::path temp;

  bool operator==(const UserFolders&) const = default;
};

// The folders of the user that runs the process. `home` is the one in the system's user record; only a user without
// such a record (a container started under a bare number) gets the one that HOME names. Throws `io` when neither
// names a folder, since any guess would scatter files where nobody looks for them.
[[nodiscard]] UserFolders currentUserFolders();

// What the user calls this computer, else the name it has in the network; one line of UTF-8.
[[nodiscard]] std::string deviceName();
// Which system this is, for a person to read: "Linux: Debian GNU/Linux 12 (bookworm), kernel 6.1.0".
[[nodiscard]] std::string systemDescription();

// The variable's value; none when it is not set or empty.
[[nodiscard]] std::optional<std::string> environmentVariable(const std::string& name);

}  // namespace orvanta
