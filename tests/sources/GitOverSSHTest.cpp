// Repositories by way of ssh, from a real server on loopback.

#include <stdlib.h>
#include <unistd.h>

#include <fmt/format.h>

#include "platform/ProcessRunner.h"
#include "sources/GitClient.h"
#include "tests/support/GitServer.h"
#include "tests/support/Sandbox.h"

namespace orvanta {
namespace {

namespace fs = std::filesystem;
using Kind = SkillsError::Kind;

class GitOverSSHTest : public Sandbox {
 public:
  ~GitOverSSHTest() override { shell("kill $(cat pid)"); }
  GitOverSSHTest(const GitOverSSHTest&) = delete;
  GitOverSSHTest& operator=(const GitOverSSHTest&) = delete;

 protected:
  GitOverSSHTest() {
    folder(home / ".ssh", {});
    shell(
        "dropbearkey -t ed25519 -f host && ssh-keygen -q -t ed25519 -N '' -f key && cp key.pub "
        "home/.ssh/authorized_keys"
        " && chmod -R go= home key");
    // The server knows one user, who lives here.
    const Path passwd = root / "passwd";
    const Path group = root / "group";
    write(passwd, fmt::format("git:x:{}:{}::{}:/bin/sh\n", ::getuid(), ::getgid(), home.string()));
    write(group, fmt::format("git:x:{}:\n", ::getgid()));
    write(root / "config",
          fmt::format("Host *\n  HostName 127.0.0.1\n  Port {}\n  ConnectionAttempts 20\n  IdentityFile {}\n"
                      "  IdentitiesOnly yes\n  UserKnownHostsFile {}\n"
                      "  StrictHostKeyChecking accept-new\n",
                      port_.number(), (root / "key").string(), (root / "known").string()));
    port_.close();
    shell(
        fmt::format("LD_PRELOAD=libnss_wrapper.so NSS_WRAPPER_PASSWD={} NSS_WRAPPER_GROUP={} "
                    "dropbear -s -p 127.0.0.1:{} -r host -P {}",
                    passwd.string(), group.string(), port_.number(), (root / "pid").string()));
    ::setenv("GIT_SSH_COMMAND", fmt::format("ssh -F {}", (root / "config").string()).c_str(), 1);
  }

  void shell(const std::string& script) const {
    const auto result = ProcessRunner::run("/bin/sh", {"-c", "PATH=$PATH:/usr/sbin; " + script}, {.cwd = root});
    EXPECT_TRUE(result.succeeded()) << result.failureText();
  }

  GitServer server{root / "server"};

 private:
  LoopbackPort port_;
};

TEST_F(GitOverSSHTest, ASkillIsInstalledAndUpdated) {
  const std::string first = server.commit("o/r", {{"pdf/SKILL.md", "---\nname: pdf\ndescription: one\n---\n"}});
  const std::string path = server.folder("o/r").string();
  for (const auto& url : {"git@loopback:" + path, "ssh://git@loopback" + path}) {
    EXPECT_EQ(engine().previewGit(url, {}).revision, first) << url;
  }
  const auto skill = engine().installGit("git@loopback:" + path, {}, {}).installed.front().record;
  EXPECT_EQ(skill.sourceRef, "git@loopback:" + path);
  server.commit("o/r", {{"pdf/SKILL.md", "---\nname: pdf\ndescription: two\n---\n"}});
  EXPECT_EQ(engine().checkUpdate(skill.id, {}), UpdateStatus::available);
  EXPECT_EQ(engine().updateSkill(skill.id, {}).record.description, "two");

  fs::remove(root / "key");
  EXPECT_THAT(errorOf([&] { engine().previewGit("git@loopback:" + path, {}); }),
              IsError(Kind::git, "Permission denied"));
}

}  // namespace
}  // namespace orvanta
