#pragma once

// Replacing a skill's folder in the library as a whole. The old content stands until the new is complete beside it,
// then the two change places in one step; it comes back unless the change is kept, and the next opening of the library
// clears up after a process that was killed in between.

#include <filesystem>

namespace orvanta {

class CentralSwap {
 public:
  // Puts the folder `staged` in the place of `central`, or there where nothing stands; `staged` is used up. Throws `io`
  // with `central` as it was.
  CentralSwap(const std::filesystem::path& staged, const std::filesystem::path& central);
  // Takes the change back; when it was kept, the old content goes.
  ~CentralSwap();
  CentralSwap(const CentralSwap&) = delete;
  CentralSwap& operator=(const CentralSwap&) = delete;

  // What stood there before, where anything did.
  [[nodiscard]] const std::filesystem::path& replaced() const { return aside_; }

  // Until this goes, the old content tells a later start that what follows from the change may be unfinished.
  void keep() noexcept { kept_ = true; }

 private:
  void takeBack() noexcept;

  const std::filesystem::path central_;
  const std::filesystem::path aside_;
  bool replaced_ = false;  // the old content waits at `aside_`
  bool kept_ = false;
};

}  // namespace orvanta
