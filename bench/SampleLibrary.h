#pragma once

// Made-up skills to measure with: the same ones on every machine and in every run, in the mixture that published skills
// have (a few small files, now and then a large one, some scripts, front matter in every style).

#include <cstddef>
#include <filesystem>
#include <string>

namespace orvanta::bench {

// Front matter is written in this many styles.
inline constexpr std::size_t kFrontMatterStyles = 6;

// A marker file's text without its body, in style `style` modulo the number of styles.
std::string frontMatter(std::size_t style, const std::string& name, const std::string& description);

// Makes the folders "skill-00000", "skill-00001", … in `folder`, which is made where missing. Throws `io`.
void makeSampleLibrary(const std::filesystem::path& folder, std::size_t skills);

// Makes a tree of `folders` folders with a few empty files in each; about one folder in 200 is a project, which has
// skills of an agent besides. Throws `io`.
void makeSampleHome(const std::filesystem::path& folder, std::size_t folders);

}  // namespace orvanta::bench
