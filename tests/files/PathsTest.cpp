#include "files/Paths.h"

#include <sys/stat.h>

#include "foundations/ModelsJSON.h"
#include "tests/support/Sandbox.h"

namespace orvanta {
namespace {

namespace fs = std::filesystem;

using PathsTest = Sandbox;

TEST(Locations, InsideIsDecidedByWholeNames) {
  EXPECT_TRUE(isInside("/a/b", "/a/b"));
  EXPECT_TRUE(isInside("/a/b/", "/a"));
  EXPECT_TRUE(isInside("/a", "/"));
  EXPECT_FALSE(isInside("/a/bc", "/a/b"));
  EXPECT_FALSE(isInside("/a", "/a/b"));
  EXPECT_FALSE(isInside("/a/b/../../c", "/a"));
}

TEST(Locations, OnlyALeadingTildeIsTheHomeFolder) {
  EXPECT_EQ(expandingTilde("~", "/home/u/"), "/home/u");
  EXPECT_EQ(expandingTilde("~/lib", "/home/u"), "/home/u/lib");
  EXPECT_EQ(expandingTilde("~other/lib", "/home/u"), "~other/lib");
  EXPECT_EQ(expandingTilde("/a/~", "/home/u"), "/a/~");
}

TEST_F(PathsTest, TheEnvironmentWinsOverTheSavedChoiceAndThatOverTheDefault) {
  const Paths byDefault(home / ".orvanta");
  EXPECT_EQ(Paths::resolveDefault(user, std::nullopt), byDefault);
  EXPECT_FALSE(byDefault.isRelocated(user));
  Paths::writeRepoPath(user, root / "chosen");
  EXPECT_EQ(Paths::resolveDefault(user, ""), Paths(root / "chosen"));
  EXPECT_EQ(Paths::resolveDefault(user, "~/lib/"), Paths(home / "lib"));
  EXPECT_TRUE(Paths::resolveDefault(user, "~/lib").isRelocated(user));
}

TEST_F(PathsTest, AnUnusableSavedChoiceNeverStopsTheStart) {
  const Path file = Paths::configFile(user);
  for (const auto* content : {"", "{", "[]", "null", "{}", R"({"repo_path":""})", R"({"repo_path":7})", "\xFF\xFE"}) {
    write(file, content);
    EXPECT_EQ(Paths::resolveDefault(user, std::nullopt), Paths(home / ".orvanta")) << content;
  }
  write(file, R"({"x":)" + std::string(100'000, '[') + std::string(100'000, ']') + "}");
  EXPECT_EQ(Paths::resolveDefault(user, std::nullopt), Paths(home / ".orvanta")) << "however deep it is";
  fs::remove(file);
  ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
  EXPECT_EQ(Paths::resolveDefault(user, std::nullopt), Paths(home / ".orvanta")) << "and does not wait";
}

TEST_F(PathsTest, SavingTheChoiceKeepsWhatElseTheFileHolds) {
  const Path file = Paths::configFile(user);
  write(file, R"({"theme":{"dark":true},"repo_path":"/old"})");
  Paths::writeRepoPath(user, root / "a b%20é");
  EXPECT_EQ(Json::parse(read(file)), (Json{{"theme", {{"dark", true}}}, {"repo_path", (root / "a b%20é").string()}}));
  Paths::writeRepoPath(user, std::nullopt);
  EXPECT_EQ(Json::parse(read(file)), (Json{{"theme", {{"dark", true}}}}));
  EXPECT_EQ(std::distance(fs::directory_iterator(file.parent_path()), {}), 1) << "no temporary file stays";
}

TEST_F(PathsTest, AnObstructedLibraryIsAnErrorThatNamesThePlace) {
  write(root / "library" / "cache", "a file");
  EXPECT_THAT(errorOf([&] { paths.ensureDirectories(); }),
              IsError(SkillsError::Kind::io, (root / "library/cache").string()));
  fs::remove(root / "library" / "cache");
  paths.ensureDirectories();
  paths.ensureDirectories();
  EXPECT_TRUE(fs::is_directory(paths.repoCache()));
}

}  // namespace
}  // namespace orvanta
