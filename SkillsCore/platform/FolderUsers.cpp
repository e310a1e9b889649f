#include "platform/FolderUsers.h"

#ifdef __linux__

#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <system_error>

namespace orvanta {

namespace fs = std::filesystem;

namespace {

bool isNumber(const std::string& text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool isProgram(const fs::path& process, std::string_view program) {
  std::string name;
  std::getline(std::ifstream(process / "comm"), name);
  return name == program || (name.starts_with(program) && name.substr(program.size()).starts_with('-'));
}

bool leadsInto(const fs::path& link, const std::string& folder, std::error_code& error) {
  const std::string destination = fs::read_symlink(link, error).string();
  return !error && (destination == folder || destination.starts_with(folder + "/"));
}

bool hasOpenFileIn(const fs::path& process, const std::string& folder) {
  std::error_code error;
  for (fs::directory_iterator each(process / "fd", error), end; !error && each != end; each.increment(error)) {
    std::error_code closedMeanwhile;
    if (leadsInto(each->path(), folder, closedMeanwhile)) return true;
  }
  return false;
}

}  // namespace

std::optional<bool> isFolderInUse(const fs::path& folder, const fs::path& files, std::string_view program) {
  std::error_code error;
  const std::string realFolder = fs::canonical(folder, error).string();
  const std::string realFiles = error ? "" : fs::canonical(files, error).string();
  if (error) return std::nullopt;
  fs::directory_iterator processes("/proc", error);
  if (error) return std::nullopt;
  const std::string self = std::to_string(::getpid());
  bool isKnown = true;
  for (const fs::directory_iterator end; !error && processes != end; processes.increment(error)) {
    const fs::path& process = processes->path();
    if (!isNumber(process.filename().string()) || process.filename() == self) continue;
    if (hasOpenFileIn(process, realFiles)) return true;
    if (!isProgram(process, program)) continue;
    std::error_code unreadable;
    if (leadsInto(process / "cwd", realFolder, unreadable)) return true;
    if (unreadable == std::errc::permission_denied) isKnown = false;
  }
  return isKnown ? std::optional(false) : std::nullopt;
}

}  // namespace orvanta

#else

namespace orvanta {

std::optional<bool> isFolderInUse(const std::filesystem::path&, const std::filesystem::path&, std::string_view) {
  return std::nullopt;
}

}  // namespace orvanta

#endif
