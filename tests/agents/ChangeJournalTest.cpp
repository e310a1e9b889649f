#include "agents/ChangeJournal.h"

#include <sys/stat.h>

#include <fmt/format.h>

#include "content/Scanner.h"
#include "foundations/Uuid.h"
#include "tests/support/Sandbox.h"

namespace orvanta {
namespace {

namespace fs = std::filesystem;

using Kind = TargetChange::Kind;

class ChangeJournalTest : public Sandbox {
 protected:
  // Everything an agent can hold, and each change of it.
  void givenAgent() {
    fs::remove_all(agent);
    folder(agent / "copy", {{"old", ""}});
    folder(agent / "exchanged\n\xff", {{"old", ""}});
    folder(agent / "removed", {{"old", ""}});
  }
  std::vector<TargetChange> prepared() const {
    std::vector<TargetChange> changes;
    changes.push_back(TargetChange::link(source, agent / "link", FS::Kind::absent));
    changes.push_back(TargetChange::copy(source, agent / "new", FS::Kind::absent));
    changes.push_back(TargetChange::copy(source, agent / "copy", FS::Kind::directory));
    changes.push_back(TargetChange::link(source, agent / "exchanged\n\xff", FS::Kind::directory));
    changes.push_back(TargetChange::removal(agent / "removed", FS::Kind::directory));
    return changes;
  }
  // By a process that is killed after the first `made` of the changes.
  void interrupted(std::size_t made) {
    OtherProcess worker([&](const auto& waitForTheEnd) {
      auto changes = prepared();
      ChangeJournal::Notes notes;
      for (const auto& change : changes) notes.push_back(change.note());
      ChangeJournal::rewrite(file, {});
      ChangeJournal::append(file, notes);
      for (std::size_t i = 0; i < made; ++i) changes[i].make();
      waitForTheEnd();
    });
  }

