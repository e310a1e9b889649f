#include "platform/Keychain.h"

#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>

#include <thread>

#include "tests/support/KeyStoreSession.h"
#include "tests/support/Sandbox.h"

namespace orvanta {
namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr auto io = SkillsError::Kind::io;

class KeychainTest : public Sandbox {
 protected:
  KeyStoreSession session{root};
};

TEST_F(KeychainTest, ATokenIsStoredTrimmedReplacedAndRemoved) {
  session.startBus();
  session.startKeyStore();
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
    EXPECT_TRUE(Keychain::setGithubToken(" \n "));
    EXPECT_EQ(Keychain::githubToken(), std::nullopt);
    EXPECT_FALSE(Keychain::remove(Keychain::githubTokenAccount)) << "nothing left to remove";
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

// Longer than any test may take.
constexpr auto forever = std::chrono::hours(24);

// What every failure must look like: said in words, and without the secret. It comes by itself, else the test never
// ends.
void expectNoKeyStore(const std::string& reason, std::chrono::milliseconds patience = forever,
                      const std::stop_token& stop = {}) {
  EXPECT_EQ(Keychain::read(Keychain::githubTokenAccount, patience, stop), std::nullopt);
  EXPECT_FALSE(Keychain::remove(Keychain::githubTokenAccount, patience, stop));
  const auto error = errorOf([&] { Keychain::write(Keychain::githubTokenAccount, "the-secret", patience, stop); });
  EXPECT_THAT(
      error, AllOf(IsError(io, "Keychain write failed (OSStatus "), IsError(io, reason), IsError(io, "GNOME Keyring")));
  EXPECT_THAT(error.message(), Not(HasSubstr("the-secret")));
}

TEST_F(KeychainTest, WhereNoKeyStoreAnswersReadingFindsNothingAndWritingSaysWhy) {
  inAnotherProcess([] { expectNoKeyStore("D-Bus"); });
  ::setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/no/such/bus", 1);
  inAnotherProcess([] { expectNoKeyStore("No such file or directory"); });
  asOrdinaryUser([] {
    const rlimit noThreads{0, 0};
    ASSERT_EQ(::setrlimit(RLIMIT_NPROC, &noThreads), 0);
    expectNoKeyStore("Resource temporarily unavailable");
  });
}

TEST_F(KeychainTest, AKeyStoreThatDoesNotAnswerIsWaitedForNoLongerThanAllowedOrUntilAStop) {
  session.startBus();
  const auto keyStore = session.startKeyStore();
  inAnotherProcess([] { Keychain::setGithubToken("earlier-secret"); });
  ::kill(keyStore, SIGSTOP);
  inAnotherProcess([] { expectNoKeyStore("did not answer within 0.2 seconds", 200ms); });
  inAnotherProcess([] {
    std::stop_source source;
    const std::jthread stopper([&] {
      std::this_thread::sleep_for(50ms);
      source.request_stop();
    });
    expectNoKeyStore("was stopped", forever, source.get_token());
  });
  ::kill(keyStore, SIGCONT);
  inAnotherProcess([] { EXPECT_EQ(Keychain::githubToken(), "earlier-secret"); });
}

TEST_F(KeychainTest, ALockedKeyStoreThatCannotAskCountsAsNone) {
  session.startBus();
  const auto unlocked = session.startKeyStore();
  inAnotherProcess([] { Keychain::setGithubToken("earlier-secret"); });
  ::kill(unlocked, SIGKILL);
  session.startKeyStore(KeyStoreSession::Login::locked);
  inAnotherProcess([] { expectNoKeyStore("locked"); });
}

TEST_F(KeychainTest, TheEndOfTheSessionDoesNotEndTheProgram) {
  const auto bus = session.startBus();
  session.startKeyStore();
  inAnotherProcess([&] {
    Keychain::setGithubToken("secret");
    ::kill(bus, SIGKILL);
    expectNoKeyStore("closed");
  });
}

}  // namespace
}  // namespace orvanta
