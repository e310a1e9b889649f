#pragma once

// One change of what stands at a path in an agent's folder, or of a whole skill in the library, that can be taken back
// until it is kept. So records and files agree: the files are changed, the records are written, and only then is what
// stood there before given up.
//
// A change is prepared first: new content is made complete under a staging name beside the target, and nobody sees it.
// Making the change is one rename: the new content takes the name, or exchanges it with what stands there, which then
// waits aside, under another name that nobody sweeps up. What a change takes the place of is looked at once more after
// it was moved aside: if it is not what was expected, it is put back and the change is refused, so that nothing is
// removed by mistake.

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "agents/StagingNames.h"
#include "files/FS.h"

namespace orvanta {

class TargetChange {
 public:
  enum class Kind {
    none,
    placedLink,  // where nothing stood; made without a staging name
    placed,      // a copy, where nothing stood
    exchanged,   // something new, in the place of what stood there
    takenAway,
  };

  // What a change is about to do, for whoever finds it half done after a crash.
  struct Note {
    std::string operation = {};  // of which it is a part
    Kind kind = Kind::none;
    std::filesystem::path target = {};
    // Where a placed copy comes from, where what is replaced or removed waits, or where a placed link would go.
    std::filesystem::path stage = {};
    std::filesystem::path linkTo = {};  // of a placed link
    FS::Identity content = {};          // what is put at the target, where it was made beside it
    std::string contentStamp = {};      // `measureTree` of it, where it is a folder
    FS::Identity replaced = {};         // what stood there
  };

  // No change at all.
  TargetChange() = default;

  // Will put a link to `source` at `target`, in place of an object of kind `expected` (`absent`: of nothing).
  static TargetChange link(const std::filesystem::path& source, const std::filesystem::path& target, FS::Kind expected);
  // Will put a copy of the tree `source` at `target` in the same way.
  static TargetChange copy(const std::filesystem::path& source, const std::filesystem::path& target, FS::Kind expected);
  // Will put what is at `made`, on the same disk, at `target` in the same way. `made` is used up at once.
  static TargetChange move(const std::filesystem::path& made, const std::filesystem::path& target, FS::Kind expected);
  // Will take away what stands at `target`.
  static TargetChange removal(const std::filesystem::path& target, FS::Kind expected);
  // All but the last throw `io` with nothing left behind.

  TargetChange(TargetChange&& other) noexcept;
  TargetChange& operator=(TargetChange&& other) noexcept;
  TargetChange(const TargetChange&) = delete;
  TargetChange& operator=(const TargetChange&) = delete;
  // Takes the change back unless it was kept. What somebody else put at the target meanwhile stays; what stood there
  // before the change is then left beside it under a name of its own.
  ~TargetChange();

  // Throws `refused` when something else than expected stands there, `io` otherwise; the target is then as it was.
  void make();

  // Makes the change final and removes what stood there before. What cannot be removed stays where it waits.
  void keep() noexcept;

  // The same, but throws `io` when what stood there before cannot be removed.
  void finish();

  [[nodiscard]] bool isNone() const { return note_.kind == Kind::none; }
  [[nodiscard]] bool isMade() const { return isMade_; }
  [[nodiscard]] const Note& note() const { return note_; }

  // What was noted is taken back, however far it came.
  static void takeBack(const Note& note);
  // What was noted is final: what waits aside goes, if it is what was replaced.
  static void finish(const Note& note);
  // Both throw `io`; what is somebody else's gets a name of its own beside the target.

 private:
  // With content that `make` puts under the name it is given.
  static TargetChange withContent(const std::filesystem::path& target, FS::Kind expected,
                                  const std::function<void(const std::filesystem::path& place)>& make);
  TargetChange(Note note, FS::Kind expected) : note_(std::move(note)), expected_(expected) {}

  void moveAside();
  void undo() noexcept;

  Note note_;
  FS::Kind expected_ = FS::Kind::absent;
  bool isMade_ = false;
  std::shared_ptr<StagingLock> lock_;  // while the new content waits
};

}  // namespace orvanta
