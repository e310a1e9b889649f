#include "platform/Host.h"

#include <pwd.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <system_error>
#include <vector>

#include <fmt/core.h>

#include "foundations/SkillsError.h"
#include "foundations/Text.h"

#ifdef __APPLE__
#include <sys/sysctl.h>
#endif

namespace orvanta {

namespace {

constexpr std::size_t largestUserRecord = std::size_t{1} << 20;

std::optional<std::filesystem::path> absolutePath(const std::optional<std::string>& text) {
  if (!text) return std::nullopt;
  std::filesystem::path path(*text);
  if (!path.is_absolute()) return std::nullopt;
  return path;
}

std::optional<std::string> recordedHome() {
  std::vector<char> buffer(4096);
  passwd record{};
  passwd* found = nullptr;
  int error = ERANGE;
  while (error == ERANGE && buffer.size() <= largestUserRecord) {
    error = ::getpwuid_r(::getuid(), &record, buffer.data(), buffer.size(), &found);
    if (error == ERANGE) buffer.resize(buffer.size() * 2);
  }
  if (error != 0 || found == nullptr || found->pw_dir == nullptr) return std::nullopt;
  return found->pw_dir;
}

std::filesystem::path homeFolder() {
  if (auto home = absolutePath(recordedHome())) return *home;
  if (auto home = absolutePath(environmentVariable("HOME"))) return *home;
  throw SkillsError::io(
      fmt::format("No home folder is known for user {}; set HOME to the absolute path of one", ::getuid()));
}

std::filesystem::path configFolder(const std::filesystem::path& home) {
#ifdef __APPLE__
  return home / "Library" / "Application Support";
#else
  return absolutePath(environmentVariable("XDG_CONFIG_HOME")).value_or(home / ".config");
#endif
}

std::filesystem::path temporaryFolder() {
  std::error_code error;
  auto folder = std::filesystem::temp_directory_path(error);
  return error || !folder.is_absolute() ? "/tmp" : folder;
}

// The value of "KEY=…" in a file of such lines, where values may stand in quotes.
std::string valueIn(const char* path, const std::string& key) {
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    if (!line.starts_with(key + "=")) continue;
    const std::string_view value = Text::trim(std::string_view(line).substr(key.size() + 1));
    const bool isQuoted =
        value.size() >= 2 && value.front() == value.back() && (value.front() == '"' || value.front() == '\'');
    return std::string(isQuoted ? value.substr(1, value.size() - 2) : value);
  }
  return {};
}

std::string networkName() {
  std::array<char, 256> name{};
  return ::gethostname(name.data(), name.size() - 1) == 0 ? std::string(name.data()) : std::string();
}

// The name and version of the system, empty where it does not tell.
std::string distribution() {
#ifdef __APPLE__
  std::array<char, 64> version{};
  std::size_t length = version.size() - 1;
  return ::sysctlbyname("kern.osproductversion", version.data(), &length, nullptr, 0) == 0 ? version.data() : "";
#else
  const std::string name = valueIn("/etc/os-release", "PRETTY_NAME");
  return name.empty() ? valueIn("/usr/lib/os-release", "PRETTY_NAME") : name;
#endif
}

}  // namespace

UserFolders currentUserFolders() {
  const auto home = homeFolder();
  return {home, configFolder(home), temporaryFolder()};
}

std::string deviceName() {
  for (const auto& name : {valueIn("/etc/machine-info", "PRETTY_HOSTNAME"), networkName()}) {
    const std::string shown = Text::singleLine(Text::repairUTF8(name));
    if (!Text::trim(shown).empty()) return std::string(Text::trim(shown));
  }
  return "this computer";
}

std::string systemDescription() {
  utsname kernel{};
  if (::uname(&kernel) != 0) return "unknown system";
#ifdef __APPLE__
  const std::string_view name = "macOS";
#else
  const std::string_view name = kernel.sysname;
#endif
  const std::string version = distribution();
  return fmt::format("{}: {}, kernel {}", name, version.empty() ? "unknown version" : version, kernel.release);
}

std::optional<std::string> environmentVariable(const std::string& name) {
  const char* value = std::getenv(name.c_str());
  if (value == nullptr || *value == '\0') return std::nullopt;
  return value;
}

}  // namespace orvanta
