// Whatever a site sends as its index, reading it ends, and what may be installed of it stays in its folder and on the
// site.

#include "foundations/Text.h"
#include "fuzz/Fuzzing.h"
#include "platform/WebAddress.h"
#include "sources/WellKnownIndex.h"

namespace {

using namespace orvanta;  // NOLINT(google-build-using-namespace)
using fuzzing::require;

void requireOnSite(const WebAddress& base, const std::string& reference) {
  const auto address = base.resolve(reference);
  require(address && address->isSameSite(base) && address->text.starts_with("https://example.com/"));
}

void requireSafe(const WebAddress& base, const WellKnownIndex::Entry& entry) {
  const std::filesystem::path folder = "/skill";
  for (const auto& file : entry.files) {
    const auto place = (folder / file.path).lexically_normal().string();
    require(place.starts_with("/skill/") && place == "/skill/" + file.path && Text::isValidUTF8(file.path));
    require(file.path.find('\0') == std::string::npos &&
            Text::lowercase(place + "/").find("/.git/") == std::string::npos);
  }
  if (entry.archive) requireOnSite(base, *entry.archive);
  if (entry.skillMd && !entry.hasSkillText()) requireOnSite(base, *entry.skillMd);
  require(entry.kind() != WellKnownIndex::Entry::Kind::files || !entry.files.empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const auto base = WebAddress::parse("https://example.com/.well-known/agent-skills/index.json");
  fuzzing::allowing(SkillsError::Kind::network, [&] {
    const auto index = WellKnownIndex::parse(fuzzing::textOf(data, size), "example.com", base->text);
    for (const auto& entry : index.entries) {
      require(!entry.name.empty() && Text::singleLine(entry.name) == entry.name);
      if (!entry.flaw) requireSafe(*base, entry);
    }
  });
  return 0;
}
