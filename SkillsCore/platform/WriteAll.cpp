#include "platform/WriteAll.h"

#include <unistd.h>

#include <cerrno>
#include <cstddef>

namespace orvanta {

bool writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const auto count = ::write(fd, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

}  // namespace orvanta
