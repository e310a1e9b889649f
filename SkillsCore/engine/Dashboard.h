#pragma once

#include "engine/Library.h"

namespace orvanta {

// The figures of the whole library, counted by the database; the size is read from the disk on all cores.
DashboardStats dashboardStats(Library& library);

}  // namespace orvanta
