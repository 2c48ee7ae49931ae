#pragma once
// How the commands that deal in local time take the time zone and the current
// time: `--tz ZONE` and `--now TIME`, read the same way everywhere, so tests and
// scripts can pin both.

#include <CLI/CLI.hpp>
#include <string>
#include <string_view>

#include "Platform.h"
#include "Result.h"

namespace date {
class time_zone;
}

namespace quibly {

struct ClockOptions {
  std::string now;  // empty: the current time
  std::string tz;   // empty: $TZ, then the system's zone
};

// Adds --now and --tz to a command, storing into `options`.
void addClockOptions(CLI::App& command, ClockOptions& options);

// --tz when given (a sentence when it names no zone), else $TZ when it names a
// zone, else the system's zone, else UTC.
vobbo::Result<const date::time_zone*> zoneFor(const ClockOptions& options,
                                              const vobbo::Platform::Env& env);

// --now as people write ISO 8601 ("2026-11-21", "2026-11-21T10:00",
// "2026-11-21T10:00:30.5"), optionally followed by Z or an offset such as
// +05:30; without one it is a wall time in `zone`. Empty: the current time.
// Milliseconds since 1970. Fails with a sentence for text it cannot read and
// for years outside 1970 to 2200.
vobbo::Result<double> nowFor(const ClockOptions& options, const date::time_zone& zone);

}  // namespace quibly
