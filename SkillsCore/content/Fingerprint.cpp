#include "content/Fingerprint.h"

#include <sys/stat.h>

#include "files/FileReader.h"
#include "platform/FileTimes.h"

namespace orvanta {

bool Fingerprint::beginFile(const std::string& relativePath, std::int64_t size, bool executable) {
  // A copied folder may hold what does not count; what lies below an ignored folder does not count either.
  if (isLeftOut(relativePath)) return false;
  feedHead(relativePath, executable ? 'x' : 'f', size);
  return true;
}

void Fingerprint::link(const std::string& relativePath, std::string_view destination) {
  if (isLeftOut(relativePath)) return;
  feedHead(relativePath, 'l', static_cast<std::int64_t>(destination.size()));
  digest_.add(destination);
}

std::int64_t Fingerprint::addFile(int folder, const std::string& path, const std::string& relativePath,
                                  const std::filesystem::path& shown) {
  constexpr mode_t kExecute = S_IXUSR | S_IXGRP | S_IXOTH;
  FileReader reader(folder, path, shown);
  feedHead(relativePath, (reader.status().st_mode & kExecute) != 0 ? 'x' : 'f', reader.size());
  for (std::string_view block; !(block = reader.next()).empty();) digest_.add(block);
  return modifiedMillis(reader.status());
}

bool Fingerprint::isLeftOut(std::string_view relativePath) const {
  while (!relativePath.empty()) {
    const auto slash = relativePath.find('/');
    if (leavesOut_(relativePath.substr(0, slash))) return true;
    if (slash == std::string_view::npos) return false;
    relativePath.remove_prefix(slash + 1);
  }
  return false;
}

void Fingerprint::feedHead(const std::string& relativePath, char kind, std::int64_t size) {
  head_ = relativePath;
  head_ += '\0';
  head_ += kind;
  head_ += std::to_string(size);
  head_ += '\0';
  digest_.add(head_);
}

std::int64_t modifiedMillis(const struct stat& status) {
  const timespec& time = modificationTime(status);
  return static_cast<std::int64_t>(time.tv_sec) * 1000 + time.tv_nsec / 1'000'000;
}

}  // namespace orvanta
