#pragma once

// Writes ZIP archives record by record, so that each field can tell the truth or lie.

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvanta {

inline std::string littleEndian(std::uint64_t value, int bytes) {
  std::string result;
  for (int byte = 0; byte < bytes; ++byte) result += static_cast<char>(value >> (8 * byte) & 0xFF);
  return result;
}

inline std::uint32_t crc32(std::string_view bytes) {
  std::uint32_t crc = 0xFFFFFFFF;
  for (const char byte : bytes) {
    crc ^= static_cast<unsigned char>(byte);
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0xEDB88320U : 0U);
  }
  return ~crc;
}

// A compressed stream of `length` zeros, about 160 times smaller than what comes out: one zero, then "the last byte
// again, 258 times" over and over.
inline std::string deflatedZeros(std::size_t length) {
  std::string bytes;
  std::uint32_t pending = 0;
  int pendingBits = 0;
  const auto put = [&](std::uint32_t bits, int count) {
    pending |= bits << pendingBits;
    for (pendingBits += count; pendingBits >= 8; pendingBits -= 8, pending >>= 8) bytes += static_cast<char>(pending);
  };
  put(0b011, 3);
  put(0b00001100, 8);
  for (std::size_t repeat = 0; repeat < length / 258; ++repeat) put(0b00000'10100011, 13);
  put(0, 7);
  put(0, 7);
  return bytes;
}

// The optional field that gives an entry another name in UTF-8.
inline std::string unicodeName(const std::string& name) {
  return "up" + littleEndian(name.size() + 5, 2) + littleEndian(1, 1) + littleEndian(crc32(name), 4) + name;
}

struct ZipItem {
  std::string name;
  std::string content = {};
  std::uint32_t mode = S_IFREG | 0644;
  std::uint16_t flags = 0x0800;
  std::uint16_t method = 0;
  std::optional<std::uint32_t> claimedSize = std::nullopt;
  std::string centralExtra = {};
  std::uint16_t madeBy = 3 << 8 | 20;
};

enum class ZipForm { plain, zip64 };

inline std::string zipArchive(const std::vector<ZipItem>& items, ZipForm form = ZipForm::plain) {
  std::string archive;
  std::string directory;
  for (const auto& item : items) {
    const auto size = item.claimedSize.value_or(static_cast<std::uint32_t>(item.content.size()));
    const auto common = littleEndian(20, 2) + littleEndian(item.flags, 2) + littleEndian(item.method, 2) +
                        littleEndian(0x58210000, 4) + littleEndian(crc32(item.content), 4) +
                        littleEndian(item.content.size(), 4) + littleEndian(size, 4) +
                        littleEndian(item.name.size(), 2);
    directory += "PK\1\2" + littleEndian(item.madeBy, 2) + common + littleEndian(item.centralExtra.size(), 2) +
                 littleEndian(0, 6) + littleEndian(item.mode << 16, 4) + littleEndian(archive.size(), 4) + item.name +
                 item.centralExtra;
    archive += "PK\3\4" + common + littleEndian(0, 2) + item.name + item.content;
  }
  const auto offset = archive.size();
  archive += directory;
  const auto end64 = archive.size();
  const bool is64 = form == ZipForm::zip64;
  if (is64) {
    archive += "PK\6\6" + littleEndian(44, 8) + littleEndian(45, 2) + littleEndian(45, 2) + littleEndian(0, 8) +
               littleEndian(items.size(), 8) + littleEndian(items.size(), 8) + littleEndian(directory.size(), 8) +
               littleEndian(offset, 8);
    archive += "PK\6\7" + littleEndian(0, 4) + littleEndian(end64, 8) + littleEndian(1, 4);
  }
  const auto count = littleEndian(is64 ? 0xFFFF : items.size(), 2);
  return archive + "PK\5\6" + littleEndian(0, 4) + count + count +
         littleEndian(is64 ? 0xFFFFFFFF : directory.size(), 4) + littleEndian(is64 ? 0xFFFFFFFF : offset, 4) +
         littleEndian(0, 2);
}

}  // namespace orvanta
