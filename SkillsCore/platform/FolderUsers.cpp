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

bool isAtWork(const fs::path& process, const std::string& folder, std::string_view program) {
  if (isProgram(process, program)) {
    std::error_code error;
    const bool isThere = leadsInto(process / "cwd", folder, error);
    if (isThere || error == std::errc::permission_denied) return true;
  }
  return hasOpenFileIn(process, folder);
}

}  // namespace

std::optional<bool> isFolderInUse(const fs::path& folder, std::string_view program) {
  std::error_code error;
  const std::string real = fs::canonical(folder, error).string();
  if (error) return std::nullopt;
  fs::directory_iterator processes("/proc", error);
  if (error) return std::nullopt;
  const std::string self = std::to_string(::getpid());
  for (const fs::directory_iterator end; !error && processes != end; processes.increment(error)) {
    const std::string id = processes->path().filename().string();
    if (isNumber(id) && id != self && isAtWork(processes->path(), real, program)) return true;
  }
  return false;
}

}  // namespace orvanta

#else

namespace orvanta {

std::optional<bool> isFolderInUse(const std::filesystem::path&, std::string_view) { return std::nullopt; }

}  // namespace orvanta

#endif
