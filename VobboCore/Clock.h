#pragma once
// Time helpers. Times are milliseconds since 1970 (UTC) in a double throughout
// the app. Nothing here reads the time zone of the process: a zone is passed in
// wherever local time matters.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace date {
class time_zone;
}

namespace vobbo {

struct Clock {
  // The current time.
  static double now();

  // Reads ISO 8601 text: a date "YYYY-MM-DD", "T" (or one space), a time
  // "HH:MM:SS" with an optional fraction of any length, and an optional zone
  // ("Z", "+HH:MM", "+HHMM" or "+HH"). Without a zone the time is taken as UTC.
  // Yields nothing for anything else, including out-of-range fields.
  static std::optional<double> parseISO(std::string_view text);

  // The UTC text of a moment with milliseconds, "2026-11-24T09:05:00.250Z": the
  // form records carry for their created and updated times. The milliseconds
  // are floored, so text never names a moment that has not yet come.
  // parseISO reads it back to the same millisecond.
  static std::string iso(double ms);

  // Reads the start time that `ps -o lstart` prints ("Sat Nov 21 15:41:36 2026",
  // the weekday optional), a wall time in the given zone.
  static std::optional<double> parseLstart(std::string_view text, const date::time_zone& zone);

  // Days from 1970-01-01 to the given proleptic Gregorian date (negative before).
  static int64_t daysFromCivil(int64_t year, unsigned month, unsigned day);
};

}  // namespace vobbo
