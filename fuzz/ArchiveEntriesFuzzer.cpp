// Archives without a flaw, made of hostile entries: what is unpacked stays in its folder and holds what was packed.
// Each line of the input is an entry: a letter for what it is, its name and, after a tab, its content.

#include <sys/stat.h>

#include <algorithm>
#include <vector>

#include "foundations/Text.h"
#include "fuzz/Unpacking.h"
#include "tests/sources/ZipBuilder.h"

namespace {

using namespace orvanta;  // NOLINT(google-build-using-namespace)
using fuzzing::require;

ZipItem itemIn(std::string_view line) {
  const char kind = line.front();
  const auto tab = std::min(line.find('\t'), line.size());
  ZipItem item{.name = std::string(line.substr(1, tab - 1)),
               .content = std::string(line.substr(std::min(tab + 1, line.size())))};
  switch (kind) {
    case 'd': item.mode = S_IFDIR | 0; break;
    case 'l': item.mode = S_IFLNK | 0777; break;
    case 'p': item.mode = S_IFIFO | 0644; break;
    case 'x': item.mode = S_IFREG | 07777; break;
    case 'w':  // packed on another system
      item.mode = 0;
      item.madeBy = 20;
      break;
    case 'u': item.centralExtra = unicodeName(item.content); break;
    case 's': item.claimedSize = 1; break;
    default: break;
  }
  return item;
}

std::vector<ZipItem> itemsIn(std::string_view text) {
  constexpr std::size_t most = 12;
  std::vector<ZipItem> items;
  for (const auto line : Text::split(text, '\n')) {
    if (line.find('\t') != 0 && !line.empty() && items.size() < most) items.push_back(itemIn(line));
  }
  return items;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto items = itemsIn(fuzzing::textOf(data, size));
  fuzzing::unpack(zipArchive(items), [&](const std::filesystem::path& folder) {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
      if (entry.is_symlink() || !entry.is_regular_file()) continue;
      const auto text = FS::readText(entry.path(), fuzzing::unpackingLimits.maxBytes);
      require(text && std::any_of(items.begin(), items.end(), [&](const auto& item) { return item.content == *text; }));
    }
  });
  return 0;
}
