#include "platform/CloneFile.h"

#ifdef __linux__
#include <linux/fs.h>
#include <sys/ioctl.h>
#endif

namespace orvanta {

#ifdef FICLONE

bool cloneFile(int fromFd, int toFd) { return ::ioctl(toFd, FICLONE, fromFd) == 0; }

#else

// macOS clones only into a name that does not exist yet, never into an open file.
bool cloneFile(int /*fromFd*/, int /*toFd*/) { return false; }

#endif

}  // namespace orvanta
