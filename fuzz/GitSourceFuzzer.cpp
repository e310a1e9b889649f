// Whatever a user types as a repository: what is let through is an address that git takes for nothing else, nothing
// shown or recorded holds a password, and a folder in the checkout lies in it.

#include <algorithm>

#include "files/FS.h"
#include "foundations/Text.h"
#include "fuzz/Fuzzing.h"
#include "sources/GitEnvironment.h"
#include "sources/GitSource.h"

namespace {

using namespace orvanta;  // NOLINT(google-build-using-namespace)
using fuzzing::require;

namespace fs = std::filesystem;

bool isWeb(std::string_view text) {
  const auto lower = Text::lowercase(text);
  return lower.starts_with("https://") || lower.starts_with("http://");
}

bool holdsCredentials(std::string_view text) {
  if (!isWeb(text)) return false;
  const auto site = text.substr(text.find("://") + 3);
  const auto at = site.substr(0, site.find_first_of("/?#")).rfind('@');
  return at != 0 && at != std::string_view::npos && site.substr(0, at) != "***";
}

void requireForGit(const std::string& address) {
  const auto lower = Text::lowercase(address);
  require(isWeb(lower) || lower.starts_with("ssh://") || lower.starts_with("git@"));
  require(std::none_of(address.begin(), address.end(), [](char c) { return c >= 0 && c <= ' '; }));
  GitSource::validate(address);
}

const fs::path& checkout() {
  static const fs::path folder = [] {
    const auto made = fuzzing::scratchFolder() / "checkout";
    fs::create_directories(made / "skills" / "a");
    fs::create_symlink("..", made / "out");
    fs::create_symlink("skills", made / "in");
    fs::create_symlink("loop", made / "loop");
    return fs::canonical(made);
  }();
  return folder;
}

void checkSubpath(std::string_view subpath) {
  if (!GitSource::isSafeSubpath(checkout(), subpath)) return;
  std::error_code tooLong;
  const auto place = fs::weakly_canonical(checkout() / subpath, tooLong).string() + "/";
  require(tooLong || place.starts_with(checkout().string() + "/"));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto text = fuzzing::textOf(data, size);
  const auto source = GitSource::parse(text);
  require(source.originalURL == Text::trim(text));
  fuzzing::allowing(SkillsError::Kind::invalidInput, [&] {
    GitSource::validate(text);
    requireForGit(source.cloneURL);
  });
  if (holdsCredentials(source.cloneURL)) {
    require(!holdsCredentials(GitSource::withoutCredentials(source.cloneURL)));
    require(!holdsCredentials(source.shortName()));
  }
  GitEnvironment environment;
  const auto handedOver = environment.withoutCredentials(source.cloneURL);
  require(handedOver == source.cloneURL || !holdsCredentials(handedOver));
  checkSubpath(text);
  if (source.subpath) checkSubpath(*source.subpath);
  return 0;
}
