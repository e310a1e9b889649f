#pragma once

// Copy-on-write copies of files, where the file system has them.

namespace orvanta {

// Makes the empty regular file `toFd` share the content of the regular file `fromFd`, so that no byte is copied until
// one of them changes. Both lie on one file system; `toFd` is open for writing. False, with nothing changed, where
// the system or the file system cannot do that: the caller then copies the bytes.
[[nodiscard]] bool cloneFile(int fromFd, int toFd);

}  // namespace orvanta
