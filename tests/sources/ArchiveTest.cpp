#include "sources/Archive.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <map>
#include <thread>

#include <gtest/gtest.h>

#include "files/FS.h"
#include "files/TemporaryFolder.h"
#include "foundations/SkillsError.h"
#include "tests/sources/ZipBuilder.h"

namespace orvanta {
namespace {

namespace fs = std::filesystem;

constexpr std::int64_t mebibyte = std::int64_t{1} << 20;

class ArchiveTest : public testing::Test {
 protected:
  [[nodiscard]] fs::path write(const std::string& name, const std::string& bytes) const {
    fs::path path = scratch.path() / name;
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
  }

  // The error of a failed extraction, "" for one that worked. A failed one must leave nothing behind.
  std::string extract(const fs::path& archive, const Archive::Limits& limits = {}, const std::stop_token& stop = {}) {
    const fs::path work = scratch.path() / "work";
    FS::removeAny(work);
    fs::create_directory(work);
    destination = work / "extract";
    try {
      Archive::extract(archive, destination, limits, stop);
    } catch (const SkillsError& error) {
      EXPECT_TRUE(fs::is_empty(work)) << error.message();
      return std::string(rawValue(error.kind())) + ": " + error.message();
    }
    EXPECT_EQ(FS::children(work).size(), 1U) << "only the unpacked folder stays";
    return "";
  }

  // Everything that was unpacked: permissions, and what the file or link holds.
  [[nodiscard]] std::map<std::string, std::string> unpacked() const {
    std::map<std::string, std::string> result;
    for (const auto& entry : fs::recursive_directory_iterator(destination)) {
      struct stat info {};
      EXPECT_EQ(::lstat(entry.path().c_str(), &info), 0);
      std::string content = "folder";
      if (S_ISLNK(info.st_mode)) content = "-> " + fs::read_symlink(entry.path()).string();
      if (S_ISREG(info.st_mode)) content = FS::readText(entry.path(), mebibyte).value_or("unreadable");
      std::array<char, 8> mode{};
      std::snprintf(mode.data(), mode.size(), "%04o ", info.st_mode & 07777U);
      result[entry.path().lexically_relative(destination).string()] =
          (S_ISLNK(info.st_mode) ? "" : mode.data()) + content;
    }
    return result;
  }

