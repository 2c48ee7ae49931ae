#pragma once
// How a task's due moment reads to the person: a few words relative to now
// ("today at 17:00", "tomorrow", "Friday at 9:30", "3 March 2027") and a tone
// that tells the list how to colour it. Pure: the current time and the zone are
// passed in.

#include <string>
#include <string_view>
#include <utility>

#include "RawEnum.h"
#include "TaskParse.h"

namespace vobbo {

struct DueWords {
  // late: the moment (or, for a whole-day task, the day) has passed; soon: a
  // timed task due within kSoonSeconds; today: due later today; later: after today.
  enum class Tone { late, soon, today, later };

  static constexpr double kSoonSeconds = 3600;

  static Tone tone(const TaskDue& due, const TaskParse::Now& now);

  // "in 20 minutes" when soon; otherwise the day ("today", "tomorrow",
  // "yesterday", a weekday name within the coming week, else "3 March" with the
  // year added when it is not this year) followed by " at HH:MM" for a timed task.
  static std::string text(const TaskDue& due, const TaskParse::Now& now);

  // The full local date, "Sunday 22 November 2026", and with a time
  // "Sunday 22 November 2026 at 17:00".
  static std::string fullText(const TaskDue& due, const date::time_zone& zone);
};

template <>
struct RawValues<DueWords::Tone> {
  static constexpr std::pair<DueWords::Tone, std::string_view> values[] = {
      {DueWords::Tone::late, "late"},
      {DueWords::Tone::soon, "soon"},
      {DueWords::Tone::today, "today"},
      {DueWords::Tone::later, "later"}};
};

}  // namespace vobbo
