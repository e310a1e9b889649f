#pragma once

// The running digest behind the fingerprints of folder trees: fed with files and links one by one, from the disk or
// as they are copied. ContentHash.h says what exactly it is fed with.

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "content/Sha256.h"
#include "files/TreeCopy.h"
#include "files/TreeWalk.h"

struct stat;

namespace orvanta {

class Fingerprint : public CopyObserver {
 public:
  // Names that the filter leaves out do not count, wherever they stand in a path.
  explicit Fingerprint(NameFilter leavesOut) : leavesOut_(leavesOut) {}

  bool beginFile(const std::string& relativePath, std::int64_t size, bool executable) override;
  void bytes(std::string_view block) override { digest_.add(block); }
  void link(const std::string& relativePath, std::string_view destination) override;

  // `path` is where the file is found from the open folder, `relativePath` what the digest is told. Returns the time
  // of its last change. Throws `io`.
  std::int64_t addFile(int folder, const std::string& path, const std::string& relativePath,
                       const std::filesystem::path& shown);

  // Ends the computation.
  std::string hex() { return digest_.hex(); }

 private:
  [[nodiscard]] bool isLeftOut(std::string_view relativePath) const;
  void feedHead(const std::string& relativePath, char kind, std::int64_t size);

  NameFilter leavesOut_;
  Sha256 digest_;
  std::string head_;
};

// The time of a file's last change in milliseconds.
std::int64_t modifiedMillis(const struct stat& status);

}  // namespace orvanta
