#include "foundations/Uuid.h"

#include <sys/random.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "foundations/SkillsError.h"

namespace orvanta {

namespace {

constexpr std::string_view kDigits = "0123456789abcdef";

bool isHyphenAt(std::size_t position) { return position == 8 || position == 13 || position == 18 || position == 23; }

using Bytes = std::array<std::uint8_t, 16>;

// Random bytes are asked from the kernel a block at a time: a bulk command makes an identifier per record.
Bytes randomBytes() {
  constexpr std::size_t kBlock = 256;  // the most that one call gives
  thread_local std::array<std::uint8_t, kBlock> pool;
  thread_local std::size_t used = kBlock;
  Bytes bytes{};
  if (used + bytes.size() > kBlock) {
    if (getentropy(pool.data(), kBlock) != 0) throw SkillsError::system("Cannot get random bytes", errno);
    used = 0;
  }
  for (auto& byte : bytes) byte = pool[used++];
  return bytes;
}

}  // namespace

std::string newUuid() {
  Bytes b = randomBytes();
  b[6] = static_cast<std::uint8_t>((b[6] & 0x0fU) | 0x40U);
  b[8] = static_cast<std::uint8_t>((b[8] & 0x3fU) | 0x80U);
  std::string text;
  text.reserve(36);
  for (const std::uint8_t byte : b) {
    if (isHyphenAt(text.size())) text += '-';
    text += kDigits[byte >> 4U];
    text += kDigits[byte & 0x0fU];
  }
  return text;
}

bool isUuid(std::string_view text) {
  if (text.size() != 36) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (isHyphenAt(i) ? text[i] != '-' : kDigits.find(text[i]) == std::string_view::npos) return false;
  }
  return true;
}

}  // namespace orvanta
