#pragma once

// Reads what a ZIP archive says about itself (its central directory) without unpacking a byte, so that a hostile
// archive can be refused beforehand. Understands ZIP64 and archives with a program in front of them. Where the format
// is ambiguous it takes no guess: such an archive counts as damaged.

#include <cstdint>
#include <functional>
#include <string>

namespace orvanta {

struct ZipEntry {
  enum class Kind { file, folder, link, special };

  // The recorded bytes, unchecked: may be absolute, lead out of the archive, or not be UTF-8.
  std::string name;
  // A second name that unpackers may prefer to the first; empty when there is none.
  std::string unicodeName;
  Kind kind = Kind::file;
  bool encrypted = false;
  // Unpacked bytes, as claimed.
  std::uint64_t size = 0;
  bool madeOnUnix = false;
  // Where in the file the entry's record in the directory begins.
  std::uint64_t position = 0;
};

namespace ZipDirectory {

// Calls `visit` for each entry in the directory's order; what `visit` throws ends the reading. `fd` is an open regular
// file. Throws `invalidInput` for anything that is not one whole ZIP archive and `io` when the file cannot be read;
// the text is the rest of a sentence that begins with the archive's name.
void forEachEntry(int fd, const std::function<void(const ZipEntry&)>& visit);

}  // namespace ZipDirectory

}  // namespace orvanta
