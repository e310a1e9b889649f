#pragma once

// The times of a file as the system's record of it has them, under the same names everywhere.

#include <sys/stat.h>

#include <ctime>

namespace orvanta {

inline const timespec& accessTime(const struct stat& status) {
#ifdef __APPLE__
  return status.st_atimespec;
#else
  return status.st_atim;
#endif
}

inline const timespec& modificationTime(const struct stat& status) {
#ifdef __APPLE__
  return status.st_mtimespec;
#else
  return status.st_mtim;
#endif
}

}  // namespace orvanta
