#include "foundations/ForeignJSON.h"

#include <cstddef>

#include "foundations/Text.h"

namespace orvanta {

namespace {

constexpr int kDeepest = 64;
constexpr std::size_t kMostValues = 2'000'000;

// A look at what stands outside of strings. Done beforehand, because a parser that is asked about every value takes
// quadratic time for long lists.
bool isWithinLimits(std::string_view json) {
  int depth = 0;
  std::size_t values = 1;
  for (std::size_t at = 0; at < json.size(); ++at) {
    switch (json[at]) {
      case '"':
        for (++at; at < json.size() && json[at] != '"'; ++at) {
          if (json[at] == '\\') ++at;
        }
        break;
      case '[':
      case '{':
        if (++depth > kDeepest) return false;
        ++values;
        break;
      case ']':
      case '}': --depth; break;
      case ',': ++values; break;
      default: break;
    }
    if (values > kMostValues) return false;
  }
  return true;
}

}  // namespace

Json parseForeignJSON(std::string_view text) {
  if (!isWithinLimits(text)) return Json(Json::value_t::discarded);
  return Json::parse(Text::repairUTF8(text), nullptr, /*allow_exceptions=*/false);
}

}  // namespace orvanta
