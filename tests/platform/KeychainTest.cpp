#include "platform/Keychain.h"

#include <signal.h>
#include <stdlib.h>

#include <charconv>

#include "platform/ProcessRunner.h"
#include "tests/support/Sandbox.h"

namespace orvanta {
namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using SteadyClock = std::chrono::steady_clock;

constexpr auto io = SkillsError::Kind::io;

// A desktop session of its own: a message bus and, once started, the key store of a desktop. What uses them runs in
// another process, because a process connects to its session only once.
class KeychainTest : public Sandbox {
 public:
  ~KeychainTest() override {
    for (const auto process : processes_) ::kill(process, SIGKILL);
  }
  KeychainTest(const KeychainTest&) = delete;
  KeychainTest& operator=(const KeychainTest&) = delete;

 protected:
  KeychainTest() {
    ::setenv("HOME", home.c_str(), 1);
    ::setenv("XDG_DATA_HOME", (home / "data").c_str(), 1);
    ::setenv("XDG_RUNTIME_DIR", root.c_str(), 1);
    ::unsetenv("DISPLAY");
    ::unsetenv("WAYLAND_DISPLAY");
    ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
  }

  static std::string shell(const std::string& script) {
    const auto result = ProcessRunner::run("/bin/sh", {"-c", script});
    EXPECT_TRUE(result.succeeded()) << script << ": " << result.failureText();
    return result.standardOutput;
  }

  // The process whose number is the last word of the text; it ends with the test.
  pid_t remember(const std::string& text) {
    const auto number = text.substr(text.find_last_not_of("0123456789", text.find_last_of("0123456789")) + 1);
    pid_t process = 0;
    std::from_chars(number.data(), number.data() + number.size(), process);
    EXPECT_GT(process, 1) << text;
    if (process > 1) processes_.push_back(process);
    return process;
  }

  pid_t startSession() {
    const auto address = "unix:path=" + (root / "session").string();
    ::setenv("DBUS_SESSION_BUS_ADDRESS", address.c_str(), 1);
    return remember(shell("dbus-daemon --session --fork --print-pid=1 --address=" + address));
  }

  // Unlocked with a password, as at login; `locked`: nobody has logged in, and nobody is there to be asked.
  enum class Login { unlocked, locked };
  pid_t startKeyStore(Login login = Login::unlocked) {
    const std::string daemon =
        "gnome-keyring-daemon --daemonize --components=secrets --control-directory=" + (root / "control").string();
    shell(login == Login::unlocked ? "printf password | " + daemon + " --unlock" : daemon);
    // It joins the session a moment after it says that it is ready.
    return remember(
        shell("until dbus-send --print-reply=literal --dest=org.freedesktop.DBus / "
              "org.freedesktop.DBus.GetConnectionUnixProcessID string:org.freedesktop.secrets 2>&1; "
              "do sleep 0.01; done"));
  }

 private:
  std::vector<pid_t> processes_;
};

TEST_F(KeychainTest, ATokenIsStoredTrimmedReplacedAndRemoved) {
  startSession();
  startKeyStore();
  inAnotherProcess([] {
    EXPECT_EQ(Keychain::githubToken(), std::nullopt);
    Keychain::setGithubToken(" \t first-secret \r\n");
    EXPECT_EQ(Keychain::githubToken(), "first-secret");
    Keychain::setGithubToken("second-secret \u00e9");
    Keychain::write("another-account", "another text");
  });
  inAnotherProcess([] {
    EXPECT_EQ(Keychain::githubToken(), "second-secret \u00e9") << "another program, the same item";
    EXPECT_EQ(Keychain::read("another-account"), "another text");
    Keychain::setGithubToken(" \n ");
    EXPECT_EQ(Keychain::githubToken(), std::nullopt);
    Keychain::remove(Keychain::githubTokenAccount);
    EXPECT_EQ(Keychain::read("another-account"), "another text");

    Keychain::setGithubToken("kept");
    for (const auto& bad : {std::string("with\0nul", 8), std::string("\xff")}) {
      EXPECT_THAT(errorOf([&] { Keychain::setGithubToken(bad); }), IsError(SkillsError::Kind::invalidInput, "no text"));
    }
    EXPECT_EQ(Keychain::githubToken(), "kept");
    Keychain::setGithubToken(std::nullopt);
    EXPECT_EQ(Keychain::githubToken(), std::nullopt);
  });
}

// What every failure must look like: said in words, in time, and without the secret.
void expectNoKeyStore(const std::string& reason, std::chrono::milliseconds patience = 5s) {
  const auto start = SteadyClock::now();
  EXPECT_EQ(Keychain::read(Keychain::githubTokenAccount, patience), std::nullopt);
  Keychain::remove(Keychain::githubTokenAccount, patience);
  const auto error = errorOf([&] { Keychain::write(Keychain::githubTokenAccount, "the-secret", patience); });
  EXPECT_THAT(
      error, AllOf(IsError(io, "Keychain write failed (OSStatus "), IsError(io, reason), IsError(io, "GNOME Keyring")));
  EXPECT_THAT(error.message(), Not(HasSubstr("the-secret")));
  EXPECT_LT(SteadyClock::now() - start, 5s);
}

TEST_F(KeychainTest, WhereNoKeyStoreAnswersReadingFindsNothingAndWritingSaysWhy) {
  inAnotherProcess([] { expectNoKeyStore("D-Bus"); });
  ::setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/no/such/bus", 1);
  inAnotherProcess([] { expectNoKeyStore("No such file or directory"); });
}

TEST_F(KeychainTest, AKeyStoreThatDoesNotAnswerIsNotWaitedForLongerThanAllowed) {
  startSession();
  const auto keyStore = startKeyStore();
  inAnotherProcess([] { Keychain::setGithubToken("earlier-secret"); });
  ::kill(keyStore, SIGSTOP);
  inAnotherProcess([] { expectNoKeyStore("did not answer within 0.2 seconds", 200ms); });
  ::kill(keyStore, SIGCONT);
  inAnotherProcess([] { EXPECT_EQ(Keychain::githubToken(), "earlier-secret"); });
}

TEST_F(KeychainTest, ALockedKeyStoreThatCannotAskCountsAsNone) {
  startSession();
  const auto unlocked = startKeyStore();
  inAnotherProcess([] { Keychain::setGithubToken("earlier-secret"); });
  ::kill(unlocked, SIGKILL);
  startKeyStore(Login::locked);
  inAnotherProcess([] { expectNoKeyStore("locked"); });
}

TEST_F(KeychainTest, TheEndOfTheSessionDoesNotEndTheProgram) {
  const auto session = startSession();
  startKeyStore();
  inAnotherProcess([&] {
    Keychain::setGithubToken("secret");
    ::kill(session, SIGKILL);
    expectNoKeyStore("closed");
  });
}

}  // namespace
}  // namespace orvanta
