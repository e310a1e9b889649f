#include "content/Scanner.h"

#include <algorithm>
#include <array>

#include "content/SkillMetadata.h"
#include "files/FS.h"
#include "files/Paths.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

constexpr int kDeepestListing = 5;

bool isSkipped(const std::string& name) {
  constexpr std::array<std::string_view, 4> kNames{".hub", ".git", "node_modules", ".DS_Store"};
  return std::find(kNames.begin(), kNames.end(), name) != kNames.end() || name.starts_with(Scanner::kStagePrefix);
}

// One walk below an agent's folder.
class AgentFolderWalk {
 public:
  AgentFolderWalk(const fs::path& root, bool recursive) : root_(standardized(root)), recursive_(recursive) {}

  std::vector<LocalSkillDir> run() {
    if (recursive_) visited_.insert(FS::resolved(root_).string());
    walk(root_, 0);
    std::sort(found_.begin(), found_.end(),
              [](const LocalSkillDir& a, const LocalSkillDir& b) { return a.relativePath < b.relativePath; });
    return std::move(found_);
  }

 private:
  void walk(const fs::path& folder, int depth) {
    for (const auto& child : FS::children(folder)) {
      if (isSkipped(child.filename().string()) || !FS::resolvesToDirectory(child)) continue;
      if (SkillMetadata::isValidSkillDir(child)) {
        record(child);
      } else if (recursive_ && depth < kDeepestListing && visited_.insert(FS::resolved(child).string()).second) {
        walk(child, depth + 1);
      }
    }
  }

  void record(const fs::path& folder) {
    const auto destination = FS::linkDestination(folder);
    found_.push_back({.url = folder,
                      .relativePath = folder.lexically_relative(root_).string(),
                      .isSymlink = destination.has_value(),
                      .linkDestination = destination});
  }

  const fs::path root_;
  const bool recursive_;
  std::set<std::string> visited_;
  std::vector<LocalSkillDir> found_;
};

// One search below a folder that a user points at.
class SkillSearch {
 public:
  SkillSearch(int maxDepth, const std::set<std::string>& skipNames) : maxDepth_(maxDepth), skipNames_(skipNames) {}

  std::vector<fs::path> run(const fs::path& root) {
    visit(root, FS::resolved(root), 0);
    return std::move(found_);
  }

 private:
  // `real` is the folder with its links resolved; below a real folder only links need resolving anew.
  void visit(const fs::path& folder, const fs::path& real, int depth) {
    if (!visited_.insert(real.string()).second) return;
    if (SkillMetadata::isValidSkillDir(folder)) found_.push_back(folder);
    if (depth >= maxDepth_) return;
    for (const auto& child : FS::children(folder)) {
      const std::string name = child.filename().string();
      if (skipNames_.contains(name)) continue;
      const FS::Kind kind = FS::kind(child);
      if (kind == FS::Kind::directory) visit(child, real / name, depth + 1);
      if (kind == FS::Kind::symlink && FS::resolvesToDirectory(child)) visit(child, FS::resolved(child), depth + 1);
    }
  }

  const int maxDepth_;
  const std::set<std::string>& skipNames_;
  std::set<std::string> visited_;
  std::vector<fs::path> found_;
};

}  // namespace

std::vector<LocalSkillDir> Scanner::listSkillDirs(const fs::path& root, bool recursive) {
  return AgentFolderWalk(root, recursive).run();
}

std::vector<fs::path> FS::findSkillDirs(const fs::path& root, int maxDepth, const std::set<std::string>& skipNames) {
  return SkillSearch(maxDepth, skipNames).run(standardized(root));
}

}  // namespace orvanta
