#pragma once

// Renames that plain POSIX cannot express: without replacing, and exchanging two names. Each returns 0 or an error
// number. Where the system or the file system lacks the call, a plain sequence stands in that is safe as long as no
// other process makes the same names in between.

namespace orvanta {

// Fails with EEXIST when something stands at `to`.
int renameNoReplace(const char* from, const char* to);

// Fails with ENOENT when either is missing; both stay as they were on failure.
int exchangePaths(const char* a, const char* b);

}  // namespace orvanta
