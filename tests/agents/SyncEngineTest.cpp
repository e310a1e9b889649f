#include "agents/SyncEngine.h"

#include <sys/stat.h>
#include <unistd.h>

#include "foundations/Uuid.h"
#include "tests/support/Sandbox.h"

namespace orvanta {
namespace {

namespace fs = std::filesystem;
using Kind = SkillsError::Kind;

class SyncEngineTest : public Sandbox {
 protected:
  // Everything that may stand at a target, by what the system may take it for.
  struct Situation {
    std::string name;
    TargetState state;
    std::function<void(const Path&)> make;
  };

  std::string before() const { return folderAsText(agent) + folderAsText(source) + folderAsText(precious); }

  const Path source = skillFolder(root / "library" / "skill", {{"run", "new"}});
  const Path precious = folder(root / "precious", {{"work", "of years"}});
  const Path agent = folder(root / "agent", {});
  const Path target = agent / "skill";
  const std::vector<Situation> situations{
      {"nothing", TargetState::absent, [](const Path&) {}},
      {"our link", TargetState::linkToSource, [&](const Path& at) { fs::create_symlink(source, at); }},
      {"our link, relative", TargetState::linkToSource,
       [&](const Path& at) { fs::create_symlink("../library/./skill/", at); }},
      {"a link to a link to ours", TargetState::linkToSource,
       [&](const Path& at) {
         if (!fs::is_symlink(root / "alias")) fs::create_symlink(root / "library", root / "alias");
         fs::create_symlink(root / "alias" / "skill", at);
       }},
      {"a link elsewhere", TargetState::foreignLink, [&](const Path& at) { fs::create_symlink(precious, at); }},
      {"a dangling link", TargetState::foreignLink, [](const Path& at) { fs::create_symlink("nowhere", at); }},
      {"a link to itself", TargetState::foreignLink, [](const Path& at) { fs::create_symlink(at.filename(), at); }},
      {"a folder", TargetState::realDir,
       [](const Path& at) {
         folder(at, {{"notes/mine", "precious"}});
       }},
      {"a file", TargetState::realFile, [](const Path& at) { write(at, "precious"); }},
      {"a fifo", TargetState::realFile, [](const Path& at) { ASSERT_EQ(::mkfifo(at.c_str(), 0600), 0); }}};
};

TEST_F(SyncEngineTest, NothingIsReplacedThatThePolicyDoesNotCover) {
  const std::string mismatch = "does not match its recorded deployment";
  const std::string unmanaged = "is not managed by Orvanta";
  struct Row {
    TargetState state;
    std::array<std::string, 4> refusals;  // by policy; empty: allowed
  };
  const std::array policies{ReplacePolicy::recorded(SyncMode::symlink), ReplacePolicy::recorded(SyncMode::copy),
                            ReplacePolicy::noClobber(), ReplacePolicy::userConfirmed()};
  const std::vector<Row> table{{TargetState::absent, {}},
                               {TargetState::linkToSource, {}},
                               {TargetState::foreignLink, {"", mismatch, unmanaged, ""}},
                               {TargetState::realDir, {mismatch, "", unmanaged, ""}},
                               {TargetState::realFile, {mismatch, mismatch, unmanaged, ""}}};
  for (const auto& situation : situations) {
    const auto& row = *std::find_if(table.begin(), table.end(), [&](auto& r) { return r.state == situation.state; });
    for (std::size_t policy = 0; policy < policies.size(); ++policy) {
      for (const SyncMode mode : kAllSyncModes) {
        SCOPED_TRACE(situation.name + ", policy " + std::to_string(policy) + ", " + std::string(rawValue(mode)));
        situation.make(target);
        const std::string was = before();
        const std::string touches = touchesAsText(agent);
        EXPECT_EQ(SyncEngine::classifyTarget(source, target), situation.state);
        // A link that is right already is right under every policy.
        const bool isRight = mode == SyncMode::symlink && situation.state == TargetState::linkToSource;
        if (row.refusals[policy].empty() || isRight) {
          EXPECT_EQ(SyncEngine::authorizeReplacement(source, target, policies[policy]), situation.state);
          EXPECT_EQ(SyncEngine::syncSkill(source, target, mode, policies[policy]), mode);
          EXPECT_EQ(SyncEngine::symlinkPointsTo(target, source), mode == SyncMode::symlink);
          EXPECT_EQ(read(target / "run"), "new");
          EXPECT_EQ(FS::children(agent).size(), 1U) << "no stage stays";
          EXPECT_EQ(touchesAsText(agent) == touches, isRight) << "only what is wrong is touched";
        } else {
          const SkillsError refusal =
              SkillsError::refused("Refusing to replace \"" + target.string() + "\": it " + row.refusals[policy] +
                                   ". The existing content was left untouched — import it into the library, or move it "
                                   "aside, and try again.");
          EXPECT_EQ(errorOf([&] { SyncEngine::authorizeReplacement(source, target, policies[policy]); }), refusal);
          EXPECT_EQ(errorOf([&] { SyncEngine::syncSkill(source, target, mode, policies[policy]); }), refusal);
          EXPECT_EQ(before(), was);
        }
        EXPECT_EQ(read(precious / "work"), "of years");
        fs::remove_all(target);
      }
    }
  }
}

TEST_F(SyncEngineTest, OnlyWhatMatchesItsRecordIsRemoved) {
  for (const auto& situation : situations) {
    for (const SyncMode mode : kAllSyncModes) {
      SCOPED_TRACE(situation.name + ", recorded as " + std::string(rawValue(mode)));
      situation.make(target);
      const std::string was = before();
      const bool isLink = fs::is_symlink(fs::symlink_status(target));
      const bool matches = mode == SyncMode::symlink ? isLink : situation.state == TargetState::realDir;
      EXPECT_EQ(SyncEngine::matchesRecordedDeployment(target, mode), matches);
      EXPECT_EQ(SyncEngine::removeRecordedTarget(target, mode), matches || situation.state == TargetState::absent);
      if (matches) {
        EXPECT_TRUE(fs::is_empty(agent));
      } else {
        EXPECT_EQ(before(), was);
      }
      EXPECT_EQ(read(precious / "work") + read(source / "run"), "of yearsnew");
      fs::remove_all(target);
    }
  }
}

TEST_F(SyncEngineTest, ATargetInsideTheSkillIsRefusedBeforeAnythingGoes) {
  fs::create_directory_symlink(source, root / "alias");
  folder(source / "nested", {{"x", ""}});
  const std::string was = before();
  for (const auto& inside : {source / "nested", source / "new" / "deep", root / "alias" / "nested", source}) {
    for (const SyncMode mode : kAllSyncModes) {
      EXPECT_EQ(
          errorOf([&] { SyncEngine::syncSkill(source, inside, mode, ReplacePolicy::userConfirmed()); }),
          SkillsError::invalidInput("Destination " + inside.string() + " is inside the source " + source.string()));
    }
  }
  EXPECT_EQ(before(), was);
}

TEST_F(SyncEngineTest, ACopyIsCurrentOnlyWhenTheLibraryIsKnownToBeUnchanged) {
  const auto current = [&](SyncMode mode, const std::optional<std::string>& then,
                           const std::optional<std::string>& now) {
    return SyncEngine::isTargetCurrent(source, target, mode, then, now);
  };
  EXPECT_FALSE(current(SyncMode::copy, "a", "a")) << "nothing stands there";
  folder(target, {});
  EXPECT_TRUE(current(SyncMode::copy, "a", "a"));
  EXPECT_FALSE(current(SyncMode::copy, "a", "b") || current(SyncMode::copy, {}, {}) ||
               current(SyncMode::symlink, "a", "a"));
}

TargetChange made(TargetChange change) {
  change.make();
  return change;
}

TEST_F(SyncEngineTest, AChangeIsTakenBackUntilItIsKept) {
  SyncEngine::FolderResolver resolver;
  for (const auto& situation : situations) {
    for (const SyncMode mode : kAllSyncModes) {
      SCOPED_TRACE(situation.name + ", " + std::string(rawValue(mode)));
      situation.make(target);
      const std::string was = before();
      { const auto change = made(SyncEngine::prepare(source, target, mode, ReplacePolicy::userConfirmed(), resolver)); }
      EXPECT_EQ(before(), was);
      if (situation.state != TargetState::absent) {
        { const auto change = made(TargetChange::removal(target, FS::kind(target))); }
        EXPECT_EQ(before(), was);
      }
      auto change = made(SyncEngine::prepare(source, target, mode, ReplacePolicy::userConfirmed(), resolver));
      TargetChange other = std::move(change);
      other.keep();
      change = std::move(other);
      EXPECT_EQ(FS::children(agent), std::vector{target});
      EXPECT_EQ(read(target / "run"), "new");
      fs::remove_all(target);
    }
  }
}

TEST_F(SyncEngineTest, WhatSomebodyElsePutThereMeanwhileIsNeverRemoved) {
  // Between looking and acting.
  for (const auto& situation : situations) {
    for (const auto expected : {FS::Kind::absent, FS::Kind::symlink, FS::Kind::directory, FS::Kind::file}) {
      SCOPED_TRACE(situation.name + " instead of kind " + std::to_string(static_cast<int>(expected)));
      situation.make(target);
      const std::string was = before();
      if (FS::kind(target) != expected && situation.state != TargetState::absent) {
        errorOf([&] { made(TargetChange::link(source, target, expected)); });
        errorOf([&] { made(TargetChange::copy(source, target, expected)); });
        errorOf([&] { made(TargetChange::removal(target, expected)); });
        EXPECT_EQ(before(), was);
      }
      fs::remove_all(target);
    }
  }
  write(target, "file");
  const std::string refusing = "Refusing to remove " + target.string();
  EXPECT_EQ(errorOf([&] { SyncEngine::removeClassifiedTarget(target, TargetState::foreignLink); }),
            SkillsError::refused(refusing + ": expected a link but found a real file or directory"));
  EXPECT_EQ(errorOf([&] { SyncEngine::removeClassifiedTarget(target, TargetState::realDir); }),
            SkillsError::refused(refusing + ": it is no longer a directory"));
  fs::remove(target);
  // Between acting and taking back.
  for (const bool replaces : {false, true}) {
    for (const SyncMode mode : kAllSyncModes) {
      if (replaces) folder(target, {{"old", ""}});
      {
        SyncEngine::FolderResolver resolver;
        const auto change = made(SyncEngine::prepare(source, target, mode, ReplacePolicy::userConfirmed(), resolver));
        fs::remove_all(target);
        folder(target, {{"somebody else's", "work"}});
      }
      EXPECT_NE(folderAsText(agent).find("somebody else's"), std::string::npos) << replaces << rawValue(mode);
      fs::remove_all(agent);
      fs::create_directory(agent);
    }
  }
}

TEST_F(SyncEngineTest, WhatAnEndedProcessLeftIsSweptUpAndNothingElse) {
  OtherProcess worker([&](const auto& waitForTheEnd) {
    const auto one = TargetChange::copy(source, target, FS::Kind::absent);
    const auto another = TargetChange::copy(source, agent / "another", FS::Kind::absent);
    waitForTheEnd();
  });
  EXPECT_EQ(FS::children(agent).size(), 3U) << "one lock for both";
  const std::string prefix = ".orvanta-stage-";
  for (const auto& other : {prefix, prefix + "notes", prefix + "1-" + newUuid(), prefix + newUuid(),
                            prefix + newUuid() + "-x", prefix + "old-" + newUuid() + "-1", std::string("mine")}) {
    write(agent / other, "");
  }
  sweepStages(agent);
  EXPECT_EQ(FS::children(agent).size(), 10U);
  worker.kill();
  sweepStages(agent);
  EXPECT_EQ(FS::children(agent).size(), 7U);
}

}  // namespace
}  // namespace orvanta