  TemporaryFolder scratch{testing::TempDir(), "archive-test-"};
  fs::path destination;
};

TEST_F(ArchiveTest, AnArchiveUnpacksWithContentAndSafePermissions) {
  const std::string accented = "données/漢 字;1";
  const auto archive =
      write("skill.ZIP", zipArchive({{"SKILL.md", "old"},
                                     {"SKILL.md", "# Skill"},
                                     {"bin/run", "#!", S_IFREG | 07777},
                                     {"closed/", "", S_IFDIR | 0},
                                     {"closed/secret", "s", S_IFREG | 0},
                                     {.name = accented, .content = "u", .centralExtra = unicodeName(accented)},
                                     {"-rf", "dash"},
                                     {"a[b]*?", "pattern"},
                                     {"link", "bin/run", S_IFLNK | 0777}}));
  EXPECT_EQ(extract(archive), "");
  const std::map<std::string, std::string> expected = {
      {"SKILL.md", "0644 # Skill"},  {"bin", "0755 folder"},      {"bin/run", "0755 #!"},
      {"closed", "0700 folder"},     {"closed/secret", "0600 s"}, {"données", "0755 folder"},
      {"données/漢 字;1", "0644 u"}, {"-rf", "0644 dash"},        {"a[b]*?", "0644 pattern"},
      {"link", "-> bin/run"},
  };
  EXPECT_EQ(unpacked(), expected);
}

TEST_F(ArchiveTest, OtherFormsOfTheFormatUnpackToo) {
  const std::vector<ZipItem> items = {{"SKILL.md", "# Skill"}, {"a/b", "x"}};
  auto windows = items;
  windows[1] = {.name = "a\\b", .content = "x", .mode = 0, .madeBy = 20};
  windows[0].mode = 0;
  windows[0].madeBy = 20;
  const auto commented = [&] {
    auto bytes = zipArchive(items);
    bytes.replace(bytes.size() - 2, 2, littleEndian(7, 2) + "comment");
    return bytes;
  };
  const std::map<std::string, std::string> forms = {
      {"plain", zipArchive(items)},
      {"zip64", zipArchive(items, ZipForm::zip64)},
      {"program in front", "#!/bin/sh\nexit 1\n" + zipArchive(items)},
      {"program in front of zip64", std::string(3000, 'x') + zipArchive(items, ZipForm::zip64)},
      {"comment behind", commented()},
      {"backslashes", zipArchive(windows)},
  };
  for (const auto& [form, bytes] : forms) {
    EXPECT_EQ(extract(write("form.skill", bytes)), "") << form;
    EXPECT_EQ(FS::readText(destination / "SKILL.md", 100), "# Skill") << form;
    EXPECT_EQ(FS::readText(destination / "a" / "b", 100), "x") << form;
  }
}

TEST_F(ArchiveTest, NamesBeyondASCIIStayWhatTheyAreWhereverTheyWerePacked) {
  const auto packedOnWindows = [](const std::string& name) { return ZipItem{.name = name, .mode = 0, .madeBy = 20}; };
  const auto slashes = write("slashes.zip", zipArchive({packedOnWindows("é/"), packedOnWindows("é/漢.md")}));
  fs::permissions(slashes, fs::perms::owner_read);
  EXPECT_EQ(extract(slashes), "");
  const std::map<std::string, std::string> expected = {{"é", "0755 folder"}, {"é/漢.md", "0644 "}};
  EXPECT_EQ(unpacked(), expected);

  EXPECT_EQ(extract(write("backslashes.zip", zipArchive({packedOnWindows("é\\漢.md")}))), "");
  EXPECT_EQ(unpacked(), expected);
}

TEST_F(ArchiveTest, TheArchivesOwnNameIsNeverAnOptionOrPattern) {
  (void)write("a1.zip", zipArchive({{"SKILL.md", "wrong one"}}));
  for (const std::string name : {"-d.zip", "a[1].zip", "*.zip", "new\nline.zip", "x.skill"}) {
    EXPECT_EQ(extract(write(name, zipArchive({{"SKILL.md", name}}))), "") << name;
    EXPECT_EQ(FS::readText(destination / "SKILL.md", 100), name);
  }
}

TEST_F(ArchiveTest, HostileArchivesAreRefusedBeforeUnpacking) {
  struct Case {
    std::string error;
    std::vector<ZipItem> items;
  };
  const std::vector<Case> cases = {
      {"holds an entry that leads out of the archive by \"..\": ../x", {{"ok"}, {"../x"}}},
      {"leads out of the archive", {{"a/../../x"}}},
      {"leads out of the archive", {{"a/.."}}},
      {"leads out of the archive", {{"a\\..\\..\\x"}}},
      {"leads out of the archive by \"..\": ../../outside",
       {{.name = "ok", .centralExtra = unicodeName("../../outside")}}},
      {"has an absolute path", {{"/etc/x"}}},
      {"has an absolute path", {{"\\\\host\\share"}}},
      {"has an absolute path", {{"C:\\x"}}},
      {"has a NUL byte", {{std::string("SKILL.md\0.txt", 13)}}},
      {"has no name", {{""}}},
      {"has a name that is not UTF-8; pack the archive again with UTF-8 names: caf\uFFFD [31m", {{"caf\xE9\x1B[31m"}}},
      {"has too long a path", {{std::string(1025, 'n')}}},
      {"has too long a path", {{[] {
         std::string deep;
         for (int level = 0; level < 101; ++level) deep += "d/";
         return deep;
       }()}}},
      {"is encrypted; unpack it", {{"ok"}, {.name = "secret", .flags = 1}}},
      {"is a device or pipe: fifo", {{"fifo", "", S_IFIFO | 0644}}},
      {"is a device or pipe", {{"device", "", S_IFCHR | 0644}}},
      {"lies below a link: l/x", {{"l", "/tmp", S_IFLNK | 0777}, {"l/x", "x"}}},
      {"lies below a link", {{"a/L/b/x", "x"}, {"a/./l", "/tmp", S_IFLNK | 0777}}},
      {"shares its name with a link", {{"l", "/tmp/x", S_IFLNK | 0777}, {"L", "x"}}},
      {"holds more than 5 files and folders", std::vector<ZipItem>(6, {"same"})},
      {"unpacks to more than 1 MiB", {{.name = "a", .claimedSize = 600'000}, {.name = "b", .claimedSize = 600'000}}},
      {"unpacks to more than 1 MiB",
       {{"a", "one byte more than fits in 64 bits"},
        {.name = "b",
         .claimedSize = 0xFFFFFFFF,
         .centralExtra = littleEndian(1, 2) + littleEndian(8, 2) + littleEndian(0xFFFFFFFFFFFFFFFF, 8)}}},
      {"is empty", {}},
  };
  for (const auto& [fragment, items] : cases) {
    const auto error = extract(write("hostile.zip", zipArchive(items)), {.maxBytes = mebibyte, .maxEntries = 5});
    EXPECT_TRUE(error.starts_with("invalidInput: The archive hostile.zip ")) << error;
    EXPECT_NE(error.find(fragment), std::string::npos) << fragment << "\n" << error;
  }
}

TEST_F(ArchiveTest, DamagedArchivesAreRefusedBeforeUnpacking) {
  const auto expectRefusal = [this](const std::string& bytes, const std::string& damage) {
    const auto error = extract(write("bad.zip", bytes));
    EXPECT_TRUE(error.starts_with("invalidInput: The archive bad.zip is ")) << damage << ": " << error;
  };
  const std::vector<ZipItem> items = {{"SKILL.md", "# Skill"}, {"a/b", "x"}};
  for (const auto form : {ZipForm::plain, ZipForm::zip64}) {
    const auto whole = zipArchive(items, form);
    for (std::size_t length = 0; length < whole.size(); ++length) {
      expectRefusal(whole.substr(0, length), "cut to " + std::to_string(length));
    }
    for (const auto missing : {1U, 40U, 60U}) expectRefusal(whole.substr(missing), "the start is missing");

    struct Change {
      std::string what;
      std::size_t fromEnd;
    };
    std::vector<Change> changes = {{"disk", 18}, {"entries", 12}, {"length", 10}, {"offset", 3}};
    if (form == ZipForm::zip64) {
      changes.insert(changes.end(), {{"disk", 82}, {"entries", 66}, {"length", 58}, {"offset", 50}, {"locator", 34}});
    }
    for (const auto& [what, fromEnd] : changes) {
      auto changed = whole;
      ++changed[changed.size() - fromEnd];
      expectRefusal(changed, what);
    }
    auto noEntry = whole;
    noEntry[noEntry.find("PK\1\2") + 3] = 9;
    expectRefusal(noEntry, "an entry's signature");
  }
  EXPECT_EQ(
      extract(write("text.zip", "not a zip at all")),
      "invalidInput: The archive text.zip is not a ZIP archive, or is damaged or cut short; get it again from its "
      "source");
}

TEST_F(ArchiveTest, LiesThatOnlyUnpackingRevealsAreCaught) {
  ZipItem bomb{.name = "bomb", .content = deflatedZeros(4 * mebibyte), .method = 8, .claimedSize = 10};
  EXPECT_EQ(extract(write("bomb.zip", zipArchive({bomb})), {.maxBytes = mebibyte}),
            "invalidInput: The archive bomb.zip unpacks to more than 1 MiB, the most that is unpacked");

  const std::vector<ZipItem> folders = {{"a/b/c/d/e/f"}, {"g/h/i/j/k"}};
  EXPECT_EQ(extract(write("folders.zip", zipArchive(folders)), {.maxEntries = 8}),
            "invalidInput: The archive folders.zip holds more than 8 files and folders, the most that are unpacked");

  auto corrupt = zipArchive({{"SKILL.md", "# Skill"}});
  corrupt[corrupt.find("# Skill")] = '!';
  const auto error = extract(write("corrupt.zip", corrupt));
  EXPECT_TRUE(error.starts_with("invalidInput: Failed to extract archive: ")) << error;
  EXPECT_NE(error.find("CRC"), std::string::npos) << error;

  const auto unknown = extract(write("unknown.zip", zipArchive({{"ok"}, {.name = "odd", .method = 97}})));
  EXPECT_TRUE(unknown.starts_with("invalidInput: Failed to extract archive: ")) << unknown;
}

TEST_F(ArchiveTest, ALongUnpackingEndsEarlyWithItsReason) {
  constexpr std::int64_t size = 3000 * mebibyte;
  const ZipItem bomb{.name = "bomb", .content = deflatedZeros(size), .method = 8, .claimedSize = 10};
  const auto archive = write("bomb.zip", zipArchive({bomb}));
  const auto before = fs::space(scratch.path()).available;
  auto least = before;
  std::jthread observer([&](const std::stop_token& done) {
    while (!done.stop_requested()) {
      least = std::min(least, fs::space(scratch.path()).available);
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
  });
  const auto overLimit = extract(archive, {.maxBytes = mebibyte});
  EXPECT_NE(overLimit.find("unpacks to more than 1 MiB"), std::string::npos) << overLimit;

  std::stop_source source;
  const std::jthread user([&source] {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    source.request_stop();
  });
  const auto stopped = extract(archive, {.maxBytes = 2 * size}, source.get_token());
  EXPECT_EQ(stopped, "io: Unpacking " + archive.string() + " was stopped");

  observer.request_stop();
  observer.join();
  EXPECT_LT(before - least, static_cast<std::uintmax_t>(size) / 2);
}

TEST_F(ArchiveTest, WhatIsNoArchiveFileIsRefusedAtOnce) {
  const auto folder = scratch.path() / "folder.zip";
  fs::create_directory(folder);
  const auto fifo = scratch.path() / "fifo.skill";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  const auto dangling = scratch.path() / "dangling.zip";
  fs::create_symlink("nowhere", dangling);

  EXPECT_EQ(extract(write("skill.tar.gz", "")), "invalidInput: Unsupported archive type .gz; expected .zip or .skill");
  EXPECT_EQ(extract(write("zip", "")), "invalidInput: Unsupported archive type .; expected .zip or .skill");
  EXPECT_EQ(extract(folder), "invalidInput: " + folder.string() + " is not a file");
  EXPECT_EQ(extract(fifo), "invalidInput: " + fifo.string() + " is not a file");
  EXPECT_EQ(extract(dangling), "notFound: " + dangling.string() + " does not exist");
  EXPECT_EQ(extract(scratch.path() / (std::string(300, 'x') + ".zip")).substr(0, 19), "io: Failed to open ");
}

TEST_F(ArchiveTest, WhatStandsAtTheDestinationStays) {
  const auto archive = write("skill.zip", zipArchive({{"SKILL.md", "new"}}));
  const auto taken = scratch.path() / "taken";
  fs::create_directory(taken);
  std::ofstream(taken / "SKILL.md") << "old";
  EXPECT_THROW(Archive::extract(archive, taken), SkillsError);
  EXPECT_EQ(FS::readText(taken / "SKILL.md", 10), "old");
}

TEST_F(ArchiveTest, TheUsersOptionsForUnzipDoNotApply) {
  ::setenv("UNZIP", "-j -L", 1);
  EXPECT_EQ(extract(write("skill.zip", zipArchive({{"a/SKILL.md", "x"}}))), "");
  ::unsetenv("UNZIP");
  EXPECT_TRUE(fs::exists(destination / "a" / "SKILL.md"));
}

TEST_F(ArchiveTest, StrippingRemovesLinksAndNothingBehindThem) {
  const auto outside = scratch.path() / "outside";
  const auto tree = scratch.path() / "tree";
  fs::create_directories(outside);
  fs::create_directories(tree / "deep" / "er");
  std::ofstream(outside / "kept") << "kept";
  fs::create_directory_symlink(outside, tree / "to-folder");
  fs::create_symlink(outside / "kept", tree / "deep" / "to-file");
  fs::create_symlink("..", tree / "deep" / "er" / "loop");
  fs::create_symlink("/no/such/thing", tree / "deep" / "er" / "dangling");

  Archive::stripSymlinks(tree);
  EXPECT_EQ(FS::children(tree), std::vector<fs::path>{tree / "deep"});
  EXPECT_EQ(FS::children(tree / "deep"), std::vector<fs::path>{tree / "deep" / "er"});
  EXPECT_TRUE(fs::is_empty(tree / "deep" / "er"));
  EXPECT_EQ(FS::readText(outside / "kept", 10), "kept");
}

}  // namespace
}  // namespace orvanta
