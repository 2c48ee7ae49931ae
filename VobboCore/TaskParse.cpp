// How a typed line becomes a task.
//
// Eleven rules, each a case-insensitive pattern with a reader, are tried in a
// fixed order over the whole line: repeats, relative times ("in 20 min"), day
// words ("tomorrow evening"), weekdays ("on friday"), calendar dates ("5 march"),
// 12-hour and plain clocks, named times ("noon"), tags and priorities. Every
// match a reader accepts claims its span; a later match that overlaps a claimed
// span is skipped, so "at 10:30pm" is read once by the 12-hour rule and not again
// as the plain clock "at 10". Readers fill an accumulator; the due moment is put
// together from it at the end, in the person's zone:
//
//   "call mom tomorrow at 5pm"   day = start of tomorrow, hour 17  ->  tomorrow 17:00
//   "pay rent every 1st"         repeat month on the 1st           ->  the next 1st, whole day
//   "standup at 9"               hour 9, no day                    ->  today 9:00, or tomorrow
//                                                                      when 9:00 has passed
//
// Days are counted on the local calendar, never as 86400 seconds, so "tomorrow
// at 9" is 9:00 on the wall clock across a daylight-saving change. A wall time
// the change skips (2:30 on a spring-forward night) moves forward by the gap;
// one that happens twice takes the earlier.
//
// The title is what is left when the claimed spans are cut out, with spaces
// squashed and stray connecting words ("at", "due") and punctuation trimmed from
// both ends.

#include "TaskParse.h"

#include <date/tz.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <map>

#include "Text.h"

