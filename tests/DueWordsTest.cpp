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
  using Tone = DueWords::Tone;
  using Landing = TodayAdd::Landing::Kind;
  const struct {
    std::string_view at;
    bool time;
    std::string_view text;
    Tone tone;
    Landing landing;
  } cases[] = {
      {"2026-11-21T09:59:00Z", true, "today at 9:59", Tone::late, Landing::today},
      {"2026-11-21T10:20:00Z", true, "in 20 minutes", Tone::soon, Landing::today},
      {"2026-11-21T17:00:00Z", true, "today at 17:00", Tone::today, Landing::today},
      {"2026-11-21T00:00:00Z", false, "today", Tone::today, Landing::today},
      {"2026-11-20T00:00:00Z", false, "yesterday", Tone::late, Landing::today},
      {"2026-11-22T08:05:00Z", true, "tomorrow at 8:05", Tone::later, Landing::later},
      {"2026-11-27T00:00:00Z", false, "Friday", Tone::later, Landing::later},
      {"2026-11-28T00:00:00Z", false, "28 November", Tone::later, Landing::later},
      {"2027-03-05T00:00:00Z", false, "5 March 2027", Tone::later, Landing::later},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    const TaskDue due{utc(c.at), c.time};
    EXPECT_EQ(DueWords::text(due, now), c.text);
    EXPECT_EQ(DueWords::tone(due, now), c.tone);
    TodayAdd::Landing landing = TodayAdd::landing(due, now);
    EXPECT_EQ(landing.kind, c.landing);
    EXPECT_EQ(landing.at, c.landing == Landing::later ? std::optional(due.at) : std::nullopt);
  }
  EXPECT_EQ(TodayAdd::landing(std::nullopt, now).kind, Landing::today);
  EXPECT_EQ(DueWords::fullText({utc("2026-11-22T17:00:00Z"), true}, london),
            "Sunday 22 November 2026 at 17:00");
}

}  // namespace
}  // namespace vobbo
