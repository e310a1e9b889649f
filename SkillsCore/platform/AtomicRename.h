#pragma once

// Renames that plain POSIX cannot express: without replacing, and exchanging two names. Each returns 0 or an error
// number. Where the system or the file system lacks the call, a plain sequence stands in that is safe as long as no
// other process makes the same names in between.

namespace orvanta {

// Fails with EEXIST when something stands at `to`.
int renameNoReplace(const char* from, const char* to);

// Where there is no such call, what stood at `b` waits for a moment under this name: that of `a` and the suffix. A
// process that is killed just then leaves it there.
inline constexpr const char* kExchangeSuffix = "-exchange";

// Fails with ENOENT when either is missing; both stay as they were on failure.
int exchangePaths(const char* a, const char* b);

}  // namespace orvanta