namespace vobbo {

namespace {

using DayPart = TaskParse::DayPart;
using ClockTime = TaskParse::ClockTime;
using date::days;
using date::local_days;

// ---------------------------------------------------------------------------
// The choices the typed words leave open, made as a person typing tasks
// expects, all in this one table:
//
//   part of the day   morning 9:00, afternoon 14:00, evening 18:00, night 21:00,
//                     tonight 20:00; "every morning/evening/night" is every day
//                     at that hour. A clock time typed with a part replaces its
//                     hour, and an hour without am/pm after an afternoon, evening
//                     or night part is read as pm ("tonight at 8" is 20:00).
//   next week         Monday of next week (weeks start on Monday), whole day.
//   this week         Friday of this week; today once Friday has passed.
//   this weekend      Saturday of this week; today on Saturday or Sunday.
//   weekdays          "on", "by" and "next friday" are the next Friday after
//                     today; "this friday" is today when today is Friday.
//   a time, no day    today, or tomorrow when that time has already passed.
//   a date, no year   this year, or the next year that has it once it has passed;
//                     a date no year has ("31 april") is refused.
//   every month       on today's date of the month; a month without that date
//                     (the 31st in April) uses its last day.
//   "in a/an/half an" a and an count one, half an one half ("in half an hour"
//                     is 30 minutes); whole days and weeks keep the clock time.
//   same-kind matches the first found wins (rules in order, then left to right);
//                     the other is refused and stays in the title. Only a bare
//                     repeat word gives way: "weekly review every sunday" repeats
//                     on Sundays.
//   reminders         a whole-day task is reminded at TaskParse::kReminderHour.
// ---------------------------------------------------------------------------
struct PartChoice {
  DayPart part;
  std::string_view word;
  int hour;
  int firstPmHour;  // a bare clock hour from here to 11 after this part means pm
};
constexpr PartChoice kParts[] = {
    {DayPart::morning, "morning", 9, 13}, {DayPart::afternoon, "afternoon", 14, 1},
    {DayPart::evening, "evening", 18, 1}, {DayPart::night, "night", 21, 6},
    {DayPart::tonight, "tonight", 20, 1},
};
constexpr date::weekday kNextWeekLands = date::Monday;
constexpr date::weekday kThisWeekLands = date::Friday;
constexpr date::weekday kWeekendLands = date::Saturday;
constexpr int kYearsToFindDate = 8;  // far enough to reach the next 29 February

constexpr double kReferenceEpochSeconds = TaskDue::kReferenceEpochMs / 1000.0;
// Moments far outside any plan a person makes are pulled in, so calendar
// arithmetic always stays in range (roughly the years 1684 to 2318).
constexpr double kMomentLimit = 1e10;

// --- Calendar helpers: local days and wall times to moments and back ---------

date::sys_seconds sysOf(double at) {
  if (!std::isfinite(at)) at = 0;
  at = std::clamp(at, -kMomentLimit, kMomentLimit);
  return date::sys_seconds{
      std::chrono::seconds{static_cast<int64_t>(std::floor(at + kReferenceEpochSeconds))}};
}

date::local_seconds localOf(double at, const date::time_zone& zone) {
  return zone.to_local(sysOf(at));
}

local_days localDay(double at, const date::time_zone& zone) {
  return date::floor<days>(localOf(at, zone));
}

double momentOf(date::local_seconds wall, const date::time_zone& zone) {
  // For a skipped wall time the offset before the gap moves it forward by the
  // gap; for a repeated one the first offset gives the earlier moment.
  date::local_info info = zone.get_info(wall);
  auto sys = wall.time_since_epoch() - info.first.offset;
  return static_cast<double>(sys.count()) - kReferenceEpochSeconds;
}

double startOf(local_days day, const date::time_zone& zone) {
  return momentOf(date::local_seconds{day}, zone);
}

double momentAt(local_days day, ClockTime time, const date::time_zone& zone) {
  return momentOf(
      date::local_seconds{day} + std::chrono::hours{time.hour} + std::chrono::minutes{time.minute},
      zone);
}

// 1 = Sunday … 7 = Saturday, as repeat rules store weekdays.
int weekdayNumber(local_days day) { return static_cast<int>(date::weekday{day}.c_encoding()) + 1; }

// The first day on or after `from` that falls on `wd`.
local_days onOrAfter(local_days from, date::weekday wd) {
  return from + (wd - date::weekday{from});
}

// Monday of the week holding `day`.
local_days weekStart(local_days day) { return day - (date::weekday{day} - date::Monday); }

// --- Reading matched text -----------------------------------------------------

std::string lower(std::string_view text) {
  std::string out(text);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return out;
}

// A number in ASCII digits. \d also matches other scripts' digits; those, and
// anything too long, give nothing.
std::optional<int> asciiNumber(std::string_view text) {
  if (text.empty() || text.size() > 6) return std::nullopt;
  int value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return std::nullopt;
    value = value * 10 + (c - '0');
  }
  return value;
}

// 1 = Sunday … 7 = Saturday for any spelling the patterns allow.
std::optional<int> weekdayFromWord(std::string_view word) {
  static constexpr std::string_view kStems[] = {"sun", "mon", "tue", "wed", "thu", "fri", "sat"};
  std::string stem = lower(word.substr(0, 3));
  for (size_t i = 0; i < std::size(kStems); ++i) {
    if (stem == kStems[i]) return static_cast<int>(i) + 1;
  }
  return std::nullopt;  // a caseless look-alike such as the Kelvin sign
}

std::optional<unsigned> monthFromWord(std::string_view word) {
  static constexpr std::string_view kStems[] = {"jan", "feb", "mar", "apr", "may", "jun",
                                                "jul", "aug", "sep", "oct", "nov", "dec"};
  std::string stem = lower(word.substr(0, 3));
  for (size_t i = 0; i < std::size(kStems); ++i) {
    if (stem == kStems[i]) return static_cast<unsigned>(i) + 1;
  }
  return std::nullopt;
}

const PartChoice* partChoice(DayPart part) {
  for (const PartChoice& choice : kParts) {
    if (choice.part == part) return &choice;
  }
  return nullptr;
}

std::optional<DayPart> partFromWord(std::string_view word) {
  std::string w = lower(word);
  for (const PartChoice& choice : kParts) {
    if (w == choice.word) return choice.part;
  }
  return std::nullopt;
}

// --- Updating the accumulator -----------------------------------------------

// A named part of the day sets a soft hour, unless an hour is already set.
void setPart(TaskParse::Acc& acc, std::optional<DayPart> part) {
  if (!part || acc.hour) return;
  acc.part = part;
  acc.hour = partChoice(*part)->hour;
  acc.minute = 0;
}

// Whether a day may still be set: a relative time or an earlier day wins.
bool dayOpen(const TaskParse::Acc& acc) { return !acc.exact && !acc.day; }

void setDay(TaskParse::Acc& acc, local_days day, const TaskParse::Now& now) {
  acc.day = startOf(day, now.zone);
}

enum class PmFromPart { apply, ignore };

// A clock time replaces a part's soft hour but not an earlier clock time.
bool setClock(TaskParse::Acc& acc, std::optional<int> hour, std::optional<int> minute,
              PmFromPart pm) {
  if (!hour || !minute || *minute > 59) return false;
  if (acc.exact || (acc.hour && !acc.part)) return false;
  int h = *hour;
  if (pm == PmFromPart::apply && acc.part && h >= partChoice(*acc.part)->firstPmHour && h <= 11) {
    h += 12;
  }
  acc.hour = h;
  acc.minute = *minute;
  acc.part.reset();
  return true;
}

// --- The readers, one per rule --------------------------------------------------

// Whether a repeat may still be set: none yet, or only one from a bare word
// that this named one replaces.
bool repeatOpen(const TaskParse::Acc& acc, bool named) {
  return !acc.repeatRule || (acc.bareRepeat && named);
}

bool readRepeatWord(const JSRegex::Match& m, const TaskParse::Now& now, TaskParse::Acc& acc) {
  bool named = m.has(1);
  if (!repeatOpen(acc, named)) return false;
  std::string word = lower(named ? m.text(1) : m.text(2));
  local_days today = localDay(now.at, now.zone);
  TaskRepeat rule;
  if (word == "day" || word == "daily") {
    rule.every = TaskRepeat::Every::day;
  } else if (word == "weekday" || word == "weekdays") {
    rule.every = TaskRepeat::Every::weekday;
  } else if (word == "week" || word == "weekly") {
    rule = {TaskRepeat::Every::week, weekdayNumber(today), std::nullopt};
  } else if (word == "month" || word == "monthly") {
    rule = {TaskRepeat::Every::month, std::nullopt,
            static_cast<int>(static_cast<unsigned>(date::year_month_day{today}.day()))};
  } else if (auto part = partFromWord(word)) {
    rule.every = TaskRepeat::Every::day;
    setPart(acc, part);
  } else if (auto wd = weekdayFromWord(word)) {
    rule = {TaskRepeat::Every::week, *wd, std::nullopt};
  } else {
    return false;
  }
  acc.repeatRule = rule;
  acc.bareRepeat = !named;
  return true;
}

bool readRepeatDate(const JSRegex::Match& m, const TaskParse::Now&, TaskParse::Acc& acc) {
  std::optional<int> date = asciiNumber(m.text(1));
  if (!repeatOpen(acc, true) || !date || *date < 1 || *date > 31) return false;
  acc.repeatRule = TaskRepeat{TaskRepeat::Every::month, std::nullopt, *date};
  acc.bareRepeat = false;
  return true;
}

bool readRelative(const JSRegex::Match& m, const TaskParse::Now& now, TaskParse::Acc& acc) {
  if (acc.exact) return false;
  std::string amountWord = lower(m.text(1));
  double amount = amountWord[0] == 'h' ? 0.5 : amountWord[0] == 'a' ? 1 : 0;
  if (auto n = asciiNumber(amountWord)) amount = *n;
  if (amount == 0 && amountWord[0] != '0') return false;  // digits of another script
  char unit = lower(m.text(2).substr(0, 1))[0];
  double unitSeconds = unit == 'm' ? 60 : unit == 'h' ? 3600 : unit == 'd' ? 86400 : 604800;
  bool wholeDays = (unit == 'd' || unit == 'w') && amount == std::floor(amount);
  if (wholeDays) {
    // Calendar days, so the clock time survives a daylight-saving change.
    int count = static_cast<int>(amount) * (unit == 'w' ? 7 : 1);
    double fraction = now.at - std::floor(now.at);
    acc.exact = momentOf(localOf(now.at, now.zone) + days{count}, now.zone) + fraction;
  } else {
    acc.exact = now.at + amount * unitSeconds;
  }
  return true;
}

local_days dayForWords(const JSRegex::Match& m, local_days today, std::optional<DayPart>& part) {
  if (m.has(1)) return today + days{2};
  if (m.has(2)) return today;
  if (m.has(3)) {
    part = DayPart::tonight;
    return today;
  }
  if (m.has(4)) {
    part = partFromWord(m.text(5));
    return today + days{1};
  }
  if (m.has(6)) {
    part = partFromWord(m.text(6));
    if (part) return today;
    local_days saturday = onOrAfter(weekStart(today), kWeekendLands);
    return std::max(saturday, today);  // Sunday stays today
  }
  if (m.has(7)) return weekStart(today) + days{7} + (kNextWeekLands - date::Monday);
  return std::max(onOrAfter(weekStart(today), kThisWeekLands), today);
}

bool readDayWords(const JSRegex::Match& m, const TaskParse::Now& now, TaskParse::Acc& acc) {
  if (!dayOpen(acc)) return false;
  std::optional<DayPart> part;
  local_days day = dayForWords(m, localDay(now.at, now.zone), part);
  setDay(acc, day, now);
  setPart(acc, part);
  return true;
}

bool readWeekday(const JSRegex::Match& m, const TaskParse::Now& now, TaskParse::Acc& acc) {
  std::optional<int> wd = weekdayFromWord(m.text(2));
  if (!dayOpen(acc) || !wd) return false;
  local_days today = localDay(now.at, now.zone);
  local_days day = onOrAfter(today, date::weekday{static_cast<unsigned>(*wd - 1)});
  if (day == today && lower(m.text(1)) != "this") day += days{7};
  setDay(acc, day, now);
  setPart(acc, partFromWord(m.text(3)));
  return true;
}

bool readCalendarDate(const JSRegex::Match& m, const TaskParse::Now& now, TaskParse::Acc& acc) {
  std::optional<int> dayNumber = asciiNumber(m.has(1) ? m.text(1) : m.text(4));
  std::optional<unsigned> month = monthFromWord(m.has(2) ? m.text(2) : m.text(3));
  if (!dayOpen(acc) || !dayNumber || !month || *dayNumber < 1 || *dayNumber > 31) return false;
  local_days today = localDay(now.at, now.zone);
  date::year year = date::year_month_day{today}.year();
  for (int ahead = 0; ahead <= kYearsToFindDate; ++ahead) {
    date::year_month_day ymd{year + date::years{ahead}, date::month{*month},
                             date::day{static_cast<unsigned>(*dayNumber)}};
    if (ymd.ok() && local_days{ymd} >= today) {
      setDay(acc, local_days{ymd}, now);
      return true;
    }
  }
  return false;
}

std::optional<int> minuteOf(const JSRegex::Match& m, size_t group) {
  return m.has(group) ? asciiNumber(m.text(group)) : std::optional<int>(0);
}

bool readTwelveHour(const JSRegex::Match& m, const TaskParse::Now&, TaskParse::Acc& acc) {
  std::optional<int> typed = asciiNumber(m.text(1));
  std::optional<int> hour = typed ? TaskParse::clockHour(*typed, m.text(3)) : std::nullopt;
  return setClock(acc, hour, minuteOf(m, 2), PmFromPart::ignore);
}

bool readPlainClock(const JSRegex::Match& m, const TaskParse::Now&, TaskParse::Acc& acc) {
  size_t hourGroup = m.has(1) ? 1 : 3;
  std::optional<int> typed = asciiNumber(m.text(hourGroup));
  std::optional<int> hour = typed ? TaskParse::clockHour(*typed, std::nullopt) : std::nullopt;
  return setClock(acc, hour, minuteOf(m, hourGroup + 1), PmFromPart::apply);
}

bool readNamedTime(const JSRegex::Match& m, const TaskParse::Now&, TaskParse::Acc& acc) {
  std::string word = lower(m.text(1));
  std::optional<int> hour;
  if (word == "noon" || word == "midday") hour = 12;
  if (word == "midnight") hour = 0;
  return setClock(acc, hour, 0, PmFromPart::ignore);
}

bool readTag(const JSRegex::Match& m, const TaskParse::Now&, TaskParse::Acc& acc) {
  std::string tag(m.text(1));
  if (std::find(acc.tags.begin(), acc.tags.end(), tag) == acc.tags.end()) acc.tags.push_back(tag);
  return true;
}

bool readPriority(const JSRegex::Match& m, const TaskParse::Now&, TaskParse::Acc& acc) {
  std::optional<TaskPriority> priority = TaskParse::priorityWord(m.text(1));
  if (acc.priority || !priority) return false;
  acc.priority = priority;
  return true;
}

// --- The patterns -------------------------------------------------------------

constexpr std::string_view kWeekdaysLong =
    "(?:sunday|monday|tuesday|tues|wednesday|thursday|thurs|friday|saturday)";
constexpr std::string_view kMonths =
    "(?:january|february|march|april|may|june|july|august|september|october|november|december|"
    "jan|feb|mar|apr|jun|jul|aug|sept|sep|oct|nov|dec)";
constexpr std::string_view kDayParts = "(morning|afternoon|evening|night)";

std::string cat(std::initializer_list<std::string_view> parts) {
  std::string out;
  for (std::string_view p : parts) out += p;
  return out;
}

std::vector<TaskParse::Rule> buildRules() {
  using Kind = TaskToken::Kind;
  auto rule = [](Kind kind, const std::string& pattern, auto read, char needs = '\0') {
    return TaskParse::Rule{kind, JSRegex(pattern, JSRegex::Case::insensitive), read, needs};
  };
  const std::string weekdaysAll = cat({"(?:", kWeekdaysLong, "|sun|mon|tue|wed|thur|thu|fri|sat)"});
  std::vector<TaskParse::Rule> rules;
  rules.push_back(rule(Kind::repeat,
                       cat({R"(\b(?:every\s+(day|weekday|week|month|morning|evening|night|)",
                            weekdaysAll, R"()|(daily|weekly|monthly|weekdays))\b)"}),
                       readRepeatWord));
  rules.push_back(
      rule(Kind::repeat, R"(\bevery\s+(\d{1,2})(?:st|nd|rd|th)\b)", readRepeatDate, '0'));
  rules.push_back(rule(
      Kind::time,
      R"(\bin\s+(\d{1,3}|an?|half\s+an)\s*(minutes?|mins?|m|hours?|hrs?|h|days?|d|weeks?|w)\b)",
      readRelative));
  rules.push_back(
      rule(Kind::date,
           R"(\b(?:(day\s+after\s+tomorrow)|(today)|(tonight)|(tomorrow|tmrw|tmr))"
           R"((?:\s+(morning|afternoon|evening|night))?|)"
           R"(this\s+(morning|afternoon|evening|weekend)|(next\s+week)|(this\s+week))\b)",
           readDayWords));
  rules.push_back(rule(Kind::date,
                       cat({R"(\b(?:(?:(on|by|next|this)\s+)()", kWeekdaysLong, R"()(?:\s+)",
                            kDayParts, R"()?)\b)"}),
                       readWeekday));
  rules.push_back(rule(Kind::date,
                       cat({R"(\b(?:(?:on\s+)?(\d{1,2})(?:st|nd|rd|th)?\s+()", kMonths,
                            R"()|(?:on\s+)?()", kMonths, R"()\s+(\d{1,2})(?:st|nd|rd|th)?)\b)"}),
                       readCalendarDate, '0'));
  rules.push_back(
      rule(Kind::time,
           R"((?:\b(?:at|by)\s+|@\s?|\b)(\d{1,2})(?::(\d{2}))?\s*(am|pm|a\.m\.|p\.m\.)(?![\w]))",
           readTwelveHour, '0'));
  rules.push_back(rule(Kind::time,
                       R"((?:\b(?:at|by)\s+|@\s?)(\d{1,2})(?::(\d{2}))?\b)"
                       R"((?!\s*(?:am|pm|%|min|hour|day|week))|\b(\d{1,2}):(\d{2})\b)",
                       readPlainClock, '0'));
  rules.push_back(rule(Kind::time, R"(\b(?:at\s+)?(noon|midday|midnight)\b)", readNamedTime));
  rules.push_back(rule(Kind::tag, R"((?:^|(?<=\s))#([\p{L}\p{N}_/-]+))", readTag, '#'));
  rules.push_back(
      rule(Kind::priority,
           R"((?:^|(?<=\s))!(!{0,2}|high|hi|h|urgent|medium|med|m|low|lo|l|[123])(?=\s|$))",
           readPriority, '!'));
  return rules;
}

// --- Putting the parts together ---------------------------------------------

// A match found by a rule and accepted by its reader, in bytes.
struct Claim {
  size_t begin;
  size_t end;
  TaskToken::Kind kind;
};

// Spans already claimed, by start; they never overlap one another.
class ClaimedSpans {
 public:
  bool overlaps(JSRegex::Range r) const {
    auto after = spans_.lower_bound(r.end);
    if (after == spans_.begin()) return false;
    return std::prev(after)->second > r.begin;
  }
  void add(JSRegex::Range r) { spans_.emplace(r.begin, r.end); }

