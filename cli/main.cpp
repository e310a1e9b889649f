#include <sys/resource.h>

#include "cli/Application.h"

int main(int argc, char** argv) {
  // Copying and hashing many skills at once holds many files open; what the system allows is ours to use.
  rlimit files{};
  if (::getrlimit(RLIMIT_NOFILE, &files) == 0 && files.rlim_cur < files.rlim_max) {
    files.rlim_cur = files.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &files);
  }
  return orvanta::cli::run({argv + (argc > 0 ? 1 : 0), argv + argc}, orvanta::cli::processStreams());
}
