#include "platform/Flush.h"

#include <fcntl.h>
#include <ftw.h>
#include <unistd.h>

#include <cerrno>

#include "platform/UniqueFd.h"

namespace orvanta {

int flushFolder(const char* folder) {
  const UniqueFd fd(::open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!fd) return errno;
  return ::fsync(fd.get()) == 0 || errno == EINVAL || errno == ENOTSUP ? 0 : errno;
}

#ifdef __linux__

int flushTree(const char* folder) {
  const UniqueFd fd(::open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return fd && ::syncfs(fd.get()) == 0 ? 0 : errno;
}

#else

namespace {

int flushOne(const char* path, const struct stat* /*status*/, int type, struct FTW* /*level*/) {
  if (type == FTW_DP) return flushFolder(path);
  if (type != FTW_F) return 0;
  const UniqueFd fd(::open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  return fd && ::fsync(fd.get()) == 0 ? 0 : errno;
}

}  // namespace

int flushTree(const char* folder) {
  constexpr int kOpenFolders = 16;
  const int result = ::nftw(folder, flushOne, kOpenFolders, FTW_PHYS | FTW_DEPTH);
  return result < 0 ? errno : result;
}

#endif

}  // namespace orvanta
