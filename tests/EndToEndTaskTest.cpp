// `quibly task` run as a person or a script would run it.
#include <gtest/gtest.h>

#include <algorithm>

#include "JSONValue.h"
#include "TestSupport.h"

namespace vobbo {
namespace {

using test::runProcess;

std::vector<std::string> task(std::initializer_list<std::string> args) {
  std::vector<std::string> argv{QUIBLY_BIN, "task",         "--now", "2026-11-21T10:00:00",
                                "--tz",     "Europe/London"};
  argv.insert(argv.end(), args);
  return argv;
}

TEST(EndToEndTaskTest, ExplainsOneTaskInSentences) {
  auto result = runProcess(task({"pay rent every 1st #home !high"}));
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(result.out,
            "pay rent [every 1st] [#home] [!high]\n"
            "The title is \"pay rent\".\n"
            "It is due 1 December, all day (Tuesday 1 December 2026), in Europe/London time.\n"
            "It repeats every month on the 1st.\n"
            "Its tag is home.\n"
            "Its priority is high.\n");
}

TEST(EndToEndTaskTest, PrintsTheParsedTaskAsJSON) {
  // Words after the options are joined, so quotes are optional.
  auto result = runProcess(task({"--json", "call", "mom", "tomorrow", "at", "5pm"}));
  ASSERT_EQ(result.exitCode, 0) << result.err;
  auto json = JSONValue::parse(result.out);
  ASSERT_OK(json);
  EXPECT_EQ(json->stringAt("title"), "call mom");
  // Sunday 22 November 2026 17:00 GMT, in seconds from 2001-01-01.
  EXPECT_EQ(json->get("due")->encode(), R"({"at":817059600,"time":true})");
  EXPECT_EQ(json->arrayAt("tokens")->size(), 2u);
}

TEST(EndToEndTaskTest, ReadsOneTaskPerLineFromStandardInput) {
  test::ProcessOptions options;
  options.input = "call at 13pm\r\n\n  \nstandup every weekday at 9:15\n\n\xff tea\n";
  auto lines = runProcess(task({}), options);
  EXPECT_EQ(lines.exitCode, 0) << lines.err;
  EXPECT_EQ(lines.out,
            "call at 13pm -> \"call at 13pm\".\n"
            "standup [every weekday] [at 9:15] -> \"standup\"; due Monday at 9:15 (Monday 23 "
            "November 2026); repeats every weekday.\n"
            "\uFFFD tea -> \"\uFFFD tea\".\n");  // a stray byte is shown, not passed on
  auto json = runProcess(task({"--json"}), options);
  EXPECT_EQ(json.exitCode, 0) << json.err;
  EXPECT_EQ(json.out.substr(0, json.out.find('\n')),
            R"({"tags":[],"title":"call at 13pm","tokens":[]})");
  EXPECT_EQ(std::count(json.out.begin(), json.out.end(), '\n'), 3) << "blank lines are skipped";
}

TEST(EndToEndTaskTest, ParsesAListOfTypedTasksOnePerLine) {
  test::ProcessOptions options;
  options.input = test::readFile(QUIBLY_SOURCE_DIR "/bench/data/typed-tasks.txt");
  auto result = runProcess(task({"--json"}), options);
  ASSERT_EQ(result.exitCode, 0) << result.err;
  size_t lines = 0;
  for (size_t at = 0; (at = result.out.find('\n', at)) != std::string::npos; ++at) ++lines;
  EXPECT_EQ(lines,
            static_cast<size_t>(std::count(options.input.begin(), options.input.end(), '\n')));
}

TEST(EndToEndTaskTest, RefusesBadZonesAndTimesWithASentence) {
  auto zone = runProcess({QUIBLY_BIN, "task", "--tz", "Mars/Base", "x"});
  EXPECT_EQ(zone.exitCode, 2);
  EXPECT_EQ(zone.err,
            "There is no time zone called \"Mars/Base\". Use a name such as Europe/London or "
            "America/New_York.\n");
  auto now = runProcess({QUIBLY_BIN, "task", "--now", "next tuesday", "x"});
  EXPECT_EQ(now.exitCode, 2);
  EXPECT_EQ(now.err,
            "\"next tuesday\" is not a time I can read. Write it like 2026-03-08 or "
            "2026-03-08T09:30, with Z or +01:00 at the end for a zone other than the local one.\n");
}

TEST(EndToEndTaskTest, ReadsNowWithOrWithoutSecondsAndZone) {
  // In seconds from 2001-01-01; London is on GMT in November.
  const struct {
    std::string now;
    std::string due;
  } cases[] = {
      {"2026-11-21", R"({"at":816913200,"time":true})"},
      {"2026-11-21T10:00", R"({"at":816949200,"time":true})"},
      {"2026-11-21T10:00:59", R"({"at":816949259,"time":true})"},
      {"2026-11-21T10:00Z", R"({"at":816949200,"time":true})"},
      {"2026-11-21T15:30+05:30", R"({"at":816949200,"time":true})"},
      {"2026-11-21T02:00-0800", R"({"at":816949200,"time":true})"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.now);
    auto result = runProcess(
        {QUIBLY_BIN, "task", "--json", "--tz", "Europe/London", "--now", c.now, "x in 20 min"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(JSONValue::parse(result.out)->get("due")->encode(), c.due);
  }
}

TEST(EndToEndTaskTest, RefusesANowOutsideThePlannableYears) {
  for (std::string now : {"1969-12-31T23:59Z", "2201-01-01", "9999-12-31T00:00"}) {
    SCOPED_TRACE(now);
    auto result = runProcess({QUIBLY_BIN, "task", "--tz", "UTC", "--now", now, "x tomorrow"});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err, "--now " + now +
                              " is outside the years Quibly plans in (1970 to 2200). Give a time "
                              "between them.\n");
    EXPECT_EQ(result.out, "");
  }
  for (std::string now :
       {"2026-02-30", "2026-11-21T24:00", "2026-11-21T10:00+05:77", "\u0662026-11-21"}) {
    SCOPED_TRACE(now);
    EXPECT_EQ(runProcess({QUIBLY_BIN, "task", "--now", now, "x"}).exitCode, 2);
  }
}

TEST(EndToEndTaskTest, ReadsTheZoneFromTZAndZonedTimesAsGiven) {
  test::ProcessOptions options;
  options.env["TZ"] = "America/New_York";
  auto result = runProcess(
      {QUIBLY_BIN, "task", "--json", "--now", "2026-03-07T17:00:00Z", "x tomorrow at 9am"},
      options);
  ASSERT_EQ(result.exitCode, 0) << result.err;
  // 9:00 EDT on 8 March, the day the clocks go forward, is 13:00 UTC.
  EXPECT_EQ(JSONValue::parse(result.out)->get("due")->encode(), R"({"at":794667600,"time":true})");
}

}  // namespace
}  // namespace vobbo