  const Path source = folder(root / "source", {{"file", "new"}});
  const Path agent = folder(root / "agent", {});
  const Path file = root / "journal";
};

TEST_F(ChangeJournalTest, WhatAKilledProcessLeftIsTakenBackOrClearedUp) {
  givenAgent();
  const std::string before = folderAsText(agent);
  for (auto& change : prepared()) {
    change.make();
    change.keep();
  }
  const std::string after = folderAsText(agent);
  for (std::size_t made = 0; made <= 5; ++made) {
    SCOPED_TRACE(made);
    givenAgent();
    interrupted(made);
    for (int again = 0; again < 2; ++again) {  // healing can be killed as well
      for (const auto& note : ChangeJournal::read(file)) TargetChange::takeBack(note);
      sweepStages(agent);
      EXPECT_EQ(folderAsText(agent), before);
    }
  }
  interrupted(5);
  for (const auto& note : ChangeJournal::read(file)) TargetChange::finish(note);
  EXPECT_EQ(folderAsText(agent), after);
}

TEST_F(ChangeJournalTest, WhatIsNotWhatWasNotedStaysForItsOwner) {
  givenAgent();
  interrupted(5);
  const auto notes = ChangeJournal::read(file);
  const Path aside = notes.at(4).stage;  // of what was removed
  fs::rename(folder(root / "other", {{"mine", ""}}), agent / "other");
  fs::remove_all(aside);
  fs::rename(agent / "other", aside);
  fs::remove_all(agent / "new");
  folder(agent / "new", {{"mine", ""}});
  for (const auto& note : notes) TargetChange::finish(note);
  EXPECT_TRUE(FS::exists(agent / "new/mine"));
  EXPECT_FALSE(FS::exists(aside));
  const auto names = FS::childNames(agent);
  EXPECT_THAT(names, testing::Contains(testing::StartsWith("removed-before-")));
  for (const auto& note : notes) TargetChange::takeBack(note);
  EXPECT_TRUE(FS::exists(agent / "new/mine"));
}

TEST_F(ChangeJournalTest, TakingBackThatWasKilledWhileItRemovedGoesOn) {
  givenAgent();
  const std::string before = folderAsText(agent);
  interrupted(5);
  const auto notes = ChangeJournal::read(file);
  fs::rename(agent / "new", asideOf(notes.at(1).stage));
  fs::remove(asideOf(notes.at(1).stage) / "file");
  FS::exchange(notes.at(2).stage, agent / "copy");
  fs::remove(notes.at(2).stage / "file");
  for (const auto& note : notes) TargetChange::takeBack(note);
  EXPECT_EQ(folderAsText(agent), before);
}

TEST_F(ChangeJournalTest, WhatSomebodyWroteIntoNewContentIsNotTakenBackWithIt) {
  givenAgent();
  interrupted(5);
  for (const auto* name : {"new", "copy"}) write(agent / name / "file", "edited");
  for (const auto& note : ChangeJournal::read(file)) TargetChange::takeBack(note);
  EXPECT_EQ(read(agent / "new/file") + read(agent / "copy/file"), "editededited");
  EXPECT_THAT(FS::childNames(agent), testing::Contains(testing::StartsWith("copy-before-")));
  EXPECT_TRUE(FS::exists(agent / "removed/old"));
}

TEST_F(ChangeJournalTest, AnExchangeInThreeRenamesIsCompleted) {
  for (const int done : {1, 2}) {
    givenAgent();
    interrupted(0);
    const auto note = ChangeJournal::read(file).at(2);
    fs::rename(stageOf(note.stage), note.stage);
    fs::rename(note.target, note.stage.string() + "-exchange");
    if (done == 2) fs::rename(note.stage, note.target);
    TargetChange::takeBack(note);
    EXPECT_TRUE(FS::exists(agent / "copy/old")) << done;
    EXPECT_FALSE(FS::exists(agent / "copy/file")) << done;
    EXPECT_FALSE(FS::exists(note.stage) || FS::exists(note.stage.string() + "-exchange")) << done;
  }
}

TEST_F(ChangeJournalTest, ATextThatWasCutOffOrMadeUpMovesNothingElse) {
  givenAgent();
  interrupted(0);
  const std::string text = read(file);
  for (std::size_t length = 0; length < text.size(); ++length) {
    write(file, text.substr(0, length));
    EXPECT_LT(ChangeJournal::read(file).size(), 5U) << length;
  }
  write(file, text);
  EXPECT_EQ(ChangeJournal::read(file).size(), 5U);
  ::chmod(file.c_str(), 0666);
  EXPECT_TRUE(ChangeJournal::read(file).empty()) << "others can write it";
  EXPECT_THAT(errorOf([&] { ChangeJournal::requireOwn(file); }), IsError(SkillsError::Kind::io, "not this user's own"));

  const std::string stage = fmt::format("{}old-{}-1", Scanner::kStagePrefix, newUuid());
  const auto notesOf = [&](const TargetChange::Note& note) {
    ChangeJournal::rewrite(file, {note});
    return ChangeJournal::read(file).size();
  };
  EXPECT_EQ(notesOf({.kind = Kind::takenAway, .target = agent / "a", .stage = agent / stage}), 1U);
  EXPECT_EQ(notesOf({.kind = Kind::takenAway, .target = agent / "a", .stage = agent / "copy"}), 0U);
  EXPECT_EQ(notesOf({.kind = Kind::takenAway, .target = agent / "a", .stage = root / stage}), 0U);
  EXPECT_EQ(notesOf({.kind = Kind::takenAway, .target = "a", .stage = stage}), 0U);
  EXPECT_EQ(notesOf({.kind = Kind::placedLink, .target = agent / "a", .stage = agent / stage, .linkTo = "source"}), 0U);
  EXPECT_TRUE(ChangeJournal::read(root / "none").empty());
}

}  // namespace
}  // namespace orvanta
