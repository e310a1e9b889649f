#include "files/FolderWalk.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <iterator>
#include <memory>
#include <mutex>
#include <string_view>
#include <thread>
#include <utility>

#include "foundations/Parallel.h"
#include "platform/UniqueFd.h"

namespace orvanta {

namespace {

constexpr std::size_t kFoldersBetweenReports = 256;

struct CloseDir {
  void operator()(DIR* dir) const { ::closedir(dir); }
};
using Dir = std::unique_ptr<DIR, CloseDir>;

struct Pending {
  std::string path;
  int depth = 0;
};

Dir openFolder(const std::string& path) {
  UniqueFd fd(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  Dir dir(fd ? ::fdopendir(fd.get()) : nullptr);
  if (dir) fd.release();
  return dir;
}

// The listing itself mostly tells the kind; where the file system leaves it open, the entry is asked.
unsigned char kindOf(DIR* dir, const dirent& entry) {
  if (entry.d_type != DT_UNKNOWN) return entry.d_type;
  struct stat status {};
  if (::fstatat(::dirfd(dir), entry.d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) return DT_UNKNOWN;
  if (S_ISLNK(status.st_mode)) return DT_LNK;
  return S_ISDIR(status.st_mode) ? DT_DIR : DT_REG;
}

WalkedFolder readFolder(std::string path) {
  WalkedFolder folder{std::move(path), {}, {}};
  const Dir dir = openFolder(folder.path);
  if (!dir) return folder;
  while (const dirent* entry = ::readdir(dir.get())) {
    const unsigned char kind = kindOf(dir.get(), *entry);
    if (kind == DT_LNK) folder.links.emplace_back(entry->d_name);
    if (kind != DT_DIR) continue;
    const std::string_view name(entry->d_name);
    if (name != "." && name != "..") folder.folders.emplace_back(name);
  }
  return folder;
}

// Each thread goes depth first through folders of its own, so that few wait to be visited at any time, and hands half
// of them over when another thread has none.
class Walk {
 public:
  Walk(int maxDepth, const OperationContext& context, const std::function<void(WalkedFolder&)>& visit)
      : maxDepth_(maxDepth), context_(context), visit_(visit) {}

  void run(const std::filesystem::path& root) {
    shared_.push_back({root.string(), 0});
    parallelFor(std::max(1U, std::thread::hardware_concurrency()), [this](std::size_t) { work(); });
  }

 private:
  void work() {
    std::vector<Pending> own;
    try {
      while (take(own)) goThrough(own);
    } catch (...) {
      ended_ = true;
      finishTurn();
      throw;
    }
  }

  // Waits for folders to go through; false when there are none left, and no thread that could find more.
  bool take(std::vector<Pending>& own) {
    std::unique_lock lock(mutex_);
    ++waiting_;
    changed_.wait(lock, [this] { return ended_ || !shared_.empty() || busy_ == 0; });
    --waiting_;
    if (ended_ || shared_.empty()) return false;
    own = std::exchange(shared_, {});
    ++busy_;
    return true;
  }

  void goThrough(std::vector<Pending>& own) {
    while (!own.empty() && !ended_ && !context_.stop.stop_requested()) {
      const Pending next = std::move(own.back());
      own.pop_back();
      enter(next, own);
      if (++seen_ % kFoldersBetweenReports == 0) report();
      if (waiting_ > 0 && own.size() > 1) handOver(own);
    }
    finishTurn();
  }

  void enter(const Pending& pending, std::vector<Pending>& own) {
    WalkedFolder folder = readFolder(pending.path);
    visit_(folder);
    if (pending.depth >= maxDepth_) return;
    const std::string prefix = folder.path == "/" ? folder.path : folder.path + "/";
    for (const std::string& name : folder.folders) own.push_back({prefix + name, pending.depth + 1});
  }

  // The first half, which lies nearer to the root and so promises more.
  void handOver(std::vector<Pending>& own) {
    const std::lock_guard lock(mutex_);
    if (!shared_.empty()) return;
    const auto half = own.begin() + static_cast<std::ptrdiff_t>(own.size() / 2);
    shared_.assign(std::move_iterator(own.begin()), std::move_iterator(half));
    own.erase(own.begin(), half);
    changed_.notify_one();
  }

  void finishTurn() {
    const std::lock_guard lock(mutex_);
    --busy_;
    changed_.notify_all();
  }

  void report() {
    const std::lock_guard lock(reporting_);
    context_.report("Scanning", seen_, 0);
  }

  const int maxDepth_;
  const OperationContext& context_;
  const std::function<void(WalkedFolder&)>& visit_;

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Pending> shared_;  // handed over, taken by no thread yet
  std::size_t busy_ = 0;
  std::atomic<std::size_t> waiting_{0};
  std::atomic<bool> ended_{false};  // by an error

  std::atomic<std::size_t> seen_{0};
  std::mutex reporting_;
};

}  // namespace

void walkFolders(const std::filesystem::path& root, int maxDepth, const OperationContext& context,
                 const std::function<void(WalkedFolder&)>& visit) {
  Walk(maxDepth, context, visit).run(root);
}

}  // namespace orvanta
