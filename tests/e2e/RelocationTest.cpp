// Moving the library, by the words of the command line alone.

#include "files/FS.h"
#include "tests/e2e/Program.h"

namespace orvanta {

namespace fs = std::filesystem;

using testing::HasSubstr;

class Relocation : public Program {
 protected:
  Relocation() { environment.erase("ORVANTA_HOME"); }
};

TEST_F(Relocation, ThereAndBackAsAUserDoesIt) {
  const Path old = home / ".orvanta";
  agentInstalled("cursor");
  for (const auto* skill : {"pdf", "csv"}) skillFolder(home / "all" / skill);
  EXPECT_EQ(orvanta({"install", "all", "--all", "--to", "cursor"}).status, 0);
  const Path place = home / "Sync/orvanta";
  EXPECT_EQ(json({"library", "move", "Sync/orvanta", "--dry-run"}).size(), 7U);
  EXPECT_EQ(orvanta({"library", "move", "all"}).status, 1);
  EXPECT_THAT(orvanta({"library", "move", "Sync/orvanta"}).out, HasSubstr("is at ~/Sync/orvanta now. 2 links"));
  EXPECT_EQ(json({"library", "path"}), Json({{"path", place.string()}, {"relocated", true}}));
  fs::remove(home / ".cursor/skills/pdf");
  agentHas("cursor", "pdf");
  FS::removeAny(home / "new");
  const Outcome partly = orvanta({"--json", "library", "move", "new"});
  EXPECT_EQ(partly.status, 3);
  const Json report = Json::parse(partly.out);
  EXPECT_EQ(report["relinked"], 1);
  EXPECT_EQ(report["errors"].size(), 1U);
  EXPECT_EQ(report["path"], (home / "new").string());
  EXPECT_EQ(json({"library", "reset"})["path"], old.string());
  EXPECT_THAT(orvanta({"library", "reset"}).out, HasSubstr("already"));
  EXPECT_THAT(orvanta({"--library", old.string(), "library", "move", "named"}).err, HasSubstr("--library named"));
  // The disk with the library is gone.
  fs::rename(home / "named", home / "gone");
  EXPECT_EQ(json({"library", "reset", "--dry-run"}).size(), 0U);
  EXPECT_EQ(json({"library", "path"})["path"], (home / "named").string());
  EXPECT_THAT(orvanta({"library", "reset"}).out, HasSubstr("There is no library at ~/named"));
  EXPECT_EQ(json({"library", "path"}), Json({{"path", old.string()}, {"relocated", false}}));
  EXPECT_FALSE(fs::exists(home / "named"));
}

}  // namespace orvanta
