#include <date/tz.h>
#include <gtest/gtest.h>

#include <string>

#include "Clock.h"
#include "TaskParse.h"
#include "TestSupport.h"

namespace vobbo {
namespace {

// Parses as if typed at a local wall time in a zone, and shows due moments as
// local wall text: "2026-11-22 17:00" for a time, "2026-11-22" for a whole day.
class TaskParseTest : public ::testing::Test {
 protected:
  void at(std::string_view localTime, std::string_view zoneName = "Europe/London") {
    zone_ = date::locate_zone(std::string(zoneName));
    now_ = moment(localTime);
  }
  double moment(std::string_view localTime) const {
    double ms = *Clock::parseISO(localTime);
    auto wall = date::local_seconds{std::chrono::seconds{static_cast<int64_t>(ms / 1000)}};
    return TaskDue::fromMs(
        static_cast<double>(
            zone_->to_sys(wall, date::choose::earliest).time_since_epoch().count()) *
        1000);
  }
  TaskParse::Now now() const { return {now_, *zone_}; }
  ParsedTask parse(std::string_view text) const { return TaskParse::parse(text, now()); }
  std::string wall(const std::optional<TaskDue>& due) const {
    if (!due) return "none";
    auto sys = date::sys_seconds{
        std::chrono::seconds{static_cast<int64_t>(TaskDue::toMs(due->at) / 1000)}};
    return date::format(due->time ? "%Y-%m-%d %H:%M" : "%Y-%m-%d", zone_->to_local(sys));
  }
  std::string dueOf(std::string_view text) const { return wall(parse(text).due); }

  struct Case {
    std::string_view text;
    std::string_view title;
    std::string_view due;
  };
  void expectAll(std::initializer_list<Case> cases) const {
    for (const Case& c : cases) {
      SCOPED_TRACE(c.text);
      ParsedTask task = parse(c.text);
      EXPECT_EQ(task.title, c.title);
      EXPECT_EQ(wall(task.due), c.due);
    }
  }

