#include "content/ContentHash.h"

#include <sys/stat.h>
#include <unistd.h>

#include <set>

#include "tests/support/Sandbox.h"

namespace orvanta {
namespace {

namespace fs = std::filesystem;

class ContentHashTest : public Sandbox {
 protected:
  std::string hashOf(const Files& files) {
    const Path path = folder(root / std::to_string(made_++), files);
    return ContentHash::hashDirectory(path);
  }

 private:
  int made_ = 0;
};

TEST_F(ContentHashTest, NothingHashesAsNothingAndKnownBytesAsKnown) {
  EXPECT_EQ(hashOf({}), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(hashOf({{"a", "1"}, {"b/c", ""}}), ContentHash::sha256Hex(std::string("a\0f1\0001b/c\0f0\0", 13)));
  EXPECT_EQ(ContentHash::sha256Hex("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST_F(ContentHashTest, WhatDoesNotCountChangesNothing) {
  const Files files{{"SKILL.md", "text"}, {"sub/x", "1"}, {"sub.y", "2"}};
  const std::string plain = hashOf(files);
  const Path path = folder(root / "noisy", {{"sub/x", "1"}});
  const Files noise{{".git/config", "x"},       {".gitignore", "x"}, {"sub/.DS_Store", "x"}, {"Thumbs.db", "x"},
                    {"sub/__pycache__/x", "x"}, {"m.pyc", "x"},      {"d.pyc/x", "x"}};
  folder(path, noise);
  folder(path, files);
  fs::create_directory(path / "empty");
  ASSERT_EQ(::mkfifo((path / "fifo").c_str(), 0600), 0);
  ::chmod((path / "sub.y").c_str(), 0600);
  fs::last_write_time(path / "sub.y", fs::file_time_type::clock::now() - std::chrono::hours(9));
  EXPECT_EQ(ContentHash::hashDirectory(path), plain);
  EXPECT_EQ(ContentHash::hashEntries(ContentHash::listContentFiles(path)), plain);
  EXPECT_EQ(ContentHash::totalSize(ContentHash::listContentFiles(path)), 6);
  EXPECT_EQ(FS::directorySize(root / "absent"), 0);
}

TEST_F(ContentHashTest, DifferentContentNeverHashesAlike) {
  const std::vector<Files> different{{{"a", "bc"}},
                                     {{"ab", "c"}},
                                     {{"a", ""}, {"bc", ""}},
                                     {{"a", "b"}, {"c", ""}},
                                     {{"a/b", "c"}},
                                     {{"A", "bc"}},
                                     {{"a", std::string("1\0f1\0001", 6)}},
                                     {{"\xE9", ""}},
                                     {{"é", ""}},
                                     {{"e\u0301", ""}},
                                     {{"Git", "x"}},
                                     {{"x.PYC", ""}},
                                     {{"big", std::string(600'000, 'x')}},
                                     {{"big", std::string(600'000, 'x') + "y"}}};
  std::set<std::string> hashes;
  for (const auto& files : different) EXPECT_TRUE(hashes.insert(hashOf(files)).second) << files.begin()->first;

  const Path path = folder(root / "one", {{"a", "bc"}});
  ::chmod((path / "a").c_str(), 0645);
  EXPECT_TRUE(hashes.insert(ContentHash::hashDirectory(path)).second) << "executable for somebody";
  fs::remove(path / "a");
  for (const auto* text : {"bc", "nowhere", "../one"}) {
    fs::create_symlink(text, path / "a");
    EXPECT_TRUE(hashes.insert(ContentHash::hashDirectory(path)).second) << text;
    fs::remove(path / "a");
  }
}

TEST_F(ContentHashTest, ALinkCountsByItsTextAndIsNeverFollowed) {
  const Path path = folder(root / "skill", {});
  write(root / "secret", "1");
  fs::create_symlink("../secret", path / "link");
  fs::create_directory_symlink("..", path / "up");
  const std::string before = ContentHash::hashDirectory(path);
  write(root / "secret", "2");
  EXPECT_EQ(ContentHash::hashDirectory(path), before);
  EXPECT_EQ(ContentHash::listContentFiles(path).size(), 2U);
}

TEST_F(ContentHashTest, ACopyIsHashedAsWhatWasCopied) {
  const Path from = skillFolder(root / "from", {{"a/b/c", "1"},
                                                {"a.x", ""},
                                                {"a-b/c", "2"},
                                                {"caf\xE9", "3"},
                                                {".gitignore", "x"},
                                                {"__pycache__/m", "x"},
                                                {"d.pyc/e", "x"},
                                                {".git/config", "x"},
                                                {".DS_Store", "x"}});
  write(from / "run", std::string(600'000, 'r'), 0755);
  write(from / "setuid", "", 04755);
  fs::create_symlink("a/b", from / "link");
  fs::create_symlink("x", from / "__pycache__" / "link");
  ASSERT_EQ(::mkfifo((from / "fifo").c_str(), 0600), 0);
  const std::string hash = ContentHash::copyAndHash(from, root / "to");
  EXPECT_EQ(hash, ContentHash::hashDirectory(root / "to"));
  EXPECT_EQ(hash, ContentHash::hashDirectory(from));
  EXPECT_TRUE(fs::exists(root / "to" / "__pycache__" / "m"));
}

TEST_F(ContentHashTest, WhatCannotBeReadHasNoFingerprint) {
  const Path good = folder(root / "good", {{"a", ""}});
  const Path bad = folder(root / "bad", {{"a", ""}, {"secret", ""}});
  ::chmod((bad / "secret").c_str(), 0000);
  asOrdinaryUser([&] {
    EXPECT_THAT(errorOf([&] { ContentHash::hashDirectory(bad); }), IsError(SkillsError::Kind::io, "secret"));
    const auto hashes = ContentHash::hashDirectories({bad, good, root / "absent"});
    EXPECT_EQ(hashes,
              (std::vector<std::optional<std::string>>{std::nullopt, ContentHash::hashDirectory(good), std::nullopt}));
  });
}

}  // namespace
}  // namespace orvanta
