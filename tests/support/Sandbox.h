#pragma once

// The world of one test: a home with agents in it, a library with a real database, skills to install, other processes.
// All of it lies below one folder of its own, so that tests can run beside each other, and goes when the test ends.

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "engine/SkillsEngine.h"
#include "files/Paths.h"
#include "foundations/Models.h"
#include "foundations/SkillsError.h"
#include "platform/Host.h"

namespace orvanta {

void PrintTo(const SkillsError& error, std::ostream* out);

// The error that `action` throws. The test fails when it throws none.
SkillsError errorOf(const std::function<void()>& action);

MATCHER_P2(IsError, kind, part, "is an error of kind " + std::string(rawValue(kind)) + " that says \"" + part + "\"") {
  return arg.kind() == kind && arg.message().find(part) != std::string::npos;
}

// Runs `body` with a number of its own in each of `count` processes at once; what is expected there counts for the
// test.
void inProcesses(int count, const std::function<void(int)>& body);
inline void inAnotherProcess(const std::function<void()>& body) {
  inProcesses(1, [&](int) { body(); });
}

// A process that has done something and waits; it ends by force, with no chance to tidy up.
class OtherProcess {
 public:
  // Runs `body` there up to where it calls its argument, which never returns.
  explicit OtherProcess(const std::function<void(const std::function<void()>& waitForTheEnd)>& body);
  ~OtherProcess() { kill(); }
  OtherProcess(const OtherProcess&) = delete;
  OtherProcess& operator=(const OtherProcess&) = delete;

  [[nodiscard]] pid_t id() const { return id_; }
  void kill();

 private:
  pid_t id_ = -1;
};

class Sandbox : public testing::Test {
 public:
  ~Sandbox() override;
  Sandbox(const Sandbox&) = delete;
  Sandbox& operator=(const Sandbox&) = delete;

 protected:
  using Path = std::filesystem::path;
  using Files = std::map<std::string, std::string>;  // relative path → content

  Sandbox();

  // Runs `body` in another process as a user whom permissions bind; all of the sandbox is that user's from then on.
  void asOrdinaryUser(const std::function<void()>& body);

  // ── Files ──
  static void write(const Path& file, const std::string& content, mode_t mode = 0644);
  static std::string read(const Path& file);
  static Path folder(const Path& path, const Files& files);
  static Path skillFolder(const Path& path, const Files& files = {});
  // A folder and everything below it, wherever the folder lies: kinds, permissions, contents, link texts.
  static std::string folderAsText(const Path& path);
  // What changes when any file below a folder is written, replaced or renamed, even with the same content.
  static std::string touchesAsText(const Path& path);

  // ── The user ──
  // A skill outside the library, ready to be installed.
  Path givenSkill(const std::string& name, const Files& files = {}) const;
  void agentInstalled(const std::string& agent) const;
  // Where an agent keeps a skill of this name.
  Path placeOf(const std::string& agent, const std::string& name);
  // A skill that the user put into an agent's folder by hand.
  Path agentHas(const std::string& agent, const std::string& name, const Files& files = {});
  bool agentHolds(const std::string& agent, const std::string& name);

  // ── The library ──
  SkillsEngine& engine();
  // As after the next start of the program.
  SkillsEngine& reopen();
  // The id of a skill that was just installed.
  std::string installed(const std::string& name, const Files& files = {});
  // SQL from outside, past the engine; returns the rows as text.
  std::string sql(const std::string& statements) const;
  [[nodiscard]] std::string recordsAsText() const;
  [[nodiscard]] std::string libraryAsText() const { return folderAsText(paths.skills()) + recordsAsText(); }
  // The library and everything the user has.
  [[nodiscard]] std::string everythingAsText() const { return libraryAsText() + folderAsText(home); }

  const Path root;
  const Path home = root / "home";
  const UserFolders user{home, home / ".config", root / "temp"};
  const Paths paths{root / "library"};

 private:
  std::unique_ptr<SkillsEngine> engine_;
};

}  // namespace orvanta