 private:
  std::map<size_t, size_t> spans_;
};

// Where scanning for a rule may start, or npos when the text lacks the
// character the rule needs. Digits in other scripts do not count: the readers
// refuse them anyway. A match of a rule that needs a digit holds one, with at
// most two words and their spaces before it ("on september 5", "every 1st",
// "at 5pm", "@ 9"), so no match can start earlier; skipping that stretch matters
// because patterns that begin with a word boundary are tried at every position.
size_t scanStart(std::string_view text, char needs) {
  if (needs == '\0') return 0;
  if (needs != '0') return text.find(needs);  // tags and priorities start with theirs
  auto digit = std::find_if(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
  if (digit == text.end()) return std::string_view::npos;
  auto spaceOrWide = [](char c) { return c == ' ' || (c >= '\t' && c <= '\r') || (c & 0x80); };
  auto wordOrAt = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '@';
  };
  size_t i = static_cast<size_t>(digit - text.begin());
  for (int word = 0; word < 2; ++word) {
    while (i > 0 && spaceOrWide(text[i - 1])) --i;
    while (i > 0 && wordOrAt(text[i - 1])) --i;
  }
  return i;
}

// Every match from `from` on, left to right, none overlapping the last.
template <class Visit>
void eachMatch(const JSRegex& re, std::string_view text, size_t from, Visit visit) {
  while (from <= text.size()) {
    std::optional<JSRegex::Match> m = re.firstMatch(text, from);
    if (!m || m->range().size() == 0) return;  // no rule matches empty text
    from = m->range().end;
    visit(*m);
  }
}

// Only tags and priorities can be read without a trustworthy now.
bool needsNow(TaskToken::Kind kind) {
  return kind == TaskToken::Kind::date || kind == TaskToken::Kind::time ||
         kind == TaskToken::Kind::repeat;
}

std::vector<Claim> runRules(std::string_view text, const TaskParse::Now& now, TaskParse::Acc& acc) {
  std::vector<Claim> claims;
  ClaimedSpans claimed;
  const bool nowPlannable = TaskParse::plannable(now.at);
  for (const TaskParse::Rule& rule : TaskParse::rules()) {
    if (!nowPlannable && needsNow(rule.kind)) continue;
    size_t from = scanStart(text, rule.needs);
    if (from == std::string_view::npos) continue;
    eachMatch(rule.re, text, from, [&](const JSRegex::Match& m) {
      JSRegex::Range r = m.range();
      if (claimed.overlaps(r) || !rule.read(m, now, acc)) return;
      claimed.add(r);
      claims.push_back({r.begin, r.end, rule.kind});
    });
  }
  std::stable_sort(claims.begin(), claims.end(),
                   [](const Claim& a, const Claim& b) { return a.begin < b.begin; });
  return claims;
}

// Counts the person's characters (grapheme clusters of the whole text) up to
// byte offsets given in increasing order.
class CharacterCounter {
 public:
  explicit CharacterCounter(std::string_view text) : text_(text) {}
  // Characters that end at or before the offset: a span starting inside a
  // character starts at that character.
  size_t before(size_t offset) {
    while (byte_ < offset && byte_ + nextSize() <= offset) step();
    return count_;
  }
  // Characters that start before the offset: a span ending inside a character
  // takes all of it.
  size_t through(size_t offset) {
    while (byte_ < offset) step();
    return count_;
  }

