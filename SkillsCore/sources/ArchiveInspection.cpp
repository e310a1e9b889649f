#include "sources/ArchiveInspection.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <limits>
#include <map>
#include <string_view>
#include <utility>

#include <fmt/core.h>

#include "foundations/SkillsError.h"
#include "foundations/Text.h"
#include "platform/UniqueFd.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

// What every system can open, with room for the folder in front.
constexpr std::size_t longestName = 1024;
constexpr std::size_t deepestName = 100;

using FlawText = std::optional<std::string>;

void checkExtension(const fs::path& archive) {
  const auto extension = archive.extension().string();
  const auto comparable = Text::lowercase(extension);
  if (comparable == ".zip" || comparable == ".skill") return;
  throw SkillsError::invalidInput(fmt::format("Unsupported archive type .{}; expected .zip or .skill",
                                              Text::singleLine(extension.empty() ? "" : extension.substr(1))));
}

UniqueFd openArchive(const fs::path& archive) {
  UniqueFd fd(::open(archive.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!fd && errno == ENOENT) throw SkillsError::notFound(archive.string() + " does not exist");
  if (!fd) throw SkillsError::system("Failed to open " + archive.string(), errno);
  struct stat info {};
  if (::fstat(fd.get(), &info) != 0 || !S_ISREG(info.st_mode)) {
    throw SkillsError::invalidInput(archive.string() + " is not a file");
  }
  return fd;
}

std::string humanSize(std::int64_t bytes) {
  constexpr std::array units = {"bytes", "KiB", "MiB", "GiB"};
  auto value = static_cast<double>(bytes);
  std::size_t unit = 0;
  for (; value >= 1024 && unit + 1 < units.size(); ++unit) value /= 1024;
  return fmt::format("{:.4g} {}", value, units[unit]);
}

// Some unpackers take backslashes for separators, so both must be harmless.
std::vector<std::string> components(std::string name) {
  std::replace(name.begin(), name.end(), '\\', '/');
  std::vector<std::string> result;
  for (const auto part : Text::split(name, '/')) {
    if (!part.empty() && part != ".") result.emplace_back(part);
  }
  return result;
}

bool isAbsolute(std::string_view name) {
  if (name.starts_with('/') || name.starts_with('\\')) return true;
  const bool drive = name.size() > 2 && name[1] == ':' && (name[2] == '/' || name[2] == '\\');
  return drive && std::isalpha(static_cast<unsigned char>(name[0])) != 0;
}

bool isASCII(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char byte) { return static_cast<unsigned char>(byte) < 0x80; });
}

FlawText flawOfName(const std::string& name) {
  if (name.empty()) return "has no name";
  if (name.find('\0') != std::string::npos) return "has a NUL byte in its name";
  if (!Text::isValidUTF8(name)) return "has a name that is not UTF-8; pack the archive again with UTF-8 names";
  if (isAbsolute(name)) return "has an absolute path";
  const auto parts = components(name);
  if (std::find(parts.begin(), parts.end(), "..") != parts.end()) return "leads out of the archive by \"..\"";
  if (name.size() > longestName || parts.size() > deepestName) return "has too long a path";
  return std::nullopt;
}

// Collects an archive's entries and refuses what must not be unpacked.
class Inspector {
 public:
  explicit Inspector(const Archive::Limits& limits) : limits_(limits) {}

  void visit(const ZipEntry& entry) {
    declared_.add(entry.size);
    if (const auto flaw = declared_.beyond(limits_)) throw SkillsError::invalidInput(*flaw);
    if (entry.encrypted) {
      throw SkillsError::invalidInput("is encrypted; unpack it with its password and install the folder instead");
    }
    refuseIf(flawOfName(entry.name), entry.name);
    if (!entry.unicodeName.empty()) refuseIf(flawOfName(entry.unicodeName), entry.unicodeName);
    if (entry.kind == ZipEntry::Kind::special) refuse("is a device or pipe", entry.name);
    if (!entry.madeOnUnix && !isASCII(entry.name)) contents_.foreignNames.push_back(entry);
    note(entry);
  }

  ArchiveContents finish() && {
    if (kinds_.empty()) throw SkillsError::invalidInput("is empty");
    for (const auto& [name, kind] : kinds_) {
      for (auto slash = name.find('/'); slash != std::string::npos; slash = name.find('/', slash + 1)) {
        const auto parent = kinds_.find(name.substr(0, slash));
        if (parent != kinds_.end() && parent->second == ZipEntry::Kind::link) refuse("lies below a link", name);
      }
    }
    // Entries of one name become one file.
    contents_.files = std::count_if(kinds_.begin(), kinds_.end(),
                                    [](const auto& entry) { return entry.second != ZipEntry::Kind::folder; });
    return std::move(contents_);
  }

 private:
  [[noreturn]] static void refuse(const std::string& flaw, const std::string& name) {
    throw SkillsError::invalidInput(
        fmt::format("holds an entry that {}: {}", flaw, Text::fitToWidth(Text::singleLine(name), 80)));
  }

  static void refuseIf(const FlawText& flaw, const std::string& name) {
    if (flaw) refuse(*flaw, name);
  }

  // A name may come twice, and the last one counts. Not so for a link: what comes after might be written through it.
  void note(const ZipEntry& entry) {
    const auto name = Text::comparisonKey(Text::join(components(entry.name), "/"));
    const auto [known, isNew] = kinds_.emplace(name, entry.kind);
    const bool linkInvolved = entry.kind == ZipEntry::Kind::link || known->second == ZipEntry::Kind::link;
    if (!isNew && linkInvolved) refuse("shares its name with a link", entry.name);
  }

  const Archive::Limits& limits_;
  ArchiveExtent declared_;
  ArchiveContents contents_;
  // By the names under which entries meet on a file system that ignores letter case.
  std::map<std::string, ZipEntry::Kind> kinds_;
};

}  // namespace

void ArchiveExtent::add(std::uint64_t size) {
  constexpr auto most = std::numeric_limits<std::uint64_t>::max();
  bytes = size > most - bytes ? most : bytes + size;
  ++entries;
}

std::optional<std::string> ArchiveExtent::beyond(const Archive::Limits& limits) const {
  if (std::cmp_greater(entries, limits.maxEntries)) {
    return fmt::format("holds more than {} files and folders, the most that are unpacked", limits.maxEntries);
  }
  if (std::cmp_greater(bytes, limits.maxBytes)) {
    return fmt::format("unpacks to more than {}, the most that is unpacked", humanSize(limits.maxBytes));
  }
  return std::nullopt;
}

SkillsError aboutArchive(const fs::path& archive, const SkillsError& error) {
  return {error.kind(),
          fmt::format("The archive {} {}", Text::singleLine(archive.filename().string()), error.message())};
}

ArchiveContents inspectArchive(const fs::path& archive, const Archive::Limits& limits) {
  checkExtension(archive);
  const auto fd = openArchive(archive);
  try {
    Inspector inspector(limits);
    ZipDirectory::forEachEntry(fd.get(), [&](const ZipEntry& entry) { inspector.visit(entry); });
    return std::move(inspector).finish();
  } catch (const SkillsError& error) {
    throw aboutArchive(archive, error);
  }
}

}  // namespace orvanta
