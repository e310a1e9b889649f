#pragma once

// What the fuzzers share. A broken promise ends the process, which libFuzzer reports with the input that did it.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "files/TemporaryFolder.h"
#include "foundations/SkillsError.h"

namespace orvanta::fuzzing {

inline void require(bool promise) {
  if (!promise) std::abort();
}

inline std::string_view textOf(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};  // NOLINT(*-reinterpret-cast)
}

// Runs what may fail in this way and in no other.
template <typename Body>
void allowing(SkillsError::Kind kind, const Body& body) {
  try {
    body();
  } catch (const SkillsError& error) {
    require(error.kind() == kind);
  }
}

// A folder of this process alone, in memory where the system has such folders; removed at its end.
inline const std::filesystem::path& scratchFolder() {
  static const std::filesystem::path memory = "/dev/shm";
  static const TemporaryFolder folder(
      std::filesystem::is_directory(memory) ? memory : std::filesystem::temp_directory_path(), "orvanta-fuzz-");
  return folder.path();
}

inline void writeFile(const std::filesystem::path& file, std::string_view content) {
  std::ofstream stream(file, std::ios::binary | std::ios::trunc);
  require(static_cast<bool>(stream.write(content.data(), static_cast<std::streamsize>(content.size())).flush()));
}

}  // namespace orvanta::fuzzing
