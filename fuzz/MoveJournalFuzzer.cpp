// The note that a library on its way to another folder leaves behind, which anybody may have written.

#include "engine/MoveJournal.h"
#include "fuzz/Fuzzing.h"

namespace {

using namespace orvanta;  // NOLINT(google-build-using-namespace)
using fuzzing::require;

void requireUsable(const std::filesystem::path& path, const Paths& base) {
  require(path.is_absolute() && standardized(path) == path && path != base.base());
  require(path.string().find('\0') == std::string::npos);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Paths base(fuzzing::scratchFolder());
  fuzzing::writeFile(base.moveJournal(), fuzzing::textOf(data, size));
  const auto departure = MoveJournal::departure(base);
  const auto arrival = MoveJournal::arrival(base);
  if (departure) {
    requireUsable(departure->to, base);
    require(departure->createdFolders >= 0);
    MoveJournal::write(base, *departure);
    const auto again = MoveJournal::departure(base);
    require(again && again->to == departure->to && again->createdFolders == departure->createdFolders);
    require(again->moved == departure->moved);
  }
  if (arrival) {
    requireUsable(arrival->from, base);
    MoveJournal::write(base, *arrival);
    const auto again = MoveJournal::arrival(base);
    require(again && again->from == arrival->from && again->renames == arrival->renames);
    require(again->moved == arrival->moved);
  }
  return 0;
}
