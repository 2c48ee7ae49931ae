#include <date/tz.h>

#include <cmath>

#include "Clock.h"
#include "TestSupport.h"

namespace vobbo {
namespace {

TEST(ClockTest, ParsesISOTimes) {
  const double base = 1795273876000.0;  // 2026-11-21T15:11:16Z
  const struct {
    const char* text;
    double ms;
  } cases[] = {
      {"2026-11-21T15:11:16Z", base},
      {"2026-11-21T15:11:16.5Z", base + 500},
      {"2026-11-21T15:11:16.123456789Z", base + 123.456789},
      {"2026-11-21T15:11:16", base},
      {"2026-11-21 15:11:16+00:00", base},
      {"2026-11-21T16:11:16+01:00", base},
      {"2026-11-21T10:11:16-0500", base},
      {"1970-01-01T00:00:00Z", 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    auto ms = Clock::parseISO(c.text);
    ASSERT_TRUE(ms);
    EXPECT_NEAR(*ms, c.ms, 1e-3);
  }
  for (const char* bad :
       {"", "2026-11-21", "2026-13-01T00:00:00Z", "2026-02-30T00:00:00Z", "2026-11-21T24:00:00Z",
        "2026-11-21T15:11:16Zjunk", "2026-11-21T15:11:16.Z", "true", "1795273876"}) {
    SCOPED_TRACE(bad);
    EXPECT_FALSE(Clock::parseISO(bad));
  }
}

TEST(ClockTest, WritesRecordTimesThatReadBack) {
  const struct {
    double ms;
    const char* text;
  } cases[] = {
      {1795273876000.0, "2026-11-21T15:11:16.000Z"},
      {1795273876999.9, "2026-11-21T15:11:16.999Z"},  // floored, never rounded up
      {951782400000.0, "2000-02-29T00:00:00.000Z"},
      {-1.0, "1969-12-31T23:59:59.999Z"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(Clock::iso(c.ms), c.text);
    auto back = Clock::parseISO(Clock::iso(c.ms));
    ASSERT_TRUE(back);
    EXPECT_NEAR(*back, std::floor(c.ms), 1e-3);
  }
}

TEST(ClockTest, CountsDaysFromCivil) {
  EXPECT_EQ(Clock::daysFromCivil(1970, 1, 1), 0);
  EXPECT_EQ(Clock::daysFromCivil(2001, 1, 1), 11323);
  EXPECT_EQ(Clock::daysFromCivil(1969, 12, 31), -1);
  EXPECT_EQ(Clock::daysFromCivil(2000, 3, 1) - Clock::daysFromCivil(2000, 2, 28), 2);  // leap day
}

TEST(ClockTest, ReadsProcessStartTimesInTheirZone) {
  const date::time_zone* newYork = date::locate_zone("America/New_York");
  // 10:11:16 in New York in November is 15:11:16 UTC.
  EXPECT_EQ(Clock::parseLstart("Sat Nov 21 10:11:16 2026", *newYork), 1795273876000.0);
  EXPECT_EQ(Clock::parseLstart("Nov  1 00:00:00 2026", *date::locate_zone("UTC")),
            Clock::daysFromCivil(2026, 11, 1) * 86400000.0);
  EXPECT_FALSE(Clock::parseLstart("Sat Foo 21 10:11:16 2026", *newYork));
  EXPECT_FALSE(Clock::parseLstart("", *newYork));
}

}  // namespace
}  // namespace vobbo
