#pragma once

// Reads one value of a front matter as a YAML reader would: plain, quoted or block text over one line or many. What no
// YAML reader accepts (one published file in eighty) is read as the text that stands there.

#include <optional>
#include <string>
#include <string_view>

#include "content/FrontMatterLines.h"

namespace orvanta {

class YamlScalarReader {
 public:
  // The reader takes from `lines`, which must outlive it, the lines that belong to the value it reads.
  explicit YamlScalarReader(FrontMatterLines& lines) : lines_(lines) {}

  // The value that begins with `first`: what follows the colon on the key's own line; `lines` stands on the line after.
  // Empty when the key holds nothing, a list or a nested map, whose lines are left where they are. Flow values
  // ("[a, b]") are text as written, and so are null, numbers, tags, anchors and aliases.
  [[nodiscard]] std::string read(std::string_view first);

 private:
  [[nodiscard]] std::string readBelowKey();
  [[nodiscard]] std::string readText(std::string_view first);
  [[nodiscard]] std::string readQuoted(std::string_view first);
  [[nodiscard]] std::optional<std::string> readFlow(std::string_view first);

  FrontMatterLines& lines_;
  bool flowFailed_ = false;  // a flow value was not closed properly: looking for the end of others could take for ever
};

}  // namespace orvanta
