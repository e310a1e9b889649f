#include "platform/Host.h"

#include <pwd.h>
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

// "PRETTY_HOSTNAME=…" of the file in which a desktop's settings keep it; its value may stand in quotes.
std::string chosenName() {
  std::ifstream file("/etc/machine-info");
  for (std::string line; std::getline(file, line);) {
    constexpr std::string_view key = "PRETTY_HOSTNAME=";
    if (!line.starts_with(key)) continue;
    std::string_view value = Text::trim(std::string_view(line).substr(key.size()));
    const bool isQuoted = value.size() >= 2 && value.front() == value.back() && (value[0] == '"' || value[0] == '\'');
    return std::string(isQuoted ? value.substr(1, value.size() - 2) : value);
  }
  return {};
}

std::string networkName() {
  std::array<char, 256> name{};
  return ::gethostname(name.data(), name.size() - 1) == 0 ? std::string(name.data()) : std::string();
}

}  // namespace

UserFolders currentUserFolders() {
  const auto home = homeFolder();
  return {home, configFolder(home), temporaryFolder()};
}

std::string deviceName() {
  for (const auto& name : {chosenName(), networkName()}) {
    const std::string shown = Text::singleLine(Text::repairUTF8(name));
    if (!Text::trim(shown).empty()) return std::string(Text::trim(shown));
  }
  return "this computer";
}

std::optional<std::string> environmentVariable(const std::string& name) {
  const char* value = std::getenv(name.c_str());
  if (value == nullptr || *value == '\0') return std::nullopt;
  return value;
}

}  // namespace orvanta
