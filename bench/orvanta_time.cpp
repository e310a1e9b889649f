// orvanta_time FILE COMMAND…: runs a command and writes into FILE its seconds, its largest process in KiB and its exit
// status. A program of its own because a process starts with the peak memory of the one that starts it, and because an
// interpreter takes as long to start a process as a short command runs.

#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <chrono>
#include <fstream>
#include <iostream>

extern char** environ;

namespace {

#ifdef __APPLE__
constexpr long peakUnitsPerKiB = 1024;
#else
constexpr long peakUnitsPerKiB = 1;
#endif

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::cerr << "usage: orvanta_time FILE COMMAND...\n";
    return 2;
  }
  const auto start = std::chrono::steady_clock::now();
  pid_t child = 0;
  if (::posix_spawnp(&child, argv[2], nullptr, nullptr, argv + 2, environ) != 0) {
    std::cerr << "orvanta_time: cannot start " << argv[2] << '\n';
    return 1;
  }
  int status = 0;
  rusage usage{};
  ::wait4(child, &status, 0, &usage);
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
  std::ofstream(argv[1]) << seconds.count() << ' ' << usage.ru_maxrss / peakUnitsPerKiB << ' '
                         << (WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status)) << '\n';
  return 0;
}
