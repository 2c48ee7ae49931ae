#include <signal.h>
#include <sys/stat.h>

#include <chrono>
#include <set>
#include <thread>

#include "Ids.h"
#include "Processes.h"
#include "TestSupport.h"

namespace vobbo {
namespace {

using Processes::Options;

Processes::Output sh(const std::string& script, Options options = {}) {
  auto ran = Processes::run({"/bin/sh", "-c", script}, options);
  EXPECT_TRUE(ran.ok()) << (ran.ok() ? "" : ran.error());
  return ran.ok() ? *ran : Processes::Output{};
}

TEST(ProcessesTest, ReportsHowAProgramEnded) {
  Options fed;
  fed.input = "one\ntwo\n";
  auto echoed = sh("cat; echo oops >&2; exit 3", fed);
  EXPECT_EQ(echoed.out, "one\ntwo\n");
  EXPECT_EQ(echoed.err, "oops\n");
  EXPECT_EQ(echoed.exitCode, 3);
  EXPECT_EQ(Processes::describeEnd(echoed), "exited with status 3");

  auto killed = sh("kill -9 $$");
  EXPECT_EQ(killed.exitCode, -1);
  EXPECT_EQ(Processes::describeEnd(killed), "was stopped by signal 9");

  EXPECT_ERROR(Processes::run({"no-such-program-here"}),
               "There is no program called no-such-program-here on this machine.");
  EXPECT_ERROR(Processes::run({}), "No program was named to run.");
}

TEST(ProcessesTest, PassesEnvironmentAndFolder) {
  test::TempDir dir;
  Options options;
  options.cwd = dir.path();
  options.env = {{"QUIBLY_TEST_SET", "yes"}, {"HOME", std::nullopt}};
  auto ran = sh("pwd; echo \"$QUIBLY_TEST_SET/${HOME-unset}\"", options);
  EXPECT_EQ(ran.out, dir.path() + "\nyes/unset\n");
}

TEST(ProcessesTest, TimeLimitStopsTheWholeGroup) {
  // The grandchild holds the output pipe open; it must die with its parent.
  Options options;
  options.timeoutSeconds = 0.3;
  auto ran = sh("sleep 30 & echo started; wait", options);
  EXPECT_TRUE(ran.timedOut);
  EXPECT_EQ(ran.out, "started\n");
  EXPECT_EQ(Processes::describeEnd(ran), "ran out of time");
}

TEST(ProcessesTest, KeepsOnlyTheFirstBytesOfHugeOutput) {
  Options options;
  options.maxOutput = 1000;
  auto ran = sh("head -c 5000000 /dev/zero", options);
  EXPECT_EQ(ran.exitCode, 0);
  EXPECT_EQ(ran.out.size(), 1000u);
  EXPECT_TRUE(ran.truncated);
}

TEST(ProcessesTest, SurvivesAChildThatStopsReadingItsInput) {
  Options options;
  options.input = std::string(4 << 20, 'x');  // far more than a pipe holds
  auto ran = sh("head -c 10 >/dev/null", options);
  EXPECT_EQ(ran.exitCode, 0);
}

TEST(ProcessesTest, StopsABackgroundRunAndEverythingItStarted) {
  test::TempDir dir;
  auto pid = Processes::startBackground({"/bin/sh", "-c", "echo begun; sleep 30 & sleep 30"},
                                        dir.file("run.log"));
  ASSERT_OK(pid);
  for (int i = 0; i < 200 && test::readFile(dir.file("run.log")).empty(); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  EXPECT_EQ(test::readFile(dir.file("run.log")), "begun\n");
  EXPECT_TRUE(Processes::alive(-*pid));
  EXPECT_TRUE(Processes::stopGroup(*pid, 2));
  EXPECT_FALSE(Processes::alive(-*pid));
  EXPECT_FALSE(Processes::stopGroup(*pid, 0));
}

TEST(ProcessesTest, FindsProgramsOnThePath) {
  test::TempDir dir;
  test::writeFile(dir.file("tool"), "#!/bin/sh\n");
  ::chmod(dir.file("tool").c_str(), 0755);
  test::writeFile(dir.file("plain"), "not runnable");
  auto env = [&](std::string_view name) -> std::optional<std::string> {
    if (name == "PATH") return "/nonexistent:" + dir.path();
    return std::nullopt;
  };
  EXPECT_EQ(Processes::which("tool", env), dir.file("tool"));
  EXPECT_EQ(Processes::which("plain", env), std::nullopt);
  EXPECT_EQ(Processes::which(dir.file("tool"), env), dir.file("tool"));
  EXPECT_EQ(Processes::which("", env), std::nullopt);
}

TEST(IdsTest, MakesDistinctVersion4Ids) {
  std::set<std::string> seen;
  for (int i = 0; i < 1000; ++i) {
    std::string id = Ids::uuid();
    ASSERT_TRUE(Ids::isUuid(id)) << id;
    EXPECT_EQ(id[14], '4');
    EXPECT_NE(std::string_view("89ab").find(id[19]), std::string_view::npos) << id;
    seen.insert(id);
  }
  EXPECT_EQ(seen.size(), 1000u);
  for (const char* bad :
       {"", "0f8fad5b-d9cb-469f-a165-70867728950", "0F8FAD5B-D9CB-469F-A165-70867728950E",
        "0f8fad5bd-9cb-469f-a165-70867728950e", "0f8fad5b-d9cb-469f-a165-70867728950g"}) {
    EXPECT_FALSE(Ids::isUuid(bad)) << bad;
  }
  EXPECT_TRUE(Ids::isUuid("0f8fad5b-d9cb-469f-a165-70867728950e"));
}

}  // namespace
}  // namespace vobbo
