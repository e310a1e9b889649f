#include "tests/support/Sandbox.h"

#include <dirent.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <thread>
#include <vector>

#include <fmt/format.h>
#include <sqlite3.h>

#include "agents/ToolAdapters.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

constexpr uid_t kNobody = 65534;

fs::path makeRoot() {
  std::string name = (fs::canonical(testing::TempDir()) / "orvanta-test-XXXXXX").string();
  if (::mkdtemp(name.data()) == nullptr) throw SkillsError::system("Cannot create " + name, errno);
  return name;
}

struct stat statusOf(const fs::path& path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status;
}

// Adds a path and everything below it, a folder before what it holds. With `open`, folders that forbid it are opened
// up.
void addAll(const fs::path& path, bool open, std::vector<fs::path>& all) {
  all.push_back(path);
  if (!fs::is_directory(fs::symlink_status(path))) return;
  if (open) ::chmod(path.c_str(), S_IRWXU);
  std::vector<fs::path> children;
  for (const auto& child : fs::directory_iterator(path)) children.push_back(child.path());
  std::sort(children.begin(), children.end());
  for (const auto& child : children) addAll(child, open, all);
}

std::vector<fs::path> everythingBelow(const fs::path& path, bool open = false) {
  std::vector<fs::path> all;
  addAll(path, open, all);
  return all;
}

void removeAll(const fs::path& root) {
  const auto all = everythingBelow(root, /*open=*/true);
  std::for_each(all.rbegin(), all.rend(), [](const fs::path& path) { std::remove(path.c_str()); });
}

std::string describe(const fs::path& path) {
  const mode_t mode = statusOf(path).st_mode;
  if (S_ISLNK(mode)) return "link -> " + fs::read_symlink(path).string();
  const std::string permissions = fmt::format("{:04o}", mode & 07777U);
  if (S_ISDIR(mode)) return "folder " + permissions;
  if (!S_ISREG(mode)) return "special " + permissions;
  std::ifstream file(path, std::ios::binary);
  return "file " + permissions + " " + std::string(std::istreambuf_iterator<char>(file), {});
}

// Ends with the status that tells the parent whether all went well; nothing of the parent's is torn down. Runs in a new
// thread: the old one's reserves, such as random bytes, are the parent's as well.
[[noreturn]] void runAndEnd(const std::function<void()>& body) {
  std::thread([&] {
    try {
      body();
    } catch (const std::exception& error) {
      ADD_FAILURE() << "in another process: " << error.what();
    }
  }).join();
  std::fflush(nullptr);
  ::_exit(testing::Test::HasFailure() ? EXIT_FAILURE : EXIT_SUCCESS);
}

int appendRow(void* text, int count, char** values, char**) {
  for (int i = 0; i < count; ++i) {
    static_cast<std::string*>(text)
        ->append(values[i] == nullptr ? "NULL" : values[i])
        .append(i + 1 < count ? "|" : "\n");
  }
  return 0;
}

}  // namespace

void PrintTo(const SkillsError& error, std::ostream* out) { *out << rawValue(error.kind()) << ": " << error.message(); }

SkillsError errorOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const SkillsError& error) {
    return error;
  }
  ADD_FAILURE() << "no error was thrown";
  return SkillsError::io("");
}

void inProcesses(int count, const std::function<void(int)>& body) {
  std::fflush(nullptr);
  std::vector<pid_t> children;
  for (int number = 0; number < count; ++number) {
    children.push_back(::fork());
    if (children.back() == 0) runAndEnd([&] { body(number); });
  }
  for (const pid_t child : children) {
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == EXIT_SUCCESS) << "the other process failed";
  }
}

OtherProcess::OtherProcess(const std::function<void(const std::function<void()>&)>& body) {
  std::array<int, 2> ends{};
  EXPECT_EQ(::pipe(ends.data()), 0);
  std::fflush(nullptr);
  id_ = ::fork();
  if (id_ == 0) {
    runAndEnd([&] {
      body([&] {
        EXPECT_EQ(::write(ends[1], "r", 1), 1);
        for (;;) ::pause();
      });
    });
  }
  ::close(ends[1]);
  char ready = 0;
  EXPECT_EQ(::read(ends[0], &ready, 1), 1) << "the other process ended early";
  ::close(ends[0]);
}

void OtherProcess::kill() {
  if (id_ <= 0) return;
  ::kill(id_, SIGKILL);
  ::waitpid(id_, nullptr, 0);
  id_ = -1;
}

