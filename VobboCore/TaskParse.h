#pragma once
// Typed-task parsing. A person types one line, "pay rent every 1st #home !high"
// or "call mom tomorrow at 5pm", and TaskParse::parse splits it into a clean
// title and the parts it recognised: a due moment, a repeat rule, tags and a
// priority. Every recognised span is kept as a TaskToken (character offsets into
// the typed text) so an entry field can colour it while the person types.
//
// Parsing is pure and never fails: any bytes give a ParsedTask, with whatever was
// not understood left in the title. The current time and the time zone whose
// calendar gives "today" are passed in; nothing here reads the clock or the zone.
//
// Moments here (TaskDue::at, Now::at, TaskParse::Acc) count seconds from
// 2001-01-01T00:00:00Z, the reference epoch tasks are stored with; TaskDue
// converts from and to the app's milliseconds since 1970.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "JSONCodec.h"
#include "JSRegex.h"
#include "RawEnum.h"

namespace date {
class time_zone;
}

namespace vobbo {

// When a task is due. `time` is true when a clock time was given; when false the
// task is due for the whole local day that starts at `at`.
struct TaskDue {
  static constexpr double kReferenceEpochMs = 978307200000.0;  // 2001-01-01T00:00:00Z

  double at = 0;  // seconds from the reference epoch
  bool time = false;

  static double fromMs(double msSince1970) { return (msSince1970 - kReferenceEpochMs) / 1000.0; }
  static double toMs(double at) { return at * 1000.0 + kReferenceEpochMs; }
  bool operator==(const TaskDue&) const = default;
};

// One recognised span of the typed text. Offsets count user-perceived
// characters, not bytes; `end` is exclusive.
struct TaskToken {
  enum class Kind { date, time, repeat, tag, priority };

  Kind kind = Kind::date;
  size_t start = 0;
  size_t end = 0;
  std::string text;  // the matched text, as typed
  bool operator==(const TaskToken&) const = default;
};

enum class TaskPriority { high, med, low };

// How a task repeats. `day` is set for `week` only (1 = Sunday … 7 = Saturday);
// `date` for `month` only (1 to 31; a month without that date uses its last day).
struct TaskRepeat {
  enum class Every { day, weekday, week, month };

  Every every = Every::day;
  std::optional<int> day;
  std::optional<int> date;
  bool operator==(const TaskRepeat&) const = default;
};

struct ParsedTask {
  std::string title;  // the text with every recognised span removed and tidied
  std::optional<TaskDue> due;
  std::optional<TaskRepeat> repeat;
  std::vector<std::string> tags;  // without "#", in typed order, each once
  std::optional<TaskPriority> priority;
  std::vector<TaskToken> tokens;  // ordered by start
  bool operator==(const ParsedTask&) const = default;
};

struct TaskParse {
  // The moment parsing is relative to and the zone whose calendar gives its days.
  // The zone must outlive the Now.
  struct Now {
    double at = 0;  // seconds from the reference epoch
    const date::time_zone& zone;
  };

  // A local clock time.
  struct ClockTime {
    int hour = 0;  // 0 to 23
    int minute = 0;
    bool operator==(const ClockTime&) const = default;
  };

  // Named parts of the day; their hours are in the table of choices in TaskParse.cpp.
  enum class DayPart { morning, afternoon, evening, night, tonight };

  // What the rules have gathered so far while one line is parsed. Of two matches
  // that set the same part, the one found first (rules in order, then left to
  // right) wins and the later one is refused, so it stays in the title; only a
  // repeat from a bare word gives way to a named one.
  struct Acc {
    std::optional<double> day;  // the start of the due day
    std::optional<int> hour;
    int minute = 0;
    std::optional<double> exact;  // a relative time: "in 20 minutes"
    std::optional<TaskRepeat> repeatRule;
    std::vector<std::string> tags;
    std::optional<TaskPriority> priority;
    // The part of the day named ("tonight", "friday evening"). It sets a soft
    // hour that a clock time replaces, and makes "tonight at 8" mean 20:00.
    std::optional<DayPart> part;
    // The repeat came from a bare word ("weekly review"); a named one that
    // follows ("every sunday", "every 5th") replaces it.
    bool bareRepeat = false;
  };

