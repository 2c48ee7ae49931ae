#include "ApproveWire.h"
#include "TestSupport.h"
#include "Text.h"

namespace vobbo {
namespace {

using Agent = ApproveWire::Agent;
using Kind = ApproveWire::Kind;

std::string sample(std::string_view name) {
  return test::readFile(test::sourcePath("samples/agents/" + std::string(name)));
}

TEST(ApproveWireTest, BuildsRequestsFromRealAgentEvents) {
  const struct {
    const char* file;
    Agent agent;
    Kind kind;
    const char* tool;
    const char* summary;
    const char* session;
  } cases[] = {
      {"claude-PermissionRequest-Bash.json", Agent::claude, Kind::approval, "Bash",
       "echo hello > out.txt", "d6d05332-27e6-47e1-b20a-19fcb9d9d762"},
      {"claude-PermissionRequest-AskUserQuestion.json", Agent::claude, Kind::approval,
       "AskUserQuestion", "AskUserQuestion: Which color should the button be? (Blue, Red)",
       "1852d722-d734-4581-8d53-8dc0b53fdc7d"},
      {"claude-PermissionRequest-Bash-from-subagent.json", Agent::claude, Kind::approval, "Bash",
       "general-purpose agent: echo from-subagent > sub.txt",
       "7c6e173d-f95c-4c12-8641-e07165238fb1"},
      {"codex-PermissionRequest-Bash.json", Agent::codex, Kind::approval, "Bash",
       "touch quibly_probe_file.txt", "01a1fea9-62f8-7723-aba9-854d45647fb6"},
      {"gemini-Notification-ToolPermission.json", Agent::gemini, Kind::waiting,
       "Confirm Shell Command", "touch quibly_probe_file.txt",
       "7bfdc2ae-60c9-4991-9169-f126dfddaa1f"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.file);
    auto r = ApproveWire::request(sample(c.file), c.agent, 4242);
    ASSERT_TRUE(r);
    EXPECT_EQ(r->agent, c.agent);
    EXPECT_EQ(r->kind, c.kind);
    EXPECT_EQ(r->tool, c.tool);
    EXPECT_EQ(r->summary, c.summary);
    EXPECT_EQ(r->session, c.session);
    EXPECT_EQ(r->cwd.rfind("/home/dev/scratch/", 0), 0u);
    EXPECT_EQ(r->pid, 4242);
    // What the hook sends is what the app reads.
    std::string line = ApproveWire::line(*r);
    ASSERT_EQ(line.back(), '\n');
    EXPECT_EQ(ApproveWire::parse<ApproveWire::Request>(line.substr(0, line.size() - 1)), r);
  }
}

TEST(ApproveWireTest, ReadsEventsAsEachAgentNamesThings) {
  const struct {
    const char* event;
    Agent agent;
    std::optional<std::string> summary;  // nothing: the event is not forwarded
  } cases[] = {
      {R"({"tool_name":"Bash","tool_input":{"command":"ls"},"cwd":"/w","session_id":"s"})",
       Agent::grok, "ls"},
      {R"({"toolName":"Read","toolInput":{"file_path":"/a/b.txt"}})", Agent::claude,
       "Read /a/b.txt"},
      {R"({"tool_name":"WebFetch","tool_input":{"url":"u"}})", Agent::claude, "WebFetch: u"},
      {R"({"tool_name":"exec","tool_input":{"cmd":["git","status",3]}})", Agent::codex,
       "git status"},
      {R"({"tool_name":"Edit","tool_input":{"path":""}})", Agent::claude, "Edit"},
      {R"({"tool_name":"ExitPlanMode","tool_input":{"plan":"\n## Ship it\nthen more"}})",
       Agent::claude, "ExitPlanMode: Ship it"},
      {R"({"message":"Needs\nyou  "})", Agent::claude, "Needs you"},
      {R"({"title":"Waiting"})", Agent::grok, "Waiting"},
      {R"({"subagentType":"Explore"})", Agent::claude, "Explore agent"},
      {R"({"notification_type":"ToolPermission","details":{"toolName":"shell"}})", Agent::gemini,
       "shell"},
      {R"({"notification_type":"Idle","message":"m"})", Agent::gemini, std::nullopt},
      {R"({"notification_type":"Idle","message":"m"})", Agent::claude, "m"},
      {R"({"message":"m"})", Agent::gemini, "m"},
      {R"([1,2])", Agent::claude, std::nullopt},
      {"not json", Agent::claude, std::nullopt},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.event);
    auto r = ApproveWire::request(c.event, c.agent, 1);
    ASSERT_EQ(r.has_value(), c.summary.has_value());
    if (r) {
      EXPECT_EQ(r->summary, *c.summary);
    }
  }
  auto r = ApproveWire::request(R"({"workspaceRoot":"/root","sessionId":"abc"})", Agent::claude, 1);
  EXPECT_EQ(r->cwd, "/root");
  EXPECT_EQ(r->session, "abc");
  EXPECT_EQ(r->tool, "");
}

TEST(ApproveWireTest, CutsLongSummariesToFourHundredCharacters) {
  auto summaryOf = [](const std::string& command) {
    JSONValue event(
        JSONObject{{"tool_name", "Bash"}, {"tool_input", JSONObject{{"command", command}}}});
    return ApproveWire::request(event.encode(), Agent::claude, 1)->summary;
  };
  std::string exact(400, 'x');
  EXPECT_EQ(summaryOf(exact), exact);
  EXPECT_EQ(summaryOf(std::string(1000, 'y')), std::string(399, 'y') + "\u2026");
  // A multi-byte character at the cut is kept whole, never split.
  std::string accents;
  for (int i = 0; i < 500; ++i) accents += "é";
  std::string cut = summaryOf(accents);
  EXPECT_TRUE(Text::isValidUTF8(cut));
  EXPECT_EQ(Text::characterCount(cut), 400u);
}

TEST(ApproveWireTest, NamesTheFilesOfACodexPatch) {
  const char* patch =
      "*** Begin Patch\n*** Update File: src/a.c\n@@\n-x\n+y\n*** Add File: b/a.c\n+z\n"
      "*** Delete File: docs/old.md\r\n*** End Patch";
  EXPECT_EQ(CodexPatch::files(patch), (std::vector<std::string>{"a.c", "old.md"}));
  JSONValue input(JSONObject{{"command", patch}});
  EXPECT_EQ(ApproveWire::summarize("apply_patch", &input), "Edit a.c, old.md");
  JSONValue noFiles(JSONObject{{"command", "echo"}});
  EXPECT_EQ(ApproveWire::summarize("apply_patch", &noFiles), "echo");
  EXPECT_EQ(ApproveWire::summarize("Bash", nullptr), "Bash");
}

TEST(ApproveWireTest, ParsesOnlyWellFormedLines) {
  EXPECT_EQ(ApproveWire::parse<ApproveWire::Reply>(R"({"decision":"deny"})")->decision,
            ApproveWire::Decision::deny);
  EXPECT_EQ(ApproveWire::line(ApproveWire::Reply{ApproveWire::Decision::allow}),
            "{\"decision\":\"allow\"}\n");
  const char* refused[] = {
      R"({"decision":"maybe"})",
      R"({"decision":"Allow"})",
      R"({"choice":"allow"})",
      R"(["allow"])",
      "",
      "{",
  };
  for (const char* line : refused) {
    SCOPED_TRACE(line);
    EXPECT_FALSE(ApproveWire::parse<ApproveWire::Reply>(line));
  }
  const char* badRequests[] = {
      R"({"agent":"nobody","kind":"approval","tool":"","summary":"","cwd":"","session":"","pid":1})",
      R"({"agent":"claude","kind":"approval","tool":"","summary":"","cwd":"","session":"","pid":1.5})",
      R"({"agent":"claude","kind":"approval","tool":"","summary":"","cwd":"","session":"","pid":3000000000})",
      R"({"agent":"claude","kind":"approval","tool":"","summary":"","cwd":"","session":""})",
  };
  for (const char* line : badRequests) {
    SCOPED_TRACE(line);
    EXPECT_FALSE(ApproveWire::parse<ApproveWire::Request>(line));
  }
}

TEST(ApproveWireTest, FindsTheSocketPath) {
  auto env = [](std::map<std::string, std::string> vars) -> Platform::Env {
    return [vars](std::string_view name) -> std::optional<std::string> {
      auto it = vars.find(std::string(name));
      if (it == vars.end()) return std::nullopt;
      return it->second;
    };
  };
  EXPECT_EQ(ApproveWire::socketPath("/h", env({{"QUIBLY_APPROVE_SOCKET", "/s.sock"}})), "/s.sock");
#if defined(__APPLE__)
  EXPECT_EQ(ApproveWire::socketPath("/h", env({{"QUIBLY_APPROVE_SOCKET", ""}})),
            "/h/Library/Application Support/Vobbo Native/approve.sock");
#else
  EXPECT_EQ(ApproveWire::socketPath("/h", env({{"QUIBLY_APPROVE_SOCKET", ""}})),
            "/h/.local/share/Vobbo Native/approve.sock");
  EXPECT_EQ(ApproveWire::socketPath("/h", env({{"XDG_DATA_HOME", "/x"}})),
            "/x/Vobbo Native/approve.sock");
#endif
}

TEST(ApproveLineBufferTest, SplitsLinesAndBoundsWhatItKeeps) {
  ApproveLineBuffer b;
  EXPECT_FALSE(b.feed("ab"));
  EXPECT_EQ(b.feed("c\nde\nf"), "abc");
  EXPECT_EQ(b.feed(""), "de");  // drained one line per call
  EXPECT_FALSE(b.feed(""));
  EXPECT_EQ(b.buf, "f");
  b.buf.clear();
  EXPECT_FALSE(b.feed(std::string(ApproveWire::kMaxLine, 'x')));
  EXPECT_FALSE(b.overflowing());
  EXPECT_FALSE(b.feed("x"));
  EXPECT_TRUE(b.overflowing());
}

}  // namespace
}  // namespace vobbo
