#pragma once

// Questions about and simple changes to files and folders, none of which follows a symbolic link unless it says so.
// Throwing operations throw `SkillsError` of kind `io` with the system's text, and name the path.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvanta::FS {

enum class Kind { absent, symlink, directory, file };

// What stands at the path itself. Unreadable counts as absent; anything that is neither link nor folder is a `file`.
Kind kind(const std::filesystem::path& path);

// Tells one object from another that takes its place. Inode numbers are given out again at once, so the kind and the
// time of the last change count too; a rename changes none of them. All zero when nothing stands at the path.
struct Identity {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::uint32_t type = 0;
  std::int64_t modifiedNs = 0;

  friend bool operator==(const Identity&, const Identity&) = default;
};
Identity identity(const std::filesystem::path& path);

// Whether that object stands at the path. For identities that were written down: devices are counted anew at each start
// of the machine, so theirs does not count.
bool isKnownAs(const std::filesystem::path& path, Identity noted);

bool exists(const std::filesystem::path& path);
// Nothing stands there. False as well where the system does not let us see.
bool isCertainlyAbsent(const std::filesystem::path& path);
bool isDirectory(const std::filesystem::path& path);

// The same three questions with links followed to their end.
bool resolvesToDirectory(const std::filesystem::path& path);
bool resolvesToFile(const std::filesystem::path& path);

// Where a link points, made absolute against the folder that holds it and standardised; nothing when it is no link.
std::optional<std::filesystem::path> linkDestination(const std::filesystem::path& path);

// The path with every link in it resolved, as far as it exists. Never throws.
std::filesystem::path resolved(const std::filesystem::path& path);

// The entries of a folder in the system's order; an unreadable folder has none.
std::vector<std::filesystem::path> children(const std::filesystem::path& folder);

// The names of those entries: for a look over large folders.
std::vector<std::string> childNames(const std::filesystem::path& folder);

// A regular file's text when it is at most `largest` bytes; nothing when it is absent, larger, no regular file or
// unreadable. Links are followed. Never waits on a fifo.
std::optional<std::string> readText(const std::filesystem::path& file, std::size_t largest);

// The path and its missing parents as folders.
void createDirectories(const std::filesystem::path& folder);

// Waits until what was made, renamed and removed in the folder is on the disk.
void flushFolder(const std::filesystem::path& folder);

// The same for the content of one file. The name of one that was just made goes to the disk with it.
void flushFile(const std::filesystem::path& file);

// The same for everything in and below a folder.
void flushTree(const std::filesystem::path& folder);

// A name in the folder that is free: PREFIX, the time of now without ":" and SUFFIX; with a number before it where
// two fall into one second.
std::filesystem::path freeStampedFile(const std::filesystem::path& folder, std::string_view prefix,
                                      std::string_view suffix);

// Writes a temporary file beside `file` and renames it into place: readers see the old content or the new, also after a
// power cut, and the new one once this has returned. What a killed process left of it is used up by the next write;
// where anything else has its name, that stays, and another name is taken. `permissions` are those of a new file,
// within what the user's own mask leaves.
void writeAtomically(const std::filesystem::path& file, std::string_view content, unsigned permissions = 0666);

// Gives the file this content, in place: a crash can leave a part of it. For a file whose readers know that.
void writeOver(const std::filesystem::path& file, std::string_view content);

// Adds to the end of a file, which is made with these permissions where it is missing: a crash can leave a part of it.
void append(const std::filesystem::path& file, std::string_view content, unsigned permissions);

// Gives `to` the permission bits of `from`; links are followed.
void copyPermissions(const std::filesystem::path& from, const std::filesystem::path& to);

// Removes whatever stands at the path: a file, a link (never its destination), or a folder with all it holds, also
// where its own permissions forbid it. Nothing there is no error.
void removeAny(const std::filesystem::path& path);

// `removeAny`, giving up quietly where it fails: for cleaning up what a later start would clean up as well.
void removeQuietly(const std::filesystem::path& path) noexcept;

// Removes a folder that is empty; anything else stays, without an error. Whether it is gone.
bool removeIfEmpty(const std::filesystem::path& folder) noexcept;

// Removes a link and nothing else. Throws `refused` for anything that is not a link.
void removeSymlink(const std::filesystem::path& path);

// A link at `link` whose destination is `destination`'s absolute text. Throws `io`, also when something stands there.
void createSymlink(const std::filesystem::path& destination, const std::filesystem::path& link);

// Gives `from` the name `to` on the same file system. Throws `conflict` when something stands at `to`.
void renameExclusive(const std::filesystem::path& from, const std::filesystem::path& to);

// Gives `from` the name of the empty folder `to`, in one step. Throws `conflict` when `to` is not empty or no folder.
void replaceEmptyFolder(const std::filesystem::path& from, const std::filesystem::path& to);

// Completes an exchange, or takes it back, that a process left half done where it takes three renames.
void settleExchange(const std::filesystem::path& a, const std::filesystem::path& b);

// Exchanges what stands at the two paths; in one step where the system can, else by three renames.
void exchange(const std::filesystem::path& a, const std::filesystem::path& b);

}  // namespace orvanta::FS