 private:
  size_t nextSize() const {
    // Two ASCII characters other than CR LF never join, so most steps skip the
    // cluster rules.
    auto ascii = [&](size_t at) { return static_cast<unsigned char>(text_[at]) < 0x80; };
    if (byte_ + 1 >= text_.size()) return 1;
    if (ascii(byte_) && ascii(byte_ + 1) && text_[byte_] != '\r') return 1;
    return std::max<size_t>(1, Text::prefix(text_.substr(byte_), 1).size());
  }
  void step() {
    byte_ += nextSize();
    ++count_;
  }
  std::string_view text_;
  size_t byte_ = 0;
  size_t count_ = 0;
};

std::vector<TaskToken> tokensOf(std::string_view text, const std::vector<Claim>& claims) {
  std::vector<TaskToken> tokens;
  tokens.reserve(claims.size());
  CharacterCounter counter(text);
  size_t previousEnd = 0;
  for (const Claim& c : claims) {
    size_t start = std::max(counter.before(c.begin), previousEnd);
    size_t end = counter.through(c.end);
    previousEnd = end;
    tokens.push_back({c.kind, start, end, std::string(text.substr(c.begin, c.end - c.begin))});
  }
  return tokens;
}

std::optional<TaskDue> dueOf(const TaskParse::Acc& acc, const TaskParse::Now& now) {
  if (acc.exact) return TaskDue{*acc.exact, true};
  std::optional<ClockTime> time;
  if (acc.hour) time = ClockTime{*acc.hour, acc.minute};
  if (acc.day) {
    if (!time) return TaskDue{*acc.day, false};
    return TaskDue{momentAt(localDay(*acc.day, now.zone), *time, now.zone), true};
  }
  if (acc.repeatRule) return TaskParse::firstOf(*acc.repeatRule, time, now);
  if (!time) return std::nullopt;
  local_days today = localDay(now.at, now.zone);
  double at = momentAt(today, *time, now.zone);
  if (at < now.at) at = momentAt(today + days{1}, *time, now.zone);
  return TaskDue{at, true};
}

// Removes a match of an anchored pattern from the start of the text.
void stripLeading(std::string_view& text, const JSRegex& re) {
  auto m = re.firstMatch(text);
  if (m && m->range().begin == 0) text.remove_prefix(m->range().end);
}

// Removes a match of an end-anchored pattern. Only the last few bytes are
// searched, so trimming a long title stays linear.
void stripTrailing(std::string_view& text, const JSRegex& re) {
  constexpr size_t kWindow = 24;
  size_t from = text.size() > kWindow ? text.size() - kWindow : 0;
  while (from > 0 && (static_cast<unsigned char>(text[from]) & 0xC0) == 0x80) --from;
  auto m = re.firstMatch(text.substr(from));
  if (m && m->range().size() > 0) text = text.substr(0, from + m->range().begin);
}

std::string titleOf(std::string_view text, const std::vector<Claim>& claims) {
  static const JSRegex kLeadingWord(R"(^(?:at|on|by|due)\s+)", JSRegex::Case::insensitive);
  static const JSRegex kTrailingWord(R"(\s+(?:at|on|by|due)$)", JSRegex::Case::insensitive);
  static const JSRegex kLeadingMark(R"(^[,;:-]\s*)", JSRegex::Case::insensitive);
  static const JSRegex kTrailingMark(R"(\s*[,;:-]$)", JSRegex::Case::insensitive);
  std::string rest;
  size_t byte = 0;
  for (const Claim& c : claims) {
    rest.append(text.substr(byte, c.begin - byte)).push_back(' ');
    byte = c.end;
  }
  rest.append(text.substr(byte));
  std::string squashed = Text::squashSpaces(rest);
  std::string_view title = squashed;
  // Only an end that begins or finishes like a connecting word or mark is tried.
  auto mayStart = [&] {
    return !title.empty() &&
           std::string_view("aAoObBdD,;:-").find(title.front()) != std::string_view::npos;
  };
  auto mayEnd = [&] {
    return !title.empty() &&
           std::string_view("tTnNyYeE,;:-").find(title.back()) != std::string_view::npos;
  };
  for (size_t before = title.size() + 1; title.size() < before;) {
    before = title.size();
    if (mayStart()) {
      stripLeading(title, kLeadingWord);
      stripLeading(title, kLeadingMark);
    }
    if (mayEnd()) {
      stripTrailing(title, kTrailingWord);
      stripTrailing(title, kTrailingMark);
    }
  }
  return std::string(Text::trim(title));
}

bool occursOn(const TaskRepeat& rule, local_days day) {
  switch (rule.every) {
    case TaskRepeat::Every::day:
      return true;
    case TaskRepeat::Every::weekday:
      return date::weekday{day} != date::Saturday && date::weekday{day} != date::Sunday;
    case TaskRepeat::Every::week:
      return rule.day && *rule.day == weekdayNumber(day);
    case TaskRepeat::Every::month: {
      if (!rule.date || *rule.date < 1 || *rule.date > 31) return false;
      date::year_month_day ymd{day};
      unsigned last = static_cast<unsigned>(
          date::year_month_day_last{ymd.year(), date::month_day_last{ymd.month()}}.day());
      return static_cast<unsigned>(ymd.day()) == std::min(static_cast<unsigned>(*rule.date), last);
    }
  }
  return false;
}

// Far enough for any rule that fits some day: a month-end rule fits within two months.
constexpr int kDaysToSearch = 62;

}  // namespace

