#include "platform/AtomicRename.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>

namespace orvanta {

namespace {

// What the system's own call answered, or ENOTSUP where there is none.
int systemNoReplace(const char* from, const char* to) {
#if defined(__linux__)
  return ::renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0 ? 0 : errno;
#elif defined(__APPLE__)
  return ::renamex_np(from, to, RENAME_EXCL) == 0 ? 0 : errno;
#else
  (void)from;
  (void)to;
  return ENOTSUP;
#endif
}

int systemExchange(const char* a, const char* b) {
#if defined(__linux__)
  return ::renameat2(AT_FDCWD, a, AT_FDCWD, b, RENAME_EXCHANGE) == 0 ? 0 : errno;
#elif defined(__APPLE__)
  return ::renamex_np(a, b, RENAME_SWAP) == 0 ? 0 : errno;
#else
  (void)a;
  (void)b;
  return ENOTSUP;
#endif
}

bool isUnsupported(int error) { return error == ENOTSUP || error == EINVAL || error == ENOSYS; }

int plainRename(const char* from, const char* to) { return ::rename(from, to) == 0 ? 0 : errno; }

int plainNoReplace(const char* from, const char* to) {
  struct stat status {};
  if (::lstat(to, &status) == 0) return EEXIST;
  return plainRename(from, to);
}

int plainExchange(const char* a, const char* b) {
  struct stat status {};
  if (::lstat(a, &status) != 0) return errno;
  const std::string aside = std::string(a) + kExchangeSuffix;
  if (const int error = plainNoReplace(b, aside.c_str())) return error;
  if (const int error = plainRename(a, b)) {
    plainRename(aside.c_str(), b);
    return error;
  }
  const int error = plainRename(aside.c_str(), a);
  if (error != 0 && plainRename(b, a) == 0) plainRename(aside.c_str(), b);
  return error;
}

}  // namespace

int renameNoReplace(const char* from, const char* to) {
  const int error = systemNoReplace(from, to);
  return isUnsupported(error) ? plainNoReplace(from, to) : error;
}

int exchangePaths(const char* a, const char* b) {
  const int error = systemExchange(a, b);
  return isUnsupported(error) ? plainExchange(a, b) : error;
}

}  // namespace orvanta
