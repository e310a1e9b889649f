#pragma once

// The clock of the whole system: every stored time is a count of milliseconds since the Unix epoch.

#include <cstdint>
#include <string>

namespace orvanta {

// Seconds since the epoch as milliseconds, rounded to the nearest, halves away from zero.
// Terminates the process when the result does not fit, which no working clock can cause.
std::int64_t millisFromSeconds(double seconds);

std::int64_t nowMillis();

// ISO 8601 in UTC: "2026-01-31T12:00:00Z".
std::string iso8601(std::int64_t millis);

}  // namespace orvanta
