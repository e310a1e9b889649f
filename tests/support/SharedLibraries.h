#pragma once

// Computers with a library each, which share their skills through one remote.

#include <algorithm>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "files/FS.h"
#include "foundations/Text.h"
#include "platform/ProcessRunner.h"
#include "tests/support/GitServer.h"
#include "tests/support/Sandbox.h"

namespace orvanta {

// One of several computers with a library of its own.
class Machine {
 public:
  using Path = std::filesystem::path;
  using Texts = std::vector<std::string>;

  explicit Machine(const Path& folder)
      : user{folder / "home", folder / "home" / ".config", folder / "temp"}, paths(folder / "library") {
    std::filesystem::create_directories(user.home);
    std::filesystem::create_directories(user.temp);
  }
  SkillsEngine& engine() {
    if (!engine_) engine_ = std::make_unique<SkillsEngine>(paths, user);
    return *engine_;
  }
  void close() { engine_.reset(); }
  SkillRecord skill(const std::string& name) {
    for (const auto& record : engine().skills()) {
      if (record.name == name) return record;
    }
    ADD_FAILURE() << "no skill " << name;
    return {};
  }
  // What is known of the skills whose folders are there, one a line.
  std::string facts() {
    const auto tags = engine().tagsBySkill();
    Texts lines;
    for (const auto& record : engine().skills()) {
      if (record.status != "ok") continue;
      const auto own = tags.find(record.id);
      lines.push_back(fmt::format(
          "{} {} {} {} {} {} {} {} [{}]", record.id, record.name, Path(record.centralPath).filename().string(),
          rawValue(record.sourceType), record.sourceRef.value_or("-"), record.sourceSubpath.value_or("-"),
          record.sourceRevision.value_or("-"), record.enabled, own == tags.end() ? "" : Text::join(own->second, ",")));
    }
    std::sort(lines.begin(), lines.end());
    return Text::join(lines, "\n");
  }
  [[nodiscard]] std::string conflicts() { return Text::join(engine().backupStatus().pendingConflicts, ","); }

  const UserFolders user;
  const Paths paths;

 private:
  std::unique_ptr<SkillsEngine> engine_;
};

class SharedLibraries : public Sandbox {
 protected:
  using Texts = std::vector<std::string>;

  SharedLibraries() { server.openForPushing("mine"); }

  std::string add(Machine& machine, const std::string& name, const Files& files = {}) {
    return machine.engine().installLocal(skillFolder(machine.user.home / "new" / name, files), std::nullopt).record.id;
  }
  void share(Machine& machine) {
    machine.engine().initBackup({});
    machine.engine().setBackupRemote(url, {});
    machine.engine().pushBackup({});
  }
  // The skills' files, without what git and the manifest keep beside them.
  static std::string files(const Machine& machine) {
    std::string text;
    auto names = FS::childNames(machine.paths.skills());
    std::sort(names.begin(), names.end());
    for (const auto& name : names) {
      if (name != ".git" && name != ".orvanta") text += name + "\n" + folderAsText(machine.paths.skills() / name);
    }
    const auto place = machine.paths.skills().string();
    for (auto at = text.find(place); at != std::string::npos; at = text.find(place, at)) text.erase(at, place.size());
    return text;
  }
  static std::string git(const Path& folder, const Texts& words, bool mayFail = false) {
    const auto result = ProcessRunner::run("/usr/bin/git", words, {.cwd = folder});
    EXPECT_TRUE(mayFail || result.succeeded()) << Text::join(words, " ") << ": " << result.failureText();
    return std::string(Text::trim(result.standardOutput));
  }
  // Somebody who may push changes the remote past Orvanta.
  void tamper(const std::function<void(const Path&)>& change, const std::string& repository = "mine") {
    const Path folder = root / "tampered";
    std::filesystem::remove_all(folder);
    git(root, {"clone", "--quiet", server.folder(repository).string(), folder.string()});
    change(folder);
    git(folder, {"add", "--all", "--force"});
    git(folder, {"commit", "--quiet", "--allow-empty", "-m", "x"});
    git(folder, {"push", "--quiet", "--force", "origin", "HEAD:main"});
  }
  static std::string lastAudit(Machine& machine) {
    const auto entry = machine.engine().auditEntries(1, 0).front();
    return entry.action + (entry.success ? " ok " : " failed ") + entry.detail.value_or("");
  }

  GitServer server{root / "server"};
  const std::string url = server.url("mine");
  Machine desk{root / "desk"};
  Machine lap{root / "lap"};
};

}  // namespace orvanta
