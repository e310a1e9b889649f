#pragma once

// Reads the front matter of a SKILL.md: the block between two lines "---" that begins the file. It is made for files
// that strangers write: it knows the part of YAML that names and descriptions use, gives for it what a YAML reader
// gives, and where no YAML reader would accept the file, it still finds the keys.

#include <optional>
#include <string>
#include <string_view>

#include "content/FrontMatterLines.h"
#include "content/YamlScalars.h"

namespace orvanta {

struct FrontMatterEntry {
  std::string_view key;
  std::string value;  // empty for a key that holds nothing, a list or a nested map
};

// Gives the top-level keys in the order of the file, repeated ones included. Time grows with the text only, whatever is
// in it.
class FrontMatterReader {
 public:
  // The text, which must outlive the reader, may begin with a byte-order mark and white space. Without a front matter
  // there are no entries; one that is never closed reaches to the end.
  explicit FrontMatterReader(std::string_view text);

  ~FrontMatterReader() = default;
  FrontMatterReader(const FrontMatterReader&) = delete;
  FrontMatterReader& operator=(const FrontMatterReader&) = delete;

  [[nodiscard]] std::optional<FrontMatterEntry> next();

 private:
  FrontMatterLines lines_;
  YamlScalarReader scalars_;
};

// Whether the beginning of a file holds its whole front matter, or enough to tell that it has none.
[[nodiscard]] bool holdsWholeFrontMatter(std::string_view beginning);

}  // namespace orvanta
