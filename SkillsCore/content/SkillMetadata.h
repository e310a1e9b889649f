#pragma once

// What a skill folder says of itself: a skill is a folder whose marker file, "SKILL.md", begins with a front matter
// that names and describes it. Nothing here throws on bad content or waits on a fifo:
// what cannot be read is as if it said nothing.

#include <array>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace orvanta {

// The name in one line and the description with its inner line breaks, both trimmed. An absent key or one without a
// text leaves none. YAML's words for nothing ("null", "~") are texts like any other.
struct SkillMeta {
  std::optional<std::string> name;
  std::optional<std::string> description;

  friend bool operator==(const SkillMeta&, const SkillMeta&) = default;
};

namespace SkillMetadata {

// The names a marker file may have, the preferred one first.
inline constexpr std::array<std::string_view, 2> markers = {"SKILL.md", "skill.md"};

// The marker file of a folder: the first of `markers` that is a regular file there, or a link to one.
[[nodiscard]] std::optional<std::filesystem::path> markerFile(const std::filesystem::path& dir);

[[nodiscard]] bool isValidSkillDir(const std::filesystem::path& dir);

// The whole marker file; none without one, when it is not UTF-8 or larger than 16 MiB, which no person has written.
[[nodiscard]] std::optional<std::string> readSkillDocument(const std::filesystem::path& dir);

// All keys of the front matter with their values as YAML reads them; of repeated keys the first counts, so that the
// text below a front matter that is never closed cannot override it.
[[nodiscard]] std::map<std::string, std::string> parseFrontmatter(std::string_view text);

[[nodiscard]] SkillMeta parseMeta(std::string_view text);

// What the marker file of a folder says; nothing when it cannot be read or is not UTF-8. Reads only as much of the file
// as holds the front matter, at most 1 MiB.
[[nodiscard]] SkillMeta parseSkillMd(const std::filesystem::path& dir);

// The same for a folder that is open as `dirFd`.
[[nodiscard]] SkillMeta parseSkillMdAt(int dirFd);

// The name under which a folder is known: the name in its front matter made safe, else the folder's own name as it is,
// else "unknown-skill".
[[nodiscard]] std::string inferSkillName(const std::filesystem::path& dir);

// The same when the folder's metadata is at hand.
[[nodiscard]] std::string inferSkillName(const SkillMeta& meta, const std::filesystem::path& dir);

// The name under which a skill is shown: its own as it is written, else the folder's.
[[nodiscard]] std::string shownName(const SkillMeta& meta, const std::filesystem::path& dir);

// A name made safe as the name of a folder on every platform: at most 230 bytes, so that a suffix that tells it from
// another of the same name still fits, and always an `isSafeFolderName`. None when nothing usable is left.
[[nodiscard]] std::optional<std::string> sanitizeSkillName(std::string_view name);

// Whether a folder of the library may have this name: UTF-8 of at most 255 bytes on one visible line, that begins with
// no dot, ends in no dot or white space and is no name that Windows or Git keep for themselves.
[[nodiscard]] bool isSafeFolderName(std::string_view name);

// A lower-case form that joins the words of a text by hyphens, letters of every script kept; may be empty.
[[nodiscard]] std::string slugify(std::string_view text);

}  // namespace SkillMetadata
}  // namespace orvanta
