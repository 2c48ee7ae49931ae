// `quibly sessions` and `quibly transcript`, run as built, over a home folder
// holding the bundled sample transcripts.
#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "JSONValue.h"
#include "TestSupport.h"

namespace vobbo {
namespace {

namespace fs = std::filesystem;

test::ProcessOptions homeEnv(const std::string& home) {
  test::ProcessOptions options;
  options.env = {{"HOME", home}};
  return options;
}

class EndToEndSessionsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::copy(std::string(QUIBLY_SOURCE_DIR) + "/samples/transcripts", home_.path(),
             fs::copy_options::recursive);
  }
  test::ProcessResult quibly(std::vector<std::string> args) {
    args.insert(args.begin(), QUIBLY_BIN);
    return test::runProcess(args, homeEnv(home_.path()));
  }
  test::TempDir home_;
};

TEST_F(EndToEndSessionsTest, ShowsTheSampleSessions) {
  auto result = quibly({"sessions", "--all"});
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_THAT(result.out, testing::StartsWith("AGENT   PROJECT  MODEL"));
  EXPECT_THAT(result.out, testing::HasSubstr("asked a question: Which color should the button…"));
  EXPECT_THAT(result.out, testing::HasSubstr("Done: the probe command finished."));
  // Five sessions; the subagent's own transcript is not a session.
  EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 6);
  EXPECT_EQ(result.err, "");

  // The same sessions as JSON, one entry a line.
  result = quibly({"sessions", "--all", "--json"});
  ASSERT_EQ(result.exitCode, 0) << result.err;
  std::istringstream lines(result.out);
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    auto entry = JSONValue::parse(line);
    ASSERT_OK(entry);
    EXPECT_TRUE(entry->stringAt("agent"));
    EXPECT_TRUE(entry->objectAt("state")) << line;
  }
  EXPECT_EQ(count, 6);
}

TEST_F(EndToEndSessionsTest, SaysWhenThereIsNothingToShow) {
  test::TempDir empty;
  auto result = test::runProcess({QUIBLY_BIN, "sessions", "--all"}, homeEnv(empty.path()));
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.out, "No coding-agent sessions were found in " + empty.path() + ".\n");
  result = test::runProcess({QUIBLY_BIN, "sessions"}, homeEnv(empty.path()));
  EXPECT_EQ(result.out,
            "No coding-agent session has been active in the last day. Add --all to see older "
            "ones.\n");
}

TEST_F(EndToEndSessionsTest, WatchRedrawsWhenATranscriptGrows) {
  std::string file = home_.path() + "/.claude/projects/-tmp-live/live.jsonl";
  fs::create_directories(fs::path(file).parent_path());
  std::ofstream(file) << R"({"type":"user","uuid":"p","message":{"content":"start"}})"
                      << "\n";
  auto child = test::Child::start({QUIBLY_BIN, "sessions", "--watch"}, homeEnv(home_.path()));
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));
  std::ofstream(file, std::ios::app)
      << R"({"type":"assistant","uuid":"a","message":{"content":[{"type":"tool_use","id":"t","name":"Bash","input":{"command":"make check"}}]}})"
      << "\n";
  std::this_thread::sleep_for(std::chrono::milliseconds(2500));
  child.kill(SIGTERM);
  auto result = child.wait();
  EXPECT_THAT(result.out, testing::HasSubstr("running Bash make check"));
  EXPECT_THAT(result.out, testing::HasSubstr("\x1b[H\x1b[2J"));
}

TEST_F(EndToEndSessionsTest, TranscriptPrintsOneFilesState) {
  std::string codex = home_.path() +
                      "/.codex/sessions/2026/11/21/"
                      "rollout-2026-11-21T15-11-16-01a1fea9-62f8-7723-aba9-854d45647fb6.jsonl";
  auto result = quibly({"transcript", codex});
  ASSERT_EQ(result.exitCode, 0) << result.err;
  auto state = JSONValue::parse(result.out);
  ASSERT_OK(state);
  EXPECT_EQ(state->stringAt("model"), "gpt-5.1-codex");
  EXPECT_EQ(state->numberAt("tokens"), 264);

  const std::string notes = home_.path() + "/notes.txt";
  test::writeFile(notes, "not a transcript\n");
  const struct {
    std::vector<std::string> args;
    int exitCode;
    std::string err;
  } failures[] = {
      {{"transcript", codex, "--agent", "copilot"},
       2,
       "There is no agent called \"copilot\". Name one of claude, codex, gemini, grok, cursor or "
       "aider.\n"},
      {{"transcript", notes},
       2,
       "Quibly cannot tell which agent wrote " + notes +
           ". Name it with --agent (claude, codex, gemini, grok, cursor or aider).\n"},
      // Whether the file can be read is said before any guess from its name.
      {{"transcript", "/nowhere/notes.txt"},
       1,
       "Quibly could not read /nowhere/notes.txt: No such file or directory.\n"},
      {{"transcript", home_.path()},
       1,
       "Quibly could not read " + home_.path() +
           ": it is a folder. Name one transcript file in it.\n"},
  };
  for (const auto& f : failures) {
    SCOPED_TRACE(f.args[1]);
    auto failed = quibly(f.args);
    EXPECT_EQ(failed.exitCode, f.exitCode);
    EXPECT_EQ(failed.err, f.err);
    EXPECT_EQ(failed.out, "");
  }
}

}  // namespace
}  // namespace vobbo
