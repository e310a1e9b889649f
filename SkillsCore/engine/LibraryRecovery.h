#pragma once

// Puts right what a killed process left in the library: half-made installations go, folders set aside during a swap or
// a removal come back where nothing took their place.

#include "engine/Library.h"

namespace orvanta {

// The names under which folders of the library wait: until new content has taken their place, and until their record is
// gone. Skills on their way in wait in a StagingFolder.
inline constexpr std::string_view kReplacingPrefix = ".replacing-";
inline constexpr std::string_view kRemovingPrefix = ".removing-";
// The name of an empty folder that stands while a process has skills marked as being checked or updated.
inline constexpr std::string_view kUpdatingPrefix = ".updating-";

// Whether a name in the skills folder is that of something that waits, and no skill's.
bool isSetAside(std::string_view name);

// Does nothing while another process changes the library. Never throws: what cannot be put right now is tried again at
// the next opening.
void healLibrary(Library& library);

}  // namespace orvanta
