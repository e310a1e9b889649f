#include "agents/ChangeJournal.h"

#include <unistd.h>

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
      ChangeJournal journal{.id = "id", .notes = {}};
      for (const auto& change : changes) journal.notes.push_back(change.note());
      journal.write(file);
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
      const auto journal = ChangeJournal::read(file);
      for (const auto& note : journal->notes) TargetChange::takeBack(note);
      EXPECT_EQ(folderAsText(agent), before);
    }
  }
  interrupted(5);
  const auto journal = ChangeJournal::read(file);
  for (const auto& note : journal->notes) TargetChange::finish(note);
  EXPECT_EQ(folderAsText(agent), after);
}

TEST_F(ChangeJournalTest, ATextThatWasCutOffOrMadeUpMovesNothingElse) {
  givenAgent();
  interrupted(0);
  const std::string text = read(file);
  for (std::size_t length = 0; length < text.size(); ++length) {
    write(file, text.substr(0, length));
    EXPECT_LT(ChangeJournal::read(file)->notes.size(), 5U) << length;
  }
  write(file, text);
  EXPECT_EQ(ChangeJournal::read(file)->id, "id");
  EXPECT_EQ(ChangeJournal::read(file)->notes.size(), 5U);

  const std::string stage = fmt::format("{}1-{}", Scanner::kStagePrefix, newUuid());
  const auto notesOf = [&](const TargetChange::Note& note) {
    ChangeJournal{.id = "id", .notes = {note}}.write(file);
    return ChangeJournal::read(file)->notes.size();
  };
  EXPECT_EQ(notesOf({.kind = Kind::takenAway, .target = agent / "a", .stage = agent / stage}), 1U);
  EXPECT_EQ(notesOf({.kind = Kind::takenAway, .target = agent / "a", .stage = agent / "copy"}), 0U);
  EXPECT_EQ(notesOf({.kind = Kind::takenAway, .target = agent / "a", .stage = root / stage}), 0U);
  EXPECT_EQ(notesOf({.kind = Kind::takenAway, .target = "a", .stage = stage}), 0U);
  EXPECT_EQ(notesOf({.kind = Kind::placedLink, .target = agent / "a", .stage = agent / stage, .linkTo = source}), 0U);
  EXPECT_FALSE(ChangeJournal::read(root / "none").has_value());
}

}  // namespace
}  // namespace orvanta