  // One recognising rule: its token kind, its pattern (case-insensitive), and the
  // reader that updates the accumulator and says whether the match was accepted.
  // `needs` names an ASCII character every acceptable match holds ('\0' for
  // none): text without it skips the rule, which keeps parsing on every
  // keystroke cheap.
  struct Rule {
    TaskToken::Kind kind;
    JSRegex re;
    bool (*read)(const JSRegex::Match& match, const Now& now, Acc& acc);
    char needs = '\0';  // '0' stands for any ASCII digit
  };

  // The local hour at which a whole-day task that needs a reminder is reminded.
  static constexpr int kReminderHour = 9;

  // Parses one typed line. Never fails; text that is empty, huge, not UTF-8 or
  // full of out-of-range numbers simply yields fewer recognised parts. When
  // `now` falls outside the plannable years, no date, time or repeat is read
  // (those words stay in the title), so no due moment is ever made up.
  static ParsedTask parse(std::string_view text, const Now& now);

  // The years, in UTC, a `Now` may fall in. Every due moment parse() makes
  // from such a now lies within the range the calendar arithmetic is exact in.
  static constexpr int kFirstYear = 1970;
  static constexpr int kLastYear = 2200;
  // Whether a moment (seconds from the reference epoch) falls in those years.
  static bool plannable(double at);

  // The rules in the order they are tried.
  static const std::vector<Rule>& rules();

  // The 24-hour hour for a typed hour and optional meridiem ("am", "p.m."), or
  // nothing when out of range: above 23 without one, outside 1 to 12 with one.
  static std::optional<int> clockHour(int hour, std::optional<std::string_view> meridiem);

  // The priority for the text after the first "!" ("high", "2", "!!", ""), or
  // nothing for a word it does not know.
  static std::optional<TaskPriority> priorityWord(std::string_view word);

  // The first due moment of a repeat rule from now: today when today fits and
  // the clock time (if any) has not passed, else the next day that fits.
  static TaskDue firstOf(const TaskRepeat& rule, std::optional<ClockTime> time, const Now& now);
  // The next due moment after `after`, on the next later day that fits the rule,
  // at the same local clock time when `after` has one.
  static TaskDue nextDue(const TaskRepeat& rule, const TaskDue& after, const date::time_zone& zone);
};

template <>
struct RawValues<TaskToken::Kind> {
  static constexpr std::pair<TaskToken::Kind, std::string_view> values[] = {
      {TaskToken::Kind::date, "date"},
      {TaskToken::Kind::time, "time"},
      {TaskToken::Kind::repeat, "repeat"},
      {TaskToken::Kind::tag, "tag"},
      {TaskToken::Kind::priority, "priority"}};
};
template <>
struct RawValues<TaskPriority> {
  static constexpr std::pair<TaskPriority, std::string_view> values[] = {
      {TaskPriority::high, "high"}, {TaskPriority::med, "med"}, {TaskPriority::low, "low"}};
};
template <>
struct RawValues<TaskRepeat::Every> {
  static constexpr std::pair<TaskRepeat::Every, std::string_view> values[] = {
      {TaskRepeat::Every::day, "day"},
      {TaskRepeat::Every::weekday, "weekday"},
      {TaskRepeat::Every::week, "week"},
      {TaskRepeat::Every::month, "month"}};
};

template <>
struct JSONFields<TaskDue> {
  static constexpr auto list =
      std::tuple{JSONField{"at", &TaskDue::at}, JSONField{"time", &TaskDue::time}};
};
template <>
struct JSONFields<TaskToken> {
  static constexpr auto list =
      std::tuple{JSONField{"kind", &TaskToken::kind}, JSONField{"start", &TaskToken::start},
                 JSONField{"end", &TaskToken::end}, JSONField{"text", &TaskToken::text}};
};
template <>
struct JSONFields<TaskRepeat> {
  static constexpr auto list =
      std::tuple{JSONField{"every", &TaskRepeat::every}, JSONField{"day", &TaskRepeat::day},
                 JSONField{"date", &TaskRepeat::date}};
};
template <>
struct JSONFields<ParsedTask> {
  static constexpr auto list = std::tuple{
      JSONField{"title", &ParsedTask::title},       JSONField{"due", &ParsedTask::due},
      JSONField{"repeat", &ParsedTask::repeat},     JSONField{"tags", &ParsedTask::tags},
      JSONField{"priority", &ParsedTask::priority}, JSONField{"tokens", &ParsedTask::tokens}};
};

}  // namespace vobbo