const std::vector<TaskParse::Rule>& TaskParse::rules() {
  static const std::vector<Rule> kRules = buildRules();
  return kRules;
}

bool TaskParse::plannable(double at) {
  using date::year;
  constexpr auto kFirst = date::sys_days{year{kFirstYear} / 1 / 1};
  constexpr auto kAfterLast = date::sys_days{year{kLastYear + 1} / 1 / 1};
  const double seconds = at + kReferenceEpochSeconds;
  return std::isfinite(at) &&
         seconds >= static_cast<double>(date::sys_seconds{kFirst}.time_since_epoch().count()) &&
         seconds < static_cast<double>(date::sys_seconds{kAfterLast}.time_since_epoch().count());
}

ParsedTask TaskParse::parse(std::string_view text, const Now& now) {
  Acc acc;
  std::vector<Claim> claims = runRules(text, now, acc);
  ParsedTask task;
  task.title = titleOf(text, claims);
  task.due = dueOf(acc, now);
  task.repeat = acc.repeatRule;
  task.tags = std::move(acc.tags);
  task.priority = acc.priority;
  task.tokens = tokensOf(text, claims);
  return task;
}

std::optional<int> TaskParse::clockHour(int hour, std::optional<std::string_view> meridiem) {
  if (hour < 0 || hour > 23) return std::nullopt;
  if (!meridiem) return hour;
  if (hour < 1 || hour > 12) return std::nullopt;
  bool pm = !meridiem->empty() && (meridiem->front() == 'p' || meridiem->front() == 'P');
  return hour % 12 + (pm ? 12 : 0);
}

