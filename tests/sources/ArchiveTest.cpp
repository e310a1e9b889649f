#include "sources/Archive.h"

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <thread>

#include "files/FS.h"
#include "tests/sources/ZipBuilder.h"
#include "tests/support/Sandbox.h"

namespace orvanta {
namespace {

namespace fs = std::filesystem;

constexpr std::int64_t mebibyte = std::int64_t{1} << 20;

class ArchiveTest : public Sandbox {
 protected:
  [[nodiscard]] Path given(const std::string& name, const std::string& bytes) const {
    write(root / name, bytes);
    return root / name;
  }

  // The error of a failed extraction, "" for one that worked. A failed one must leave nothing behind.
  std::string extract(const Path& archive, const Archive::Limits& limits = {}, const std::stop_token& stop = {}) {
    const Path work = root / "work";
    FS::removeAny(work);
    fs::create_directory(work);
    try {
      Archive::extract(archive, destination, limits, stop);
    } catch (const SkillsError& error) {
      EXPECT_TRUE(fs::is_empty(work)) << error.message();
      return std::string(rawValue(error.kind())) + ": " + error.message();
    }
    EXPECT_EQ(FS::children(work).size(), 1U) << "only the unpacked folder stays";
    return "";
  }

  const Path destination = root / "work" / "extract";
};

TEST_F(ArchiveTest, AnArchiveUnpacksWithContentAndSafePermissions) {
  const std::string accented = "données/漢 字;1";
  const auto archive =
      given("skill.ZIP", zipArchive({{"SKILL.md", "old"},
                                     {"SKILL.md", "# Skill"},
                                     {"bin/run", "#!", S_IFREG | 07777},
                                     {"closed/", "", S_IFDIR | 0},
                                     {"closed/secret", "s", S_IFREG | 0},
                                     {.name = accented, .content = "u", .centralExtra = unicodeName(accented)},
                                     {"-rf", "dash"},
                                     {"a[b]*?", "pattern"},
                                     {"link", "bin/run", S_IFLNK | 0777}}));
  EXPECT_EQ(extract(archive), "");
  EXPECT_EQ(folderAsText(destination),
            ".: folder 0700\n-rf: file 0644 dash\nSKILL.md: file 0644 # Skill\na[b]*?: file 0644 pattern\n"
            "bin: folder 0755\nbin/run: file 0755 #!\nclosed: folder 0700\nclosed/secret: file 0600 s\n"
            "données: folder 0755\ndonnées/漢 字;1: file 0644 u\nlink: link -> bin/run\n");
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
    EXPECT_EQ(extract(given("form.skill", bytes)), "") << form;
    EXPECT_EQ(read(destination / "SKILL.md"), "# Skill") << form;
    EXPECT_EQ(read(destination / "a" / "b"), "x") << form;
  }
}

TEST_F(ArchiveTest, NamesBeyondASCIIStayWhatTheyAreWhereverTheyWerePacked) {
  const auto packedOnWindows = [](const std::string& name) { return ZipItem{.name = name, .mode = 0, .madeBy = 20}; };
  const auto slashes = given("slashes.zip", zipArchive({packedOnWindows("é/"), packedOnWindows("é/漢.md")}));
  fs::permissions(slashes, fs::perms::owner_read);
  EXPECT_EQ(extract(slashes), "");
  const std::string expected = ".: folder 0700\né: folder 0755\né/漢.md: file 0644 \n";
  EXPECT_EQ(folderAsText(destination), expected);

  EXPECT_EQ(extract(given("backslashes.zip", zipArchive({packedOnWindows("é\\漢.md")}))), "");
  EXPECT_EQ(folderAsText(destination), expected);
}

TEST_F(ArchiveTest, TheArchivesOwnNameIsNeverAnOptionOrPattern) {
  (void)given("a1.zip", zipArchive({{"SKILL.md", "wrong one"}}));
  for (const std::string name : {"-d.zip", "a[1].zip", "*.zip", "new\nline.zip", "x.skill"}) {
    EXPECT_EQ(extract(given(name, zipArchive({{"SKILL.md", name}}))), "") << name;
    EXPECT_EQ(read(destination / "SKILL.md"), name);
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
    const auto error = extract(given("hostile.zip", zipArchive(items)), {.maxBytes = mebibyte, .maxEntries = 5});
    EXPECT_TRUE(error.starts_with("invalidInput: The archive hostile.zip ")) << error;
    EXPECT_NE(error.find(fragment), std::string::npos) << fragment << "\n" << error;
  }
}

TEST_F(ArchiveTest, DamagedArchivesAreRefusedBeforeUnpacking) {
  const auto expectRefusal = [this](const std::string& bytes, const std::string& damage) {
    const auto error = extract(given("bad.zip", bytes));
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
      extract(given("text.zip", "not a zip at all")),
      "invalidInput: The archive text.zip is not a ZIP archive, or is damaged or cut short; get it again from its "
      "source");
}

TEST_F(ArchiveTest, LiesThatOnlyUnpackingRevealsAreCaught) {
  ZipItem bomb{.name = "bomb", .content = deflatedZeros(4 * mebibyte), .method = 8, .claimedSize = 10};
  EXPECT_EQ(extract(given("bomb.zip", zipArchive({bomb})), {.maxBytes = mebibyte}),
            "invalidInput: The archive bomb.zip unpacks to more than 1 MiB, the most that is unpacked");

  const std::vector<ZipItem> folders = {{"a/b/c/d/e/f"}, {"g/h/i/j/k"}};
  EXPECT_EQ(extract(given("folders.zip", zipArchive(folders)), {.maxEntries = 8}),
            "invalidInput: The archive folders.zip holds more than 8 files and folders, the most that are unpacked");

  auto corrupt = zipArchive({{"SKILL.md", "# Skill"}});
  corrupt[corrupt.find("# Skill")] = '!';
  const auto error = extract(given("corrupt.zip", corrupt));
  EXPECT_TRUE(error.starts_with("invalidInput: Failed to extract archive: ")) << error;
  EXPECT_NE(error.find("CRC"), std::string::npos) << error;

  const auto unknown = extract(given("unknown.zip", zipArchive({{"ok"}, {.name = "odd", .method = 97}})));
  EXPECT_TRUE(unknown.starts_with("invalidInput: Failed to extract archive: ")) << unknown;
}

TEST_F(ArchiveTest, ALongUnpackingEndsEarlyWithItsReason) {
  constexpr std::int64_t size = 3000 * mebibyte;
  const ZipItem bomb{.name = "bomb", .content = deflatedZeros(size), .method = 8, .claimedSize = 10};
  const auto archive = given("bomb.zip", zipArchive({bomb}));
  const auto before = fs::space(root).available;
  auto least = before;
  std::jthread observer([&](const std::stop_token& done) {
    while (!done.stop_requested()) {
      least = std::min(least, fs::space(root).available);
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
  });
  const auto overLimit = extract(archive, {.maxBytes = mebibyte});
  EXPECT_NE(overLimit.find("unpacks to more than 1 MiB"), std::string::npos) << overLimit;

  std::stop_source source;
  const std::jthread impatient([&source] {
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
  const Path folderName = folder(root / "folder.zip", {});
  const auto fifo = root / "fifo.skill";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  const auto dangling = root / "dangling.zip";
  fs::create_symlink("nowhere", dangling);

  EXPECT_EQ(extract(given("skill.tar.gz", "")), "invalidInput: Unsupported archive type .gz; expected .zip or .skill");
  EXPECT_EQ(extract(given("zip", "")), "invalidInput: Unsupported archive type .; expected .zip or .skill");
  EXPECT_EQ(extract(folderName), "invalidInput: " + folderName.string() + " is not a file");
  EXPECT_EQ(extract(fifo), "invalidInput: " + fifo.string() + " is not a file");
  EXPECT_EQ(extract(dangling), "notFound: " + dangling.string() + " does not exist");
  EXPECT_EQ(extract(root / (std::string(300, 'x') + ".zip")).substr(0, 19), "io: Failed to open ");
}

TEST_F(ArchiveTest, WhatStandsAtTheDestinationStays) {
  const auto archive = given("skill.zip", zipArchive({{"SKILL.md", "new"}}));
  const Path taken = folder(root / "taken", {{"SKILL.md", "old"}});
  EXPECT_THROW(Archive::extract(archive, taken), SkillsError);
  EXPECT_EQ(read(taken / "SKILL.md"), "old");
}

TEST_F(ArchiveTest, TheUsersOptionsForUnzipDoNotApply) {
  ::setenv("UNZIP", "-j -L", 1);
  EXPECT_EQ(extract(given("skill.zip", zipArchive({{"a/SKILL.md", "x"}}))), "");
  ::unsetenv("UNZIP");
  EXPECT_TRUE(fs::exists(destination / "a" / "SKILL.md"));
}

TEST_F(ArchiveTest, StrippingRemovesLinksAndNothingBehindThem) {
  const Path outside = folder(root / "outside", {{"kept", "kept"}});
  const Path tree = root / "tree";
  fs::create_directories(tree / "deep" / "er");
  fs::create_directory_symlink(outside, tree / "to-folder");
  fs::create_symlink(outside / "kept", tree / "deep" / "to-file");
  fs::create_symlink("..", tree / "deep" / "er" / "loop");
  fs::create_symlink("/no/such/thing", tree / "deep" / "er" / "dangling");

  Archive::stripSymlinks(tree);
  EXPECT_EQ(FS::children(tree), std::vector<fs::path>{tree / "deep"});
  EXPECT_EQ(FS::children(tree / "deep"), std::vector<fs::path>{tree / "deep" / "er"});
  EXPECT_TRUE(fs::is_empty(tree / "deep" / "er"));
  EXPECT_EQ(read(outside / "kept"), "kept");
}

}  // namespace
}  // namespace orvanta