Sandbox::Sandbox() : root(makeRoot()) {
  fs::create_directory(home);
  fs::create_directory(user.temp);
  // The user's own key store is no test's business.
  ::setenv("DBUS_SESSION_BUS_ADDRESS", "disabled:", 1);
}

Sandbox::~Sandbox() {
  engine_.reset();
  removeAll(root);
}

void Sandbox::asOrdinaryUser(const std::function<void()>& body) {
  if (::geteuid() != 0) return inAnotherProcess(body);
  for (const auto& path : everythingBelow(root)) EXPECT_EQ(::lchown(path.c_str(), kNobody, kNobody), 0);
  inAnotherProcess([&] {
    ASSERT_EQ(::setgid(kNobody), 0);
    ASSERT_EQ(::setuid(kNobody), 0);
    body();
  });
}

void Sandbox::write(const Path& file, const std::string& content, mode_t mode) {
  fs::create_directories(file.parent_path());
  std::ofstream out(file, std::ios::binary);
  out << content;
  out.close();
  EXPECT_TRUE(out.good()) << file;
  EXPECT_EQ(::chmod(file.c_str(), mode), 0);
}

std::string Sandbox::read(const Path& file) {
  std::ifstream in(file, std::ios::binary);
  EXPECT_TRUE(in.good()) << file;
  return {std::istreambuf_iterator<char>(in), {}};
}

Sandbox::Path Sandbox::folder(const Path& path, const Files& files) {
  fs::create_directories(path);
  for (const auto& [relative, content] : files) write(path / relative, content);
  return path;
}

Sandbox::Path Sandbox::skillFolder(const Path& path, const Files& files) {
  const std::string name = path.filename().string();
  write(path / "SKILL.md", "---\nname: " + name + "\ndescription: What " + name + " does.\n---\n");
  return folder(path, files);
}

std::string Sandbox::folderAsText(const Path& path) {
  std::string text;
  for (const auto& found : everythingBelow(path))
    text += found.lexically_relative(path).string() + ": " + describe(found) + "\n";
  return text;
}

std::string Sandbox::touchesAsText(const Path& path) {
  std::string text;
  for (const auto& found : everythingBelow(path)) {
    const struct stat status = statusOf(found);
    text += fmt::format("{}: inode {}, changed {}.{}\n", found.string(), status.st_ino, status.st_ctim.tv_sec,
                        status.st_ctim.tv_nsec);
  }
  return text;
}

Sandbox::Path Sandbox::givenSkill(const std::string& name, const Files& files) const {
  return skillFolder(home / "Downloads" / name, files);
}

void Sandbox::agentInstalled(const std::string& agent) const {
  const auto adapter = ToolAdapters::find(agent, {});
  ASSERT_TRUE(adapter) << agent;
  fs::create_directories(home / adapter->relativeDetectDir);
}

Sandbox::Path Sandbox::placeOf(const std::string& agent, const std::string& name) {
  return engine().adapter(agent).skillsDir(user) / name;
}

Sandbox::Path Sandbox::agentHas(const std::string& agent, const std::string& name, const Files& files) {
  return skillFolder(placeOf(agent, name), files);
}

bool Sandbox::agentHolds(const std::string& agent, const std::string& name) {
  return fs::is_regular_file(placeOf(agent, name) / "SKILL.md");
}

SkillsEngine& Sandbox::engine() {
  if (!engine_) engine_ = std::make_unique<SkillsEngine>(paths, user);
  return *engine_;
}

SkillsEngine& Sandbox::reopen() {
  engine_.reset();
  return engine();
}

std::string Sandbox::installed(const std::string& name, const Files& files) {
  return engine().installLocal(givenSkill(name, files), std::nullopt).record.id;
}

std::string Sandbox::sql(const std::string& statements) const {
  sqlite3* db = nullptr;
  EXPECT_EQ(sqlite3_open(paths.database().c_str(), &db), SQLITE_OK);
  std::string rows;
  EXPECT_EQ(sqlite3_exec(db, statements.c_str(), appendRow, &rows, nullptr), SQLITE_OK) << sqlite3_errmsg(db);
  sqlite3_close(db);
  return rows;
}

std::string Sandbox::recordsAsText() const {
  std::string text;
  for (const auto* table : {"skills", "skill_targets", "skill_tags", "settings", "scenarios", "scenario_skills",
                            "scenario_skill_tools", "active_scenario", "projects"}) {
    text += std::string(table) + ":\n" + sql(std::string("SELECT * FROM ") + table + " ORDER BY 1, 2");
  }
  return text;
}

}  // namespace orvanta
