#include "content/Scanner.h"

#include <algorithm>
#include <array>
#include <limits>

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

// `boundary` is without links.
bool hasMarkerInside(const fs::path& folder, const fs::path& boundary) {
  const auto marker = SkillMetadata::markerFile(folder);
  if (!marker) return false;
  return FS::kind(*marker) != FS::Kind::symlink || isInside(FS::resolved(*marker), boundary);
}

// One search below a folder that a user points at.
class SkillSearch {
 public:
  SkillSearch(int maxDepth, const std::set<std::string>& skipNames, const fs::path& boundary)
      : maxDepth_(maxDepth), skipNames_(skipNames), boundary_(FS::resolved(boundary)) {}

  std::vector<fs::path> run(const fs::path& root) {
    visit(root, FS::resolved(root), 0);
    return std::move(found_);
  }

 private:
  // `real` is the folder with its links resolved; below a real folder only links need resolving anew.
  void visit(const fs::path& folder, const fs::path& real, int depth) {
    if (!isInside(real, boundary_) || !visited_.insert(real.string()).second) return;
    if (hasMarkerInside(folder, boundary_)) found_.push_back(folder);
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
  const fs::path boundary_;
  std::set<std::string> visited_;
  std::vector<fs::path> found_;
};

}  // namespace

std::vector<LocalSkillDir> Scanner::listSkillDirs(const fs::path& root, bool recursive) {
  return AgentFolderWalk(root, recursive).run();
}

std::vector<fs::path> FS::findSkillDirs(const fs::path& root, int maxDepth, const std::set<std::string>& skipNames,
                                        const fs::path& boundary) {
  return SkillSearch(maxDepth, skipNames, boundary).run(standardized(root));
}

std::vector<fs::path> FS::skillsIn(const fs::path& folder) {
  if (SkillMetadata::isValidSkillDir(folder)) return {folder};
  // What was unpacked or fetched is as deep as its longest path, no deeper.
  return findSkillDirs(folder, std::numeric_limits<int>::max(), {".git"});
}

bool FS::resolvesInside(const fs::path& path, const fs::path& boundary) {
  return isInside(resolved(path), resolved(boundary));
}

bool FS::isSkillDirInside(const fs::path& folder, const fs::path& boundary) {
  return resolvesInside(folder, boundary) && hasMarkerInside(folder, resolved(boundary));
}

}  // namespace orvanta
