#pragma once

// Writing without the surprises of write(2), which may write less than it was given or be interrupted.

#include <string_view>

namespace orvanta {

// Writes all of the bytes. False, with the reason in `errno`, when that fails; some may have been written then.
[[nodiscard]] bool writeAll(int fd, std::string_view bytes);

}  // namespace orvanta