std::optional<TaskPriority> TaskParse::priorityWord(std::string_view word) {
  static const std::map<std::string, TaskPriority, std::less<>> kWords = {
      {"high", TaskPriority::high},   {"hi", TaskPriority::high}, {"h", TaskPriority::high},
      {"urgent", TaskPriority::high}, {"1", TaskPriority::high},  {"!!", TaskPriority::high},
      {"medium", TaskPriority::med},  {"med", TaskPriority::med}, {"m", TaskPriority::med},
      {"2", TaskPriority::med},       {"!", TaskPriority::med},   {"low", TaskPriority::low},
      {"lo", TaskPriority::low},      {"l", TaskPriority::low},   {"3", TaskPriority::low},
      {"", TaskPriority::low}};
  auto found = kWords.find(lower(word));
  if (found == kWords.end()) return std::nullopt;
  return found->second;
}

TaskDue TaskParse::firstOf(const TaskRepeat& rule, std::optional<ClockTime> time, const Now& now) {
  local_days today = localDay(now.at, now.zone);
  for (int ahead = 0; ahead <= kDaysToSearch; ++ahead) {
    local_days day = today + days{ahead};
    if (!occursOn(rule, day)) continue;
    if (!time) return TaskDue{startOf(day, now.zone), false};
    double at = momentAt(day, *time, now.zone);
    if (at >= now.at) return TaskDue{at, true};
  }
  return TaskDue{startOf(today, now.zone), false};  // a rule that fits no day
}

TaskDue TaskParse::nextDue(const TaskRepeat& rule, const TaskDue& after,
                           const date::time_zone& zone) {
  date::local_seconds wall = localOf(after.at, zone);
  local_days from = date::floor<days>(wall);
  auto sinceMidnight = date::make_time(wall - date::local_seconds{from});
  ClockTime time{static_cast<int>(sinceMidnight.hours().count()),
                 static_cast<int>(sinceMidnight.minutes().count())};
  for (int ahead = 1; ahead <= kDaysToSearch; ++ahead) {
    local_days day = from + days{ahead};
    if (!occursOn(rule, day)) continue;
    if (!after.time) return TaskDue{startOf(day, zone), false};
    return TaskDue{momentAt(day, time, zone), true};
  }
  return after;  // a rule that fits no day
}

}  // namespace vobbo
