#include "sources/ZipDirectory.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <string_view>

#include "foundations/SkillsError.h"

namespace orvanta {

namespace {

using namespace std::string_view_literals;

constexpr auto endSignature = "PK\5\6"sv;
constexpr auto end64Signature = "PK\6\6"sv;
constexpr auto locator64Signature = "PK\6\7"sv;
constexpr auto entrySignature = "PK\1\2"sv;

constexpr std::uint64_t endLength = 22;
constexpr std::uint64_t end64Length = 56;
constexpr std::uint64_t locator64Length = 20;
constexpr std::uint64_t entryLength = 46;
constexpr std::uint64_t longestComment = 0xFFFF;
constexpr std::uint64_t largestDirectory = std::uint64_t{64} << 20;

constexpr std::uint16_t zip64Field = 0x0001;
constexpr std::uint16_t unicodePathField = 0x7075;
constexpr int unixSystem = 3;

SkillsError damaged() {
  return SkillsError::invalidInput("is not a ZIP archive, or is damaged or cut short; get it again from its source");
}

// A piece of the archive; looking beyond its end means that the archive is damaged.
class Bytes {
 public:
  explicit Bytes(std::string_view bytes) : bytes_(bytes) {}

  [[nodiscard]] std::uint64_t length() const { return bytes_.size(); }

  [[nodiscard]] std::string_view slice(std::uint64_t offset, std::uint64_t length) const {
    if (offset > bytes_.size() || length > bytes_.size() - offset) throw damaged();
    return bytes_.substr(offset, length);
  }

  [[nodiscard]] bool startsWith(std::string_view signature) const { return bytes_.substr(0, 4) == signature; }

  // Numbers are stored with their least significant byte first.
  [[nodiscard]] std::uint16_t u16(std::uint64_t offset) const { return number<std::uint16_t>(offset); }
  [[nodiscard]] std::uint32_t u32(std::uint64_t offset) const { return number<std::uint32_t>(offset); }
  [[nodiscard]] std::uint64_t u64(std::uint64_t offset) const { return number<std::uint64_t>(offset); }

 private:
  template <typename Number>
  [[nodiscard]] Number number(std::uint64_t offset) const {
    const auto bytes = slice(offset, sizeof(Number));
    std::uint64_t value = 0;
    for (std::size_t at = sizeof(Number); at > 0; --at) {
      value = (value << 8) | static_cast<unsigned char>(bytes[at - 1]);
    }
    return static_cast<Number>(value);
  }

