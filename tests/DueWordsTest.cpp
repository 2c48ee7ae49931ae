#include <date/tz.h>
#include <gtest/gtest.h>

#include "Clock.h"
#include "DueWords.h"
#include "TodayAdd.h"

namespace vobbo {
namespace {

double utc(std::string_view iso) { return TaskDue::fromMs(*Clock::parseISO(iso)); }

TEST(DueWordsTest, WordsAndToneRelativeToNow) {
  const date::time_zone& london = *date::locate_zone("Europe/London");
  TaskParse::Now now{utc("2026-11-21T10:00:00Z"), london};  // a Saturday
  const struct {
    TaskDue due;
    std::string_view text;
    DueWords::Tone tone;
    TodayAdd::Landing::Kind landing;
  } cases[] = {
      {{utc("2026-11-21T09:59:00Z"), true},
       "today at 9:59",
       DueWords::Tone::late,
       TodayAdd::Landing::Kind::today},
      {{utc("2026-11-21T10:20:00Z"), true},
       "in 20 minutes",
       DueWords::Tone::soon,
       TodayAdd::Landing::Kind::today},
      {{utc("2026-11-21T17:00:00Z"), true},
       "today at 17:00",
       DueWords::Tone::today,
       TodayAdd::Landing::Kind::today},
      {{utc("2026-11-21T00:00:00Z"), false},
       "today",
       DueWords::Tone::today,
       TodayAdd::Landing::Kind::today},
      {{utc("2026-11-20T00:00:00Z"), false},
       "yesterday",
       DueWords::Tone::late,
       TodayAdd::Landing::Kind::today},
      {{utc("2026-11-22T08:05:00Z"), true},
       "tomorrow at 8:05",
       DueWords::Tone::later,
       TodayAdd::Landing::Kind::later},
      {{utc("2026-11-27T00:00:00Z"), false},
       "Friday",
       DueWords::Tone::later,
       TodayAdd::Landing::Kind::later},
      {{utc("2026-11-28T00:00:00Z"), false},
       "28 November",
       DueWords::Tone::later,
       TodayAdd::Landing::Kind::later},
      {{utc("2027-03-05T00:00:00Z"), false},
       "5 March 2027",
       DueWords::Tone::later,
       TodayAdd::Landing::Kind::later},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(DueWords::text(c.due, now), c.text);
    EXPECT_EQ(DueWords::tone(c.due, now), c.tone);
    TodayAdd::Landing landing = TodayAdd::landing(c.due, now);
    EXPECT_EQ(landing.kind, c.landing);
    EXPECT_EQ(landing.at, landing.kind == TodayAdd::Landing::Kind::later ? std::optional(c.due.at)
                                                                         : std::nullopt);
  }
  EXPECT_EQ(TodayAdd::landing(std::nullopt, now).kind, TodayAdd::Landing::Kind::today);
  EXPECT_EQ(DueWords::fullText({utc("2026-11-22T17:00:00Z"), true}, london),
            "Sunday 22 November 2026 at 17:00");
}

}  // namespace
}  // namespace vobbo
