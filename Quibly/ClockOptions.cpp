#include "ClockOptions.h"

#include <date/tz.h>
#include <fmt/format.h>

#include <chrono>
#include <optional>

#include "Clock.h"
#include "JSRegex.h"
#include "TaskParse.h"

namespace quibly {

namespace {

const date::time_zone* findZone(std::string_view name) {
  try {
    return date::locate_zone(std::string(name));
  } catch (const std::exception&) {
    return nullptr;  // an unknown name, or no time zone database
  }
}

struct NowText {
  date::local_seconds wall;
  std::optional<std::chrono::minutes> offset;  // east of UTC
};

std::optional<NowText> readNow(std::string_view text) {
  static const vobbo::JSRegex kNow(R"(^([0-9]{4})-([0-9]{2})-([0-9]{2}))"
                                   R"((?:[Tt ]([0-9]{2}):([0-9]{2})(?::([0-9]{2})(?:[.,][0-9]+)?)?)"
                                   R"(\s*(?:([zZ])|([+-])([0-9]{2}):?([0-9]{2})?)?)?$)");
  // [0-9], not \d: digits of other scripts would not convert below.
  std::optional<vobbo::JSRegex::Match> m = kNow.firstMatch(text);
  if (!m) return std::nullopt;
  auto number = [&](size_t group) {
    return m->has(group) ? std::stoi(std::string(m->text(group))) : 0;
  };
  date::year_month_day day{date::year{number(1)}, date::month{static_cast<unsigned>(number(2))},
                           date::day{static_cast<unsigned>(number(3))}};
  if (!day.ok() || number(4) > 23 || number(5) > 59 || number(6) > 59) return std::nullopt;
  NowText now{date::local_days{day} + std::chrono::hours{number(4)} +
                  std::chrono::minutes{number(5)} + std::chrono::seconds{number(6)},
              std::nullopt};
  if (m->has(7)) now.offset = std::chrono::minutes{0};
  if (m->has(8)) {
    if (number(9) > 23 || number(10) > 59) return std::nullopt;
    const int sign = m->text(8) == "-" ? -1 : 1;
    now.offset = std::chrono::minutes{sign * (number(9) * 60 + number(10))};
  }
  return now;
}

}  // namespace

void addClockOptions(CLI::App& command, ClockOptions& options) {
  command.add_option("--now", options.now,
                     "The current time, ISO 8601 (default: now); without a zone it is local time");
  command.add_option("--tz", options.tz,
                     "The time zone, such as Europe/London (default: $TZ, then the system's)");
}

vobbo::Result<const date::time_zone*> zoneFor(const ClockOptions& options,
                                              const vobbo::Platform::Env& env) {
  if (!options.tz.empty()) {
    if (const date::time_zone* zone = findZone(options.tz)) return zone;
    return vobbo::failure(
        fmt::format("There is no time zone called \"{}\". Use a name such as Europe/London or "
                    "America/New_York.",
                    options.tz));
  }
  if (auto tz = env("TZ"); tz && !tz->empty()) {
    if (const date::time_zone* zone = findZone(tz->front() == ':' ? tz->substr(1) : *tz))
      return zone;
  }
  try {
    return date::current_zone();
  } catch (const std::exception&) {
  }
  if (const date::time_zone* zone = findZone("UTC")) return zone;
  return vobbo::failure("The time zone database could not be read, so dates cannot be worked out.");
}

vobbo::Result<double> nowFor(const ClockOptions& options, const date::time_zone& zone) {
  if (options.now.empty()) return vobbo::Clock::now();
  std::optional<NowText> now = readNow(options.now);
  if (!now) {
    return vobbo::failure(fmt::format(
        "\"{}\" is not a time I can read. Write it like 2026-03-08 or 2026-03-08T09:30, with Z or "
        "+01:00 at the end for a zone other than the local one.",
        options.now));
  }
  date::sys_seconds at = now->offset
                             ? date::sys_seconds{now->wall.time_since_epoch() - *now->offset}
                             : zone.to_sys(now->wall, date::choose::earliest);
  const double ms = static_cast<double>(at.time_since_epoch().count()) * 1000.0;
  if (!vobbo::TaskParse::plannable(vobbo::TaskDue::fromMs(ms))) {
    return vobbo::failure(fmt::format(
        "--now {} is outside the years Quibly plans in ({} to {}). Give a time between them.",
        options.now, vobbo::TaskParse::kFirstYear, vobbo::TaskParse::kLastYear));
  }
  return ms;
}

}  // namespace quibly