  std::string_view bytes_;
};

std::uint64_t lengthOf(int fd) {
  struct stat info {};
  if (::fstat(fd, &info) != 0) throw SkillsError::system("cannot be read", errno);
  return static_cast<std::uint64_t>(info.st_size);
}

std::string readAt(int fd, std::uint64_t offset, std::uint64_t length) {
  std::string bytes(length, '\0');
  for (std::uint64_t done = 0; done < length;) {
    const auto count = ::pread(fd, bytes.data() + done, length - done, static_cast<off_t>(offset + done));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw SkillsError::system("cannot be read", errno);
    if (count == 0) throw damaged();
    done += static_cast<std::uint64_t>(count);
  }
  return bytes;
}

// Where the directory lies in the file and how many entries it should have.
struct Location {
  std::uint64_t start = 0;
  std::uint64_t length = 0;
  std::uint64_t entries = 0;
};

// The fields of an end record, in either of its forms.
struct EndRecord {
  std::uint64_t disk = 0;
  std::uint64_t directoryDisk = 0;
  std::uint64_t entries = 0;
  std::uint64_t length = 0;
  std::uint64_t offset = 0;
};

// A field of the short form either holds its value or, at its largest number, refers to the ZIP64 form.
template <typename Number>
std::uint64_t resolve(Number value, std::uint64_t value64) {
  if (value != std::numeric_limits<Number>::max() && value != value64) throw damaged();
  return value64;
}

// The directory ends where the end record starts. Its recorded offset counts from the start of the archive, which a
// program in front of it moves away from the start of the file.
Location locate(const EndRecord& end, std::uint64_t recordPosition) {
  if (end.disk != 0 || end.directoryDisk != 0) {
    throw SkillsError::invalidInput("is one part of a split archive; join the parts first");
  }
  if (end.length > recordPosition || end.offset > recordPosition - end.length) throw damaged();
  return {recordPosition - end.length, end.length, end.entries};
}

Location locate64(int fd, const Bytes& end, const Bytes& locator, std::uint64_t locatorPosition) {
  if (locatorPosition < end64Length) throw damaged();
  const auto position = locatorPosition - end64Length;
  const auto record = readAt(fd, position, end64Length);
  const Bytes end64(record);
  if (!end64.startsWith(end64Signature)) throw damaged();
  const auto location = locate({.disk = resolve(end.u16(4), end64.u32(16)),
                                .directoryDisk = resolve(end.u16(6), end64.u32(20)),
                                .entries = resolve(end.u16(10), end64.u64(32)),
                                .length = resolve(end.u32(12), end64.u64(40)),
                                .offset = resolve(end.u32(16), end64.u64(48))},
                               position);
  const auto inFront = location.start - end64.u64(48);
  if (locator.u64(8) != position - inFront) throw damaged();
  return location;
}

Location findDirectory(int fd) {
  const auto fileLength = lengthOf(fd);
  const auto tailLength = std::min(fileLength, locator64Length + endLength + longestComment);
  const auto tail = readAt(fd, fileLength - tailLength, tailLength);
  const auto found = tail.rfind(endSignature);
  if (found == std::string::npos) throw damaged();
  const Bytes end(Bytes(tail).slice(found, endLength));
  const auto position = fileLength - tailLength + found;

  if (found >= locator64Length) {
    const Bytes locator(Bytes(tail).slice(found - locator64Length, locator64Length));
    if (locator.startsWith(locator64Signature)) return locate64(fd, end, locator, position - locator64Length);
  }
  return locate({.disk = end.u16(4),
                 .directoryDisk = end.u16(6),
                 .entries = end.u16(10),
                 .length = end.u32(12),
                 .offset = end.u32(16)},
                position);
}

ZipEntry::Kind kindOf(std::string_view name, std::uint32_t attributes) {
  switch ((attributes >> 16) & S_IFMT) {
    case S_IFLNK: return ZipEntry::Kind::link;
    case S_IFIFO:
    case S_IFCHR:
    case S_IFBLK:
    case S_IFSOCK: return ZipEntry::Kind::special;
    default: return name.ends_with('/') ? ZipEntry::Kind::folder : ZipEntry::Kind::file;
  }
}

// Takes what the optional fields add. Writers pad them with junk, so reading ends quietly where they stop making sense.
void readExtraFields(const Bytes& extra, bool sizeIsInExtra, ZipEntry& entry) {
  for (std::uint64_t at = 0; at + 4 <= extra.length();) {
    const auto id = extra.u16(at);
    const std::uint64_t length = extra.u16(at + 2);
    at += 4;
    if (length > extra.length() - at) return;
    if (id == zip64Field && sizeIsInExtra && length >= 8) entry.size = extra.u64(at);
    // A version byte and a checksum precede the name.
    if (id == unicodePathField && length > 5) entry.unicodeName = extra.slice(at + 5, length - 5);
    at += length;
  }
}

}  // namespace

void ZipDirectory::forEachEntry(int fd, const std::function<void(const ZipEntry&)>& visit) {
  const auto location = findDirectory(fd);
  if (location.length > largestDirectory) throw SkillsError::invalidInput("has a directory of more than 64 MiB");
  const auto stored = readAt(fd, location.start, location.length);
  const Bytes directory(stored);

  std::uint64_t count = 0;
  std::uint64_t at = 0;
  for (; at < directory.length(); ++count) {
    const Bytes header(directory.slice(at, entryLength));
    if (!header.startsWith(entrySignature)) throw damaged();
    const std::uint64_t nameLength = header.u16(28);
    const std::uint64_t extraLength = header.u16(30);
    const std::uint64_t commentLength = header.u16(32);
    const auto size = header.u32(24);

    ZipEntry entry;
    entry.name = directory.slice(at + entryLength, nameLength);
    entry.kind = kindOf(entry.name, header.u32(38));
    entry.encrypted = (header.u16(8) & 1) != 0;
    entry.size = size;
    entry.madeOnUnix = header.u16(4) >> 8 == unixSystem;
    entry.position = location.start + at;
    const Bytes extra(directory.slice(at + entryLength + nameLength, extraLength));
    readExtraFields(extra, size == std::numeric_limits<std::uint32_t>::max(), entry);
    visit(entry);
    at += entryLength + nameLength + extraLength + commentLength;
  }
  if (at != directory.length() || count != location.entries) throw damaged();
}

}  // namespace orvanta