  const date::time_zone* zone_ = nullptr;
  double now_ = 0;
};

// Saturday 21 November 2026, 10:00 in London, unless a test says otherwise.
constexpr std::string_view kSaturdayMorning = "2026-11-21T10:00:00";

TEST_F(TaskParseTest, RelativeTimes) {
  at(kSaturdayMorning);
  expectAll({
      {"stretch in 20 minutes", "stretch", "2026-11-21 10:20"},
      {"tea in 5m", "tea", "2026-11-21 10:05"},
      {"call in an hour", "call", "2026-11-21 11:00"},
      {"call in half an hour", "call", "2026-11-21 10:30"},
      {"water plants in 2 days", "water plants", "2026-11-23 10:00"},
      {"renew in a week", "renew", "2026-11-28 10:00"},
      {"sit in a meeting", "sit in a meeting", "none"},
      {"in 999 weeks", "", "2046-01-13 10:00"},
  });
}

TEST_F(TaskParseTest, DayWordsWithPartsOfTheDay) {
  at(kSaturdayMorning);
  expectAll({
      {"report today", "report", "2026-11-21"},
      {"movie tonight", "movie", "2026-11-21 20:00"},
      {"call mom tomorrow", "call mom", "2026-11-22"},
      {"gym tmrw morning", "gym", "2026-11-22 09:00"},
      {"nap Tomorrow Afternoon", "nap", "2026-11-22 14:00"},
      {"bins tomorrow night", "bins", "2026-11-22 21:00"},
      {"visit day after tomorrow", "visit", "2026-11-23"},
      {"email this evening", "email", "2026-11-21 18:00"},
      {"hike this weekend", "hike", "2026-11-21"},
      {"plan next week", "plan", "2026-11-23"},
      {"report this week", "report", "2026-11-21"},
      {"tonight at 8 movie", "movie", "2026-11-21 20:00"},
      {"tomorrow morning at 10am run", "run", "2026-11-22 10:00"},
  });
  at("2026-11-18T10:00:00");  // a Wednesday
  expectAll({
      {"hike this weekend", "hike", "2026-11-21"},
      {"report this week", "report", "2026-11-20"},
      {"plan next week", "plan", "2026-11-23"},
  });
}

TEST_F(TaskParseTest, Weekdays) {
  at(kSaturdayMorning);
  expectAll({
      {"drinks on friday evening", "drinks", "2026-11-27 18:00"},
      {"clean on saturday", "clean", "2026-11-28"},
      {"clean this saturday", "clean", "2026-11-21"},
      {"review next monday", "review", "2026-11-23"},
      {"pay by Wednesday at 5pm", "pay", "2026-11-25 17:00"},
      {"friday drinks", "friday drinks", "none"},
  });
}

TEST_F(TaskParseTest, CalendarDatesInBothOrders) {
  at(kSaturdayMorning);
  expectAll({
      {"dentist 5 march", "dentist", "2027-03-05"},
      {"dentist on March 5th at 9:30am", "dentist", "2027-03-05 09:30"},
      {"party 21 november", "party", "2026-11-21"},
      {"party nov 20", "party", "2027-11-20"},
      {"leap 29 feb", "leap", "2028-02-29"},
      {"31 april x", "31 april x", "none"},
      {"32 march x", "32 march x", "none"},
  });
}

TEST_F(TaskParseTest, ClocksAndTheirRefusals) {
  at(kSaturdayMorning);
  expectAll({
      {"call at 12am", "call", "2026-11-22 00:00"},
      {"call at 12pm", "call", "2026-11-21 12:00"},
      {"call at 13pm", "call at 13pm", "none"},
      {"call @5pm", "call", "2026-11-21 17:00"},
      {"call 5:30 p.m.", "call", "2026-11-21 17:30"},
      {"meet at 5", "meet", "2026-11-22 05:00"},  // 5:00 has passed today
      {"meet 5", "meet 5", "none"},
      {"10:30 alone", "alone", "2026-11-21 10:30"},
      {"ship by 18:45", "ship", "2026-11-21 18:45"},
      {"at 24 hours", "24 hours", "none"},
      {"at 10:75", "10:75", "none"},
      {"today at 9am", "", "2026-11-21 09:00"},  // said today: stays, late
      {"at 10:30pm sleep", "sleep", "2026-11-21 22:30"},
      {"call at 0am", "call at 0am", "none"},
      {"call at 1 P.M.", "call", "2026-11-21 13:00"},
      {"meet at 0", "meet", "2026-11-22 00:00"},
      {"meet at 23", "meet", "2026-11-21 23:00"},
  });
}

TEST_F(TaskParseTest, FindsNumbersAfterWordsAndWideSpaces) {
  at(kSaturdayMorning);
  expectAll({
      {"x on\u00A0september\u3000 5", "x", "2027-09-05"},
      {"rent every\u00A0 1st", "rent", "2026-12-01"},
      {"call @ 9 ok", "call ok", "2026-11-22 09:00"},
      {"call by\t\t7pm", "call", "2026-11-21 19:00"},
      {"v2 ship by 7pm", "v2 ship", "2026-11-21 19:00"},
  });
}

TEST_F(TaskParseTest, NamedTimes) {
  at(kSaturdayMorning);
  expectAll({
      {"lunch at noon", "lunch", "2026-11-21 12:00"},
      {"lunch midday", "lunch", "2026-11-21 12:00"},
      {"deploy at midnight", "deploy", "2026-11-22 00:00"},
  });
}

TEST_F(TaskParseTest, Repeats) {
  at(kSaturdayMorning);
  const struct {
    std::string_view text;
    std::optional<TaskRepeat> repeat;
    std::string_view due;
  } cases[] = {
      {"pay rent every 1st", TaskRepeat{TaskRepeat::Every::month, {}, 1}, "2026-12-01"},
      {"pay rent every 32nd", std::nullopt, "none"},
      {"pay rent every 0th", std::nullopt, "none"},
      {"stretch every day", TaskRepeat{TaskRepeat::Every::day, {}, {}}, "2026-11-21"},
      {"standup every weekday at 9:15", TaskRepeat{TaskRepeat::Every::weekday, {}, {}},
       "2026-11-23 09:15"},
      {"sync weekly", TaskRepeat{TaskRepeat::Every::week, 7, {}}, "2026-11-21"},
      {"bills monthly", TaskRepeat{TaskRepeat::Every::month, {}, 21}, "2026-11-21"},
      {"report every fri", TaskRepeat{TaskRepeat::Every::week, 6, {}}, "2026-11-27"},
      {"weekly review every sunday", TaskRepeat{TaskRepeat::Every::week, 1, {}}, "2026-11-22"},
      {"monthly report every 5th", TaskRepeat{TaskRepeat::Every::month, {}, 5}, "2026-12-05"},
      {"every day every monday", TaskRepeat{TaskRepeat::Every::day, {}, {}}, "2026-11-21"},
      {"pills every morning", TaskRepeat{TaskRepeat::Every::day, {}, {}}, "2026-11-22 09:00"},
      {"walk every evening at 7", TaskRepeat{TaskRepeat::Every::day, {}, {}}, "2026-11-21 19:00"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    ParsedTask task = parse(c.text);
    EXPECT_EQ(task.repeat, c.repeat);
    EXPECT_EQ(wall(task.due), c.due);
  }
  EXPECT_EQ(parse("pay rent every 32nd").title, "pay rent every 32nd");
}

TEST_F(TaskParseTest, RepeatsFollowTheCalendar) {
  at("2027-01-31T08:00:00");
  TaskRepeat lastDay{TaskRepeat::Every::month, {}, 31};
  TaskDue due = TaskParse::firstOf(lastDay, TaskParse::ClockTime{9, 0}, now());
  std::vector<std::string> seen;
  for (int i = 0; i < 3; ++i, due = TaskParse::nextDue(lastDay, due, *zone_))
    seen.push_back(wall(due));
  EXPECT_EQ(seen,
            (std::vector<std::string>{"2027-01-31 09:00", "2027-02-28 09:00", "2027-03-31 09:00"}));

  at("2026-03-06T10:00:00", "America/New_York");  // a Friday before the clocks go forward
  TaskRepeat weekdays{TaskRepeat::Every::weekday, {}, {}};
  due = TaskParse::firstOf(weekdays, TaskParse::ClockTime{9, 0}, now());
  EXPECT_EQ(wall(due), "2026-03-09 09:00");
  EXPECT_EQ(wall(TaskParse::nextDue(weekdays, due, *zone_)), "2026-03-10 09:00");
  EXPECT_EQ(wall(TaskParse::nextDue(TaskRepeat{TaskRepeat::Every::week, 2, {}},
                                    TaskDue{moment("2026-03-02T00:00:00"), false}, *zone_)),
            "2026-03-09");
}

TEST_F(TaskParseTest, TagsAndPriorities) {
  at(kSaturdayMorning);
  const struct {
    std::string_view text;
    std::string_view title;
    std::vector<std::string> tags;
    std::optional<TaskPriority> priority;
  } cases[] = {
      {"review #work/q3 #work/q3 #café", "review", {"work/q3", "café"}, std::nullopt},
      {"a#b c", "a#b c", {}, std::nullopt},
      {"fix prod !!!", "fix prod", {}, TaskPriority::high},
      {"fix prod !!", "fix prod", {}, TaskPriority::med},
      {"fix prod !", "fix prod", {}, TaskPriority::low},
      {"!High fix", "fix", {}, TaskPriority::high},
      {"fix !2", "fix", {}, TaskPriority::med},
      {"fix !lo !high", "fix !high", {}, TaskPriority::low},
      {"fix !bogus", "fix !bogus", {}, std::nullopt},
      {"wow! nice", "wow! nice", {}, std::nullopt},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    ParsedTask task = parse(c.text);
    EXPECT_EQ(task.title, c.title);
    EXPECT_EQ(task.tags, c.tags);
    EXPECT_EQ(task.priority, c.priority);
  }
}

TEST_F(TaskParseTest, TitleCleanUp) {
  at(kSaturdayMorning);
  expectAll({
      {"due tomorrow, report", "report", "2026-11-22"},
      {"call mom, tomorrow", "call mom", "2026-11-22"},
      {"meeting on 5 march", "meeting", "2027-03-05"},
      {"finish   draft  by friday", "finish draft", "2026-11-27"},
      {"- buy milk tomorrow;", "buy milk", "2026-11-22"},
      {"tomorrow", "", "2026-11-22"},
  });
}

TEST_F(TaskParseTest, DaylightSavingChangeDays) {
  at("2026-03-07T12:00:00", "America/New_York");  // clocks go forward at 2:00 on 8 March
  const double utcNoon = TaskDue::fromMs(*Clock::parseISO("2026-03-08T16:00:00Z"));
  EXPECT_EQ(parse("x in 1 day").due, (TaskDue{utcNoon, true}));  // 23 hours: same wall clock
  expectAll({
      {"x tomorrow at 9am", "x", "2026-03-08 09:00"},
      {"x tomorrow at 2:30am", "x", "2026-03-08 03:30"},  // skipped: moves on by the gap
      {"x tomorrow", "x", "2026-03-08"},
  });
  at("2026-10-24T12:00:00");  // London goes back at 2:00 on 25 October
  EXPECT_EQ(parse("x tomorrow at 1:30am").due->at,
            TaskDue::fromMs(*Clock::parseISO("2026-10-25T00:30:00Z")));  // the first 1:30
  EXPECT_EQ(parse("x in 1 day").due->at, TaskDue::fromMs(*Clock::parseISO("2026-10-25T12:00:00Z")));
}

TEST_F(TaskParseTest, TokensCountCharactersAsSeen) {
  at(kSaturdayMorning);
  // "café" written with a combining accent, a flag and a family are one character each.
  ParsedTask task = parse(
      "cafe\u0301 \U0001F1EC\U0001F1E7 \U0001F468\u200D\U0001F469\u200D\U0001F467 "
      "tomorrow at 9am #home");
  ASSERT_EQ(task.tokens.size(), 3u);
  EXPECT_EQ(task.tokens[0], (TaskToken{TaskToken::Kind::date, 9, 17, "tomorrow"}));
  EXPECT_EQ(task.tokens[1], (TaskToken{TaskToken::Kind::time, 18, 24, "at 9am"}));
  EXPECT_EQ(task.tokens[2], (TaskToken{TaskToken::Kind::tag, 25, 30, "#home"}));
  EXPECT_EQ(task.title,
            "cafe\u0301 \U0001F1EC\U0001F1E7 \U0001F468\u200D\U0001F469\u200D\U0001F467");
  // A tag stops before a combining accent; its token still covers the whole accented letter.
  task = parse("#a\u0301 #b\u0301");
  ASSERT_EQ(task.tokens.size(), 2u);
  EXPECT_EQ(task.tokens[0].start, 0u);
  EXPECT_EQ(task.tokens[0].end, 2u);
  EXPECT_EQ(task.tokens[1].start, 3u);
  EXPECT_EQ(task.tokens[1].end, 5u);
}

TEST_F(TaskParseTest, RoundTripsThroughJSON) {
  at(kSaturdayMorning);
  ParsedTask task = parse("pay rent every 1st at 9am #home !high");
  JSONValue json = toJSON(task);
  EXPECT_EQ(fromJSON<ParsedTask>(json), task);
  EXPECT_EQ(json.get("repeat")->encode(), R"({"date":1,"every":"month"})");
  EXPECT_EQ(json.get("tokens")->array()->at(0).encode(),
            R"({"end":18,"kind":"repeat","start":9,"text":"every 1st"})");
}

TEST_F(TaskParseTest, BadInputStillGivesAResult) {
  at(kSaturdayMorning);
  std::string huge;
  for (int i = 0; huge.size() < 100 * 1024; ++i) huge += "at at #t !! tomorrow 99:99 in 9 m ";
  const std::string cases[] = {
      "",
      "   ",
      "!?.,;:-#@",
      "\xff\xfe tomorrow \xc3",
      "at 99:99 in 0 m every 99th 0 jan",
      "at \u0663pm in \u0663 days every \u0663rd",
      "!!!!",
      huge,
  };
  for (const std::string& text : cases) {
    SCOPED_TRACE(text.substr(0, 40));
    ParsedTask task = parse(text);
    for (const TaskToken& token : task.tokens) EXPECT_LT(token.start, token.end);
  }
  EXPECT_EQ(parse("\xff\xfe tomorrow \xc3").tokens.at(0).start, 3u);
  EXPECT_EQ(dueOf("at \u0663pm in \u0663 days"), "none");
  ParsedTask hugeTask = parse(huge);
  EXPECT_EQ(hugeTask.tags, std::vector<std::string>{"t"});
  EXPECT_EQ(wall(hugeTask.due), "2026-11-21 10:09");
}

TEST_F(TaskParseTest, ReadsNoDatesWhenNowIsOutsideThePlannableYears) {
  // Calendar arithmetic pulls far moments into range, which would show a wrong
  // date as if it were right; such a now reads only tags and priorities.
  zone_ = date::locate_zone("UTC");
  const double kYear = 365.2425 * 86400;
  for (double at : {TaskDue::fromMs(-1000), 230 * kYear, 1e12, -1e12}) {
    SCOPED_TRACE(at);
    ParsedTask task =
        TaskParse::parse("pay rent tomorrow at 5pm every 1st #home !high", {at, *zone_});
    EXPECT_EQ(task.title, "pay rent tomorrow at 5pm every 1st");
    EXPECT_EQ(task.due, std::nullopt);
    EXPECT_EQ(task.repeat, std::nullopt);
    EXPECT_EQ(task.tags, std::vector<std::string>{"home"});
    EXPECT_EQ(task.priority, TaskPriority::high);
  }
  at("2200-12-31T23:00:00", "UTC");
  EXPECT_EQ(dueOf("x in 999 weeks"), "2220-02-23 23:00");
}

}  // namespace
}  // namespace vobbo
