// Moving the library while others work in it, or with it.

#include <map>
#include <thread>

#include "agents/ChangeJournal.h"
#include "files/FS.h"
#include "sources/StagingFolder.h"
#include "tests/support/Sandbox.h"

namespace orvanta {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Kind = SkillsError::Kind;

class RelocationAtWorkTest : public Sandbox {};

TEST_F(RelocationAtWorkTest, WhoOpensTheLibraryWhileItMovesFindsItWhereItArrives) {
  installed("pdf");
  const Path place = root / "place";
  std::map<Path, Paths> found;
  std::jthread reader;
  const auto startReader = [&](const Progress&) {
    if (reader.joinable()) return;
    reader = std::jthread([&] {
      for (const auto& at : {paths.base(), place}) found.emplace(at, SkillsEngine(Paths(at), user).paths());
    });
    std::this_thread::sleep_for(200ms);
  };
  engine().relocateLibrary(place, {{}, startReader, {}});
  reader.join();
  EXPECT_EQ(found, (std::map<Path, Paths>{{paths.base(), Paths(place)}, {place, Paths(place)}}));
  EXPECT_FALSE(FS::exists(paths.base()));
}

TEST_F(RelocationAtWorkTest, WhoOpenedTheLibraryBeforeItMovedChangesNothingAfterwards) {
  const std::string id = installed("pdf");
  inAnotherProcess([&] { SkillsEngine(paths, user).relocateLibrary(root / "place", {}); });
  EXPECT_EQ(engine().skills().front().id, id);
  EXPECT_THAT(errorOf([&] { engine().updateSkillInfo(id, "new", {}); }), IsError(Kind::conflict, "moved or removed"));
  EXPECT_THAT(errorOf([&] { engine().exportAudit(); }), IsError(Kind::conflict, "moved or removed"));
  EXPECT_FALSE(FS::exists(paths.base()));
  // Another library may stand there by now.
  SkillsEngine another(paths, user);
  EXPECT_THAT(errorOf([&] { engine().updateSkillInfo(id, "new", {}); }), IsError(Kind::conflict, "moved or removed"));
  EXPECT_EQ(SkillsEngine(Paths(root / "place"), user).skills().front().name, "pdf");
}

TEST_F(RelocationAtWorkTest, ALibraryInWhichSomethingWorksStaysWhereItIs) {
  installed("pdf");
  {
    const StagingFolder staging(paths.skills());
    EXPECT_THAT(errorOf([&] { engine().relocateLibrary(root / "place", {}); }),
                IsError(Kind::conflict, "being installed or updated"));
  }
  // A change was cut short on a disk that is away.
  ChangeJournal::append(paths.changeJournal(), {{.operation = "deploy",
                                                 .kind = TargetChange::Kind::placedLink,
                                                 .target = home / "disk" / "pdf",
                                                 .stage = newAside(home / "disk" / "pdf"),
                                                 .linkTo = paths.skills() / "pdf"}});
  EXPECT_THAT(errorOf([&] { engine().relocateLibrary(root / "place", {}); }),
              IsError(Kind::conflict, "remove " + paths.changeJournal().string()));
  fs::create_directory(home / "disk");
  fs::rename(paths.cache(), home / "cache");
  fs::create_directory_symlink(home / "cache", paths.cache());
  EXPECT_THAT(errorOf([&] { engine().relocateLibrary(root / "place", {}); }), IsError(Kind::conflict, "not a folder"));
  EXPECT_FALSE(FS::exists(root / "place"));
}

}  // namespace
}  // namespace orvanta
