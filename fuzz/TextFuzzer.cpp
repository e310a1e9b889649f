// What every name and text goes through before it is shown, compared or cut. The first byte is how much is left of a
// text that is cut.

#include <algorithm>

#include "foundations/Text.h"
#include "fuzz/Fuzzing.h"

namespace {

using namespace orvanta;  // NOLINT(google-build-using-namespace)
using fuzzing::require;

bool holdsControl(std::string_view text, bool (*isUnwanted)(char32_t)) {
  while (!text.empty()) {
    const auto character = Text::firstCharacter(text);
    if (character.codePoint != '\t' && isUnwanted(character.codePoint)) return true;
    text.remove_prefix(character.length);
  }
  return false;
}

void checkRepaired(const std::string& text) {
  require(Text::isValidUTF8(text) && Text::repairUTF8(text) == text);
  for (const auto& made : {Text::lowercase(text), Text::comparisonKey(text), Text::maskCredentials(text)}) {
    require(Text::isValidUTF8(made));
  }
  require(Text::isValidUTF8(Text::trim(text)) && Text::trim(Text::trim(text)) == Text::trim(text));
}

void checkCut(std::string_view text, std::size_t length) {
  const bool isValid = Text::isValidUTF8(text);
  const auto bytes = Text::prefixBytes(text, length);
  require(bytes.size() <= length && text.starts_with(bytes) && (!isValid || Text::isValidUTF8(bytes)));
  require(text.starts_with(Text::prefixCharacters(text, length)));
  require(Text::displayWidth(Text::fitToWidth(text, length)) <= length);
}

void checkShown(std::string_view text) {
  const auto line = Text::singleLine(text);
  require(Text::isValidUTF8(line) && Text::singleLine(line) == line && line.find('\t') == std::string::npos);
  require(!holdsControl(line, Text::isControl) && !holdsControl(line, Text::isDirectionControl));
  const auto revealed = Text::revealed(text);
  require(Text::isValidUTF8(revealed));
  require(!holdsControl(revealed, Text::isControl) && !holdsControl(revealed, Text::isHidden));
  const auto masked = Text::maskCredentials(text);
  require(Text::maskCredentials(masked) == masked);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const auto text = fuzzing::textOf(data, size).substr(1);
  checkRepaired(Text::repairUTF8(text));
  checkCut(text, data[0]);
  checkShown(text);

  std::vector<std::string> parts;
  for (const auto part : Text::split(text, '/')) parts.emplace_back(part);
  require(Text::join(parts, "/") == text);
  constexpr std::size_t longest = 50;
  const auto word = Text::prefixBytes(text, longest);
  require(Text::editDistance(word, word) == 0);
  require(Text::editDistance(word, "skill") == Text::editDistance("skill", word));
  return 0;
}
