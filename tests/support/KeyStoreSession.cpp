#include "tests/support/KeyStoreSession.h"

#include <signal.h>
#include <stdlib.h>

#include <charconv>

#include <gtest/gtest.h>

#include "platform/ProcessRunner.h"

namespace orvanta {

namespace {

std::string shell(const std::string& script) {
  const auto result = ProcessRunner::run("/bin/sh", {"-c", script});
  EXPECT_TRUE(result.succeeded()) << script << ": " << result.failureText();
  return result.standardOutput;
}

}  // namespace

KeyStoreSession::KeyStoreSession(const std::filesystem::path& root) : root_(root) {
  const auto home = root_ / "home";
  std::filesystem::create_directories(home);
  ::setenv("HOME", home.c_str(), 1);
  ::setenv("XDG_DATA_HOME", (home / "data").c_str(), 1);
  ::setenv("XDG_RUNTIME_DIR", root_.c_str(), 1);
  ::unsetenv("DISPLAY");
  ::unsetenv("WAYLAND_DISPLAY");
  ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
}

KeyStoreSession::~KeyStoreSession() {
  for (const auto process : processes_) ::kill(process, SIGKILL);
}

pid_t KeyStoreSession::startBus() {
  ::setenv("DBUS_SESSION_BUS_ADDRESS", address().c_str(), 1);
  return remember(shell("dbus-daemon --session --fork --print-pid=1 --address=" + address()));
}

pid_t KeyStoreSession::startKeyStore(Login login) {
  const std::string daemon =
      "gnome-keyring-daemon --daemonize --components=secrets --control-directory=" + (root_ / "control").string();
  shell(login == Login::unlocked ? "printf password | " + daemon + " --unlock" : daemon);
  // It joins the session a moment after it says that it is ready.
  return remember(
      shell("until dbus-send --print-reply=literal --dest=org.freedesktop.DBus / "
            "org.freedesktop.DBus.GetConnectionUnixProcessID string:org.freedesktop.secrets 2>&1; "
            "do sleep 0.01; done"));
}

// The process whose number is the last word of the text.
pid_t KeyStoreSession::remember(const std::string& text) {
  const auto number = text.substr(text.find_last_not_of("0123456789", text.find_last_of("0123456789")) + 1);
  pid_t process = 0;
  std::from_chars(number.data(), number.data() + number.size(), process);
  EXPECT_GT(process, 1) << text;
  if (process > 1) processes_.push_back(process);
  return process;
}

}  // namespace orvanta
