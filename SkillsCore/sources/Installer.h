#pragma once

// Copies skill folders into the library under free names. Work on many skills comes in two halves: `prepare` reads and
// copies, may run on several threads and needs no lock; `settle` gives each its place, one after the other.

#include <filesystem>
#include <map>
#include <optional>
#include <string>

#include "files/FS.h"

namespace orvanta {

struct InstalledDirectory {
  std::filesystem::path destination;  // the skill's folder in the library
  std::string name;
  std::string contentHash;
  bool reused = false;  // an identical folder stood there already; nothing was copied

  friend bool operator==(const InstalledDirectory&, const InstalledDirectory&) = default;
};

namespace Installer {

struct Destination {
  std::filesystem::path path;
  bool reuse = false;
};

// A skill that waits for its place.
struct PreparedSkill {
  std::filesystem::path source;
  std::string name;
  std::string contentHash;
  std::optional<std::filesystem::path> staged;  // nothing when an identical folder was found in the library
};

// Places that earlier skills of the same installation get, with their content hashes.
using Taken = std::map<std::filesystem::path, std::string>;

// The first of NAME, NAME-2, NAME-3 … in `root` that is free, or holds (or is to get) a folder with this content hash.
Destination uniqueDestination(const std::filesystem::path& root, const std::string& name, const std::string& sourceHash,
                              const Taken& taken = {});

// The folder name that a skill gets: the given name when it is not blank, else the skill's own, made safe. Throws
// `invalidInput` for a source that is no skill, or a name of which nothing usable is left.
std::string skillFolderName(const std::filesystem::path& source, const std::optional<std::string>& name);

// Checks and hashes the source, and copies it to `slot` unless the library `root` holds the same content under that
// name. Throws `invalidInput` or `io`; nothing is left in the slot then.
PreparedSkill prepare(const std::filesystem::path& source, const std::optional<std::string>& name,
                      const std::filesystem::path& root, const std::filesystem::path& slot);

// What `prepare` and `settle` would do, with nothing copied.
InstalledDirectory expect(const std::filesystem::path& source, const std::optional<std::string>& name,
                          const std::filesystem::path& root, const Taken& taken);

// Moves a prepared skill to its destination. Throws `io` or `conflict` with the library as it was.
InstalledDirectory settle(const PreparedSkill& prepared, const Destination& destination);

// Takes back what `settle` did, best effort: a folder that was reused stays.
void unsettle(const InstalledDirectory& installed) noexcept;

// Prepares and settles one skill. With a fixed destination the skill takes the place of what stands there, as a whole.
InstalledDirectory installDirectory(const std::filesystem::path& source, const std::filesystem::path& root,
                                    const std::optional<std::string>& name,
                                    const std::optional<std::filesystem::path>& fixedDestination = std::nullopt);

}  // namespace Installer
}  // namespace orvanta
