#include "content/SkillMetadata.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "content/FrontMatter.h"
#include "foundations/Text.h"
#include "platform/UniqueFd.h"

namespace orvanta::SkillMetadata {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t maximalDocument = std::size_t{16} << 20;

// Nearly every front matter ends within the first read. The largest published ones have some kilobytes; the limit is
// there so that a file of gigabytes costs no more than a moment.
constexpr std::size_t firstRead = std::size_t{16} << 10;
constexpr std::size_t maximalFrontMatter = std::size_t{1} << 20;

// A name this long leaves room below the 255 bytes of a file name for a suffix that tells it from another.
constexpr std::size_t maximalSanitizedBytes = 230;
constexpr std::size_t maximalFileNameBytes = 255;

constexpr std::string_view windowsReservedChars = "<>:\"/\\|?*";

// Names of devices on Windows, and the short form under which Windows reaches a folder ".git".
constexpr std::array<std::string_view, 31> reservedBasenames = {
    "CON",  "PRN",  "AUX",  "NUL",  "CONIN$", "CONOUT$", "GIT~1", "COM1", "COM2", "COM3", "COM4",
    "COM5", "COM6", "COM7", "COM8", "COM9",   "COM¹",    "COM²",  "COM³", "LPT1", "LPT2", "LPT3",
    "LPT4", "LPT5", "LPT6", "LPT7", "LPT8",   "LPT9",    "LPT¹",  "LPT²", "LPT³"};

std::optional<fs::path> markerBelow(int baseFd, const fs::path& dir) {
  for (const std::string_view marker : markers) {
    fs::path file = dir / marker;
    struct stat status {};
    if (::fstatat(baseFd, file.c_str(), &status, 0) == 0 && S_ISREG(status.st_mode)) return file;
  }
  return std::nullopt;
}

UniqueFd openMarkerBelow(int baseFd, const fs::path& dir) {
  const auto file = markerBelow(baseFd, dir);
  if (!file) return UniqueFd();
  // What was a plain file a moment ago may be a fifo now.
  UniqueFd fd(::openat(baseFd, file->c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat status {};
  if (!fd || ::fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode)) return UniqueFd();
  return fd;
}

enum class ReadResult { whole, partial, failed };

// Reads on until the text has `size` bytes (partial) or the file ends (whole).
ReadResult readUpTo(int fd, std::size_t size, std::string& text) {
  std::size_t length = text.size();
  text.resize(size);
  ssize_t got = 1;
  while (length < size && got > 0) {
    got = ::read(fd, text.data() + length, size - length);
    if (got > 0) length += static_cast<std::size_t>(got);
    if (got < 0 && errno == EINTR) got = 1;
  }
  text.resize(length);
  if (got < 0) return ReadResult::failed;
  return length < size ? ReadResult::whole : ReadResult::partial;
}

SkillMeta parseMarkerBelow(int baseFd, const fs::path& dir) {
  const UniqueFd fd = openMarkerBelow(baseFd, dir);
  if (!fd) return {};
  std::string text;
  ReadResult result = readUpTo(fd.get(), firstRead, text);
  if (result == ReadResult::partial && !holdsWholeFrontMatter(text)) {
    result = readUpTo(fd.get(), maximalFrontMatter, text);
  }
  if (result == ReadResult::failed) return {};
  // The last character of a partial read may be cut, which does not make the file invalid.
  const std::string_view usable = result == ReadResult::whole ? text : Text::prefixBytes(text, text.size() - 1);
  return Text::isValidUTF8(usable) ? parseMeta(usable) : SkillMeta();
}

std::optional<std::string> unlessEmpty(std::string_view text) {
  return text.empty() ? std::nullopt : std::optional<std::string>(text);
}

// Line breaks of a value in several lines become spaces, together with the blanks around them.
std::string inOneLine(std::string_view text) {
  std::string line;
  for (const std::string_view part : Text::split(text, '\n')) {
    const std::string_view trimmed = Text::trim(part);
    if (!line.empty() && !trimmed.empty()) line.push_back(' ');
    line.append(trimmed);
  }
  return line;
}

// Characters that show nothing and could make two names look the same. The joiners that emoji and some scripts need are
// not among them.
bool isInvisible(char32_t codePoint) {
  return Text::isControl(codePoint) || Text::isDirectionControl(codePoint) || codePoint == 0x200B ||
         (codePoint >= 0x2060 && codePoint <= 0x206F) || codePoint == 0xFEFF;
}

bool isReservedCharacter(char32_t codePoint) {
  return codePoint < 0x80 && windowsReservedChars.find(static_cast<char>(codePoint)) != std::string_view::npos;
}

// The name without dots, white space and joiners at either end: a leading dot hides a folder, also behind a joiner, and
// Windows drops trailing ones.
std::string_view withoutUnsafeEnds(std::string_view name) {
  constexpr std::array<std::string_view, 3> stripped = {".", "\u200C", "\u200D"};
  for (std::size_t size = name.size() + 1; name.size() < size;) {
    size = name.size();
    name = Text::trim(name);
    for (const std::string_view part : stripped) {
      if (name.starts_with(part)) name.remove_prefix(part.size());
      if (name.ends_with(part)) name.remove_suffix(part.size());
    }
  }
  return name;
}

std::string_view shortened(std::string_view name) {
  return withoutUnsafeEnds(Text::prefixBytes(withoutUnsafeEnds(name), maximalSanitizedBytes));
}

// The part that Windows compares with the names of its devices.
std::string_view basename(std::string_view name) { return Text::trim(name.substr(0, name.find('.'))); }

bool hasReservedBasename(std::string_view name) {
  const std::string upper = Text::uppercaseASCII(basename(name));
  return std::find(reservedBasenames.begin(), reservedBasenames.end(), upper) != reservedBasenames.end();
}

bool hasUnsafeCharacter(std::string_view name) {
  for (; !name.empty(); name.remove_prefix(Text::firstCharacter(name).length)) {
    const Text::Character character = Text::firstCharacter(name);
    if (!character.valid || character.codePoint == '/' || isInvisible(character.codePoint)) return true;
  }
  return false;
}

}  // namespace

std::optional<fs::path> markerFile(const fs::path& dir) { return markerBelow(AT_FDCWD, dir); }

bool isValidSkillDir(const fs::path& dir) { return markerFile(dir).has_value(); }

std::optional<std::string> readSkillDocument(const fs::path& dir) {
  const UniqueFd fd = openMarkerBelow(AT_FDCWD, dir);
  struct stat status {};
  if (!fd || ::fstat(fd.get(), &status) != 0) return std::nullopt;
  const auto size = static_cast<std::size_t>(status.st_size);
  std::string text;
  // One byte more than the file has tells its end from a file that has grown since.
  if (size > maximalDocument || readUpTo(fd.get(), size + 1, text) != ReadResult::whole) return std::nullopt;
  return Text::isValidUTF8(text) ? std::optional(std::move(text)) : std::nullopt;
}

std::map<std::string, std::string> parseFrontmatter(std::string_view text) {
  std::map<std::string, std::string> values;
  FrontMatterReader reader(text);
  while (auto entry = reader.next()) values.try_emplace(std::string(entry->key), std::move(entry->value));
  return values;
}

SkillMeta parseMeta(std::string_view text) {
  std::optional<std::string> name;
  std::optional<std::string> description;
  FrontMatterReader reader(text);
  while (!name || !description) {
    auto entry = reader.next();
    if (!entry) break;
    if (entry->key == "name" && !name) name = std::move(entry->value);
    if (entry->key == "description" && !description) description = std::move(entry->value);
  }
  return {unlessEmpty(inOneLine(name.value_or(""))), unlessEmpty(Text::trim(description.value_or("")))};
}

SkillMeta parseSkillMd(const fs::path& dir) { return parseMarkerBelow(AT_FDCWD, dir); }

SkillMeta parseSkillMdAt(int dirFd) { return parseMarkerBelow(dirFd, {}); }

std::string inferSkillName(const fs::path& dir) { return inferSkillName(parseSkillMd(dir), dir); }

std::string inferSkillName(const SkillMeta& meta, const fs::path& dir) {
  if (auto name = sanitizeSkillName(meta.name.value_or(""))) return *std::move(name);
  std::error_code error;
  const fs::path normal = fs::absolute(dir, error).lexically_normal();
  const fs::path own = normal.has_filename() ? normal.filename() : normal.parent_path().filename();
  return own.empty() ? "unknown-skill" : own.string();
}

std::string shownName(const SkillMeta& meta, const fs::path& dir) {
  return meta.name.value_or(inferSkillName(meta, dir));
}

std::optional<std::string> sanitizeSkillName(std::string_view name) {
  std::string kept;
  for (; !name.empty(); name.remove_prefix(Text::firstCharacter(name).length)) {
    const Text::Character character = Text::firstCharacter(name);
    if (!character.valid) return std::nullopt;
    if (isReservedCharacter(character.codePoint) || isInvisible(character.codePoint)) continue;
    kept.append(name.substr(0, character.length));
  }
  std::string safe(shortened(kept));
  if (hasReservedBasename(safe)) {
    safe.insert(basename(safe).size(), "-skill");
    safe.resize(shortened(safe).size());
  }
  return unlessEmpty(safe);
}

bool isSafeFolderName(std::string_view name) {
  return !name.empty() && name.size() <= maximalFileNameBytes && !hasUnsafeCharacter(name) &&
         withoutUnsafeEnds(name) == name && !hasReservedBasename(name);
}

std::string slugify(std::string_view text) {
  const std::string lower = Text::lowercase(text);
  std::string slug;
  bool wordEnded = false;
  for (std::string_view rest = lower; !rest.empty(); rest.remove_prefix(Text::firstCharacter(rest).length)) {
    const Text::Character character = Text::firstCharacter(rest);
    if (!Text::isLetterOrDigit(character.codePoint)) {
      wordEnded = !slug.empty();
      continue;
    }
    if (std::exchange(wordEnded, false)) slug.push_back('-');
    slug.append(rest.substr(0, character.length));
  }
  return slug;
}

}  // namespace orvanta::SkillMetadata
