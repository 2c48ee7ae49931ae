#include "DueWords.h"

#include <date/tz.h>
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>

namespace vobbo {

namespace {

constexpr std::string_view kWeekdays[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                          "Thursday", "Friday", "Saturday"};
constexpr std::string_view kMonths[] = {"January",   "February", "March",    "April",
                                        "May",       "June",     "July",     "August",
                                        "September", "October",  "November", "December"};

// The wall time of a moment in the zone; absurd moments are pulled into range.
date::local_seconds wallOf(double at, const date::time_zone& zone) {
  if (!std::isfinite(at)) at = 0;
  double seconds = std::clamp(TaskDue::toMs(at) / 1000.0, -1e10, 1e10);
  return zone.to_local(
      date::sys_seconds{std::chrono::seconds{static_cast<int64_t>(std::floor(seconds))}});
}

date::local_days dayOf(double at, const date::time_zone& zone) {
  return date::floor<date::days>(wallOf(at, zone));
}

std::string clockText(double at, const date::time_zone& zone) {
  date::local_seconds wall = wallOf(at, zone);
  auto time = date::make_time(wall - date::floor<date::days>(wall));
  return fmt::format("{}:{:02}", time.hours().count(), time.minutes().count());
}

std::string dateText(date::local_days day) {
  date::year_month_day ymd{day};
  return fmt::format("{} {}", static_cast<unsigned>(ymd.day()),
                     kMonths[static_cast<unsigned>(ymd.month()) - 1]);
}

std::string dayWords(date::local_days day, date::local_days today) {
  auto ahead = (day - today).count();
  if (ahead == 0) return "today";
  if (ahead == 1) return "tomorrow";
  if (ahead == -1) return "yesterday";
  if (ahead > 1 && ahead < 7) return std::string(kWeekdays[date::weekday{day}.c_encoding()]);
  std::string text = dateText(day);
  date::year year = date::year_month_day{day}.year();
  if (year != date::year_month_day{today}.year())
    text += fmt::format(" {}", static_cast<int>(year));
  return text;
}

}  // namespace

DueWords::Tone DueWords::tone(const TaskDue& due, const TaskParse::Now& now) {
  date::local_days day = dayOf(due.at, now.zone);
  date::local_days today = dayOf(now.at, now.zone);
  if (due.time) {
    if (due.at < now.at) return Tone::late;
    if (due.at - now.at <= kSoonSeconds) return Tone::soon;
  } else if (day < today) {
    return Tone::late;
  }
  return day <= today ? Tone::today : Tone::later;
}

std::string DueWords::text(const TaskDue& due, const TaskParse::Now& now) {
  if (tone(due, now) == Tone::soon) {
    auto minutes = std::max<int64_t>(1, static_cast<int64_t>(std::ceil((due.at - now.at) / 60)));
    return minutes == 1 ? "in 1 minute" : fmt::format("in {} minutes", minutes);
  }
  std::string text = dayWords(dayOf(due.at, now.zone), dayOf(now.at, now.zone));
  if (due.time) text += " at " + clockText(due.at, now.zone);
  return text;
}

std::string DueWords::fullText(const TaskDue& due, const date::time_zone& zone) {
  date::local_days day = dayOf(due.at, zone);
  std::string text = fmt::format("{} {} {}", kWeekdays[date::weekday{day}.c_encoding()],
                                 dateText(day), static_cast<int>(date::year_month_day{day}.year()));
  if (due.time) text += " at " + clockText(due.at, zone);
  return text;
}

}  // namespace vobbo
