#pragma once

// One change of what stands at a path in an agent's folder, that can be taken back until it is kept. So records and
// files agree: the files are changed, the records are written, and only then is what stood there before given up.
//
// New content is made complete under a staging name beside the target and exchanged with what stands there; what stood
// there waits under the staging name. What a change takes the place of is looked at once more after it was moved aside:
// if it is not what was expected, it is put back and the change is refused, so that nothing is removed by mistake.

#include <filesystem>
#include <functional>
#include <string>

#include "files/FS.h"

namespace orvanta {

class TargetChange {
 public:
  // No change at all.
  TargetChange() = default;

  // Puts a link to `source` at `target`, in place of an object of kind `expected` (`absent`: of nothing).
  static TargetChange putLink(const std::filesystem::path& source, const std::filesystem::path& target,
                              FS::Kind expected);
  // Puts a copy of the tree `source` at `target` in the same way.
  static TargetChange putCopy(const std::filesystem::path& source, const std::filesystem::path& target,
                              FS::Kind expected);
  // Takes away what stands at `target`.
  static TargetChange takeAway(const std::filesystem::path& target, FS::Kind expected);
  // All three throw `refused` when something else than expected stands there, `io` otherwise; the target is then as it
  // was.

  TargetChange(TargetChange&& other) noexcept;
  TargetChange& operator=(TargetChange&& other) noexcept;
  TargetChange(const TargetChange&) = delete;
  TargetChange& operator=(const TargetChange&) = delete;
  // Takes the change back unless it was kept. What somebody else put at the target meanwhile stays; what stood there
  // before the change is then left beside it under a name of its own.
  ~TargetChange();

  // Makes the change final and removes what stood there before. What cannot be removed stays under its staging name and
  // is swept up by a later change in the same folder.
  void keep() noexcept;

  // The same, but throws `io` when what stood there before cannot be removed.
  void finish();

 private:
  enum class Kind { none, placed, exchanged, takenAway };
  using Make = std::function<void(const std::filesystem::path&)>;

  TargetChange(Kind kind, std::filesystem::path target, std::filesystem::path stage, const FS::Identity& placed)
      : kind_(kind), target_(std::move(target)), stage_(std::move(stage)), placed_(placed) {}

  static TargetChange exchangeFor(const std::filesystem::path& target, FS::Kind expected, const Make& make);
  void takeBack();
  void takeBackPlaced();
  void takeBackExchanged();
  void keepAside() noexcept;

  Kind kind_ = Kind::none;
  std::filesystem::path target_;
  std::filesystem::path stage_;
  FS::Identity placed_;  // what was put at the target
};

// Removes what changes of processes that have ended left in a folder under staging names.
void sweepStages(const std::filesystem::path& folder);

}  // namespace orvanta
