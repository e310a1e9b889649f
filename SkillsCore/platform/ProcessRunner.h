#pragma once

// Runs an external program to its end: no shell, no terminal, a time limit. Runs are independent; any thread may
// start one.

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <stop_token>
#include <string>
#include <vector>

namespace orvanta {

struct RunOptions {
  // The program's working folder; none: that of this process.
  std::optional<std::filesystem::path> cwd = std::nullopt;
  // Set on top of this process's own environment and the runner's defaults; these win.
  std::map<std::string, std::string> environment = {};
  // Variables of this process's environment that the program does not inherit.
  std::set<std::string, std::less<>> withheld = {};
  std::chrono::milliseconds timeout = std::chrono::minutes(1);
  // Standard output is kept byte for byte: file names need not be UTF-8.
  bool keepsBytes = false;
  // A requested stop ends the program as the time limit does.
  std::stop_token stop = {};
};

struct ProcessResult {
  // The exit status; 128 plus the signal's number when a signal ended the program.
  std::int32_t exitCode = 0;
  // What the program wrote, with invalid UTF-8 repaired unless it was asked for as it is. Of each, the first 64 MiB are
  // kept.
  std::string standardOutput = {};
  std::string standardError = {};
  // The time limit, or a requested stop, made the runner end the program.
  bool timedOut = false;
  bool stopped = false;

  [[nodiscard]] bool succeeded() const { return exitCode == 0 && !timedOut && !stopped; }

  // Why the run failed, in its own words where it left any: standard error, else standard output, else the outcome.
  [[nodiscard]] std::string failureText() const;
};

namespace ProcessRunner {

// Starts `executable` (an absolute path) and waits for its end. A non-zero exit status is not an error.
//
// The program reads nothing (standard input is the null device), holds no other descriptor of this process, and has
// a session of its own, so that nothing it starts can ask on the terminal: it fails instead of waiting. In its
// environment GIT_TERMINAL_PROMPT is 0, GIT_ASKPASS is /usr/bin/true and LC_ALL is en_US.UTF-8 unless the caller says
// otherwise.
//
// At the time limit or a requested stop, the program and what it started get SIGTERM, and SIGKILL two seconds later;
// a stop requested beforehand starts nothing. Helpers that outlive a program which ended by itself are left running,
// and what they write later is not waited for.
//
// Throws `io` ("Failed to launch PATH: …") when the program cannot be started, and `invalidInput` for a NUL in the
// arguments or the environment.
[[nodiscard]] ProcessResult run(const std::filesystem::path& executable, const std::vector<std::string>& arguments,
                                const RunOptions& options = {});

// The first executable file of that name in /usr/bin, /bin, /usr/local/bin and /opt/homebrew/bin, in this order.
[[nodiscard]] std::optional<std::filesystem::path> which(const std::string& name);

}  // namespace ProcessRunner

}  // namespace orvanta
