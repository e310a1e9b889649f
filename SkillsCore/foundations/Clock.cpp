#include "foundations/Clock.h"

#include <chrono>
#include <cmath>
#include <cstdlib>

#include <fmt/format.h>

namespace orvanta {

std::int64_t millisFromSeconds(double seconds) {
  const double millis = std::round(seconds * 1000.0);
  constexpr double kLimit = 9223372036854775808.0;  // 2^63, the first value that does not fit
  if (!(millis >= -kLimit && millis < kLimit)) std::abort();
  return static_cast<std::int64_t>(millis);
}

std::int64_t nowMillis() {
  const std::chrono::duration<double> sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  return millisFromSeconds(sinceEpoch.count());
}

std::string iso8601(std::int64_t millis) {
  const std::chrono::sys_time<std::chrono::milliseconds> instant{std::chrono::milliseconds(millis)};
  const auto day = std::chrono::floor<std::chrono::days>(instant);
  const std::chrono::year_month_day date{day};
  const std::chrono::hh_mm_ss time{std::chrono::floor<std::chrono::seconds>(instant - day)};
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z", static_cast<int>(date.year()),
                     static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()), time.hours().count(),
                     time.minutes().count(), time.seconds().count());
}

}  // namespace orvanta
