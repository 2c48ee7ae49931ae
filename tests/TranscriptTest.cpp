#include <fstream>
#include <sstream>

#include "Clock.h"
#include "TestSupport.h"
#include "Transcript.h"

namespace vobbo {
namespace {

std::vector<std::string> linesOf(const std::string& path) {
  std::vector<std::string> lines;
  std::istringstream in(test::readFile(path));
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

std::vector<std::string_view> views(const std::vector<std::string>& lines) {
  return {lines.begin(), lines.end()};
}

double at(std::string_view iso) { return *Clock::parseISO(iso); }

// Folds lines one at a time into `state`, as a live reader would.
void feed(AgentKind agent, TranscriptState& state, std::initializer_list<std::string_view> lines) {
  for (std::string_view line : lines) Transcript::foldLine(agent, line, state);
}

const char* const kClaudeBash =
    "transcripts/claude/-home-dev-scratch-claude-runs-bash-tui-allow-20261121-151236-work/"
    "d6d05332-27e6-47e1-b20a-19fcb9d9d762.jsonl";
const char* const kClaudeAsk =
    "transcripts/claude/-home-dev-scratch-claude-runs-askuser-tui-answer-Red-20261121-151613-work/"
    "da6d7ef8-46e9-410f-8f36-2a58a2af89e6.jsonl";
const char* const kClaudeAgent =
    "transcripts/claude/-home-dev-scratch-claude-runs-agent-tui-allow-20261121-151646-work/"
    "7c6e173d-f95c-4c12-8641-e07165238fb1.jsonl";

TEST(TranscriptTest, RealClaudeSessionsFoldToTheirEnd) {
  for (const char* file : {kClaudeBash, kClaudeAsk, kClaudeAgent}) {
    SCOPED_TRACE(file);
    auto lines = linesOf(test::dataPath(file));
    TranscriptState s = Transcript::foldClaude(views(lines));
    EXPECT_EQ(s.lastKind, LineKind::assistantText);
    EXPECT_EQ(s.turnEnded, true);
    EXPECT_EQ(s.model, "Opus");
    EXPECT_EQ(s.turns, 1);
    EXPECT_EQ(s.tokens, 360);  // three replies of 100 in + 20 out; cache tokens not counted
    EXPECT_EQ(s.permissionMode, "default");
    ASSERT_TRUE(s.cwd);
    EXPECT_TRUE(s.cwd->starts_with("/home/dev/scratch/claude/runs/"));
    EXPECT_FALSE(Transcript::pendingOf(s));
    EXPECT_FALSE(s.subagent);
  }
  auto sub = linesOf(test::dataPath(
      "transcripts/claude/-home-dev-scratch-claude-runs-agent-tui-allow-20261121-151646-work/"
      "7c6e173d-f95c-4c12-8641-e07165238fb1/subagents/agent-a7361cdcd2706293a.jsonl"));
  EXPECT_EQ(Transcript::foldClaude(views(sub)).subagent, true);
  // A side chain inside a session's own file does not make it a subagent.
  auto mixed = linesOf(test::dataPath(kClaudeBash));
  mixed.push_back(R"({"type":"user","isSidechain":true,"message":{"content":"side"}})");
  EXPECT_FALSE(Transcript::foldClaude(views(mixed)).subagent);
}

// The selective reader must see each record exactly as a full parse would.
TEST(TranscriptTest, SelectiveReadingMatchesFullParse) {
  auto lines = linesOf(test::dataPath(kClaudeAgent));
  for (
      const std::string& extra : std::vector<std::string>{
          R"({"type":"user","uuid":"w1","origin":{"kind":"task-notification"},"message":{"content":[{"type":"tool_result","content":[{"type":"text","text":"<task-notification><task-id>t1</task-id><status>completed</status></task-notification>"}]}]}})",
          R"({"type":"attachment","attachment":{"type":"queued_command","prompt":"hi"},"cwd":"/x"})",
          R"({"type":"task_status","taskType":"local_agent","taskId":"t9","status":"running","timestamp":"2026-11-21T15:20:00Z"})",
          R"({"type":"file-history-snapshot","snapshot":{"a":{"b":"c"}},"timestamp":"2026-11-21T16:00:00Z"})",
      }) {
    lines.push_back(extra);
  }
  TranscriptState selective = Transcript::foldClaude(views(lines));
  TranscriptState full;
  for (const std::string& line : lines) {
    auto record = JSONValue::parse(line);
    if (record && record->object()) Transcript::foldClaudeRow(full, *record, line);
  }
  EXPECT_EQ(toJSON(selective).encode(), toJSON(full).encode());
}

TEST(TranscriptTest, ClaudeToolCallItsResultAndTheTurnsEnd) {
  TranscriptState s;
  feed(
      AgentKind::claude, s,
      {R"({"type":"user","uuid":"p1","timestamp":"2026-11-21T10:00:00Z","message":{"content":"  Fix the build"}})",
       R"({"type":"assistant","uuid":"a1","timestamp":"2026-11-21T10:00:01Z","message":{"model":"claude-sonnet-4","stop_reason":"tool_use","usage":{"input_tokens":10,"output_tokens":5,"cache_read_input_tokens":999},"content":[{"type":"text","text":"Looking."},{"type":"tool_use","id":"t1","name":"Read","input":{"file_path":"/src/a.cpp"}},{"type":"tool_use","id":"t2","input":{"command":"make   -j2\n all"}}]}})"});
  EXPECT_EQ(s.lastKind, LineKind::assistantTool);
  EXPECT_EQ(s.lastTool, "a tool");  // the last tool_use wins, and it has no name
  EXPECT_EQ(s.lastKey, "t2");
  EXPECT_EQ(s.lastText, "make -j2 all");
  EXPECT_EQ(s.toolAt, at("2026-11-21T10:00:01Z"));
  EXPECT_EQ(s.tokens, 15);
  EXPECT_EQ(s.model, "Sonnet");
  EXPECT_EQ(s.turns, 1);

  feed(
      AgentKind::claude, s,
      {R"({"type":"user","timestamp":"2026-11-21T10:00:02Z","message":{"content":[{"type":"tool_result","tool_use_id":"t2","content":"ok"}]}})",
       R"({"type":"assistant","uuid":"a2","timestamp":"2026-11-21T10:00:03Z","message":{"stop_reason":"end_turn","content":[{"type":"text","text":"Built."}]}})"});
  EXPECT_EQ(s.lastKind, LineKind::assistantText);
  EXPECT_EQ(s.saidRaw, "Built.");
  EXPECT_EQ(s.lastStop, "end_turn");
  EXPECT_NE(s.turnEnded, true);

  feed(AgentKind::claude, s,
       {R"({"type":"system","subtype":"turn_duration","timestamp":"2026-11-21T10:00:04Z"})"});
  EXPECT_EQ(s.turnEnded, true);
  EXPECT_EQ(s.turnEndedAt, at("2026-11-21T10:00:04Z"));
  EXPECT_EQ(s.lastAt, at("2026-11-21T10:00:04Z"));
  EXPECT_EQ(s.rev, 5);
  ASSERT_TRUE(s.recent);
  ASSERT_EQ(s.recent->size(), 3u);
  EXPECT_EQ((*s.recent)[0].text, "Fix the build");
  EXPECT_EQ((*s.recent)[1].name, "a tool");
}

TEST(TranscriptTest, QuestionsAndPlansWaitForThePerson) {
  TranscriptState ask;
  feed(
      AgentKind::claude, ask,
      {R"({"type":"assistant","uuid":"a","message":{"content":[{"type":"tool_use","id":"q","name":"AskUserQuestion","input":{"questions":[{"question":"Which colour?","options":[{"label":"Red"},{"label":"Blue"}]},{"question":"Size?"}]}}]}})"});
  auto pending = Transcript::pendingOf(ask);
  ASSERT_TRUE(pending && pending->questions);
  EXPECT_EQ(pending->questions->size(), 2u);
  EXPECT_EQ((*pending->questions)[0],
            (LiveQuestion{"Which colour?", std::vector<std::string>{"Red", "Blue"}}));
  EXPECT_EQ((*pending->questions)[1], (LiveQuestion{"Size?", std::nullopt}));
  EXPECT_EQ(ask.lastText, "Which colour?");

  TranscriptState plan;
  feed(
      AgentKind::claude, plan,
      {R"({"type":"assistant","uuid":"b","message":{"content":[{"type":"tool_use","id":"p","name":"ExitPlanMode","input":{"plan":"\n## Move the parser\n1. Split it"}}]}})"});
  pending = Transcript::pendingOf(plan);
  ASSERT_TRUE(pending && pending->plan);
  EXPECT_EQ(*pending->plan, "\n## Move the parser\n1. Split it");
  EXPECT_EQ(plan.lastText, "Move the parser");

  // Once answered, nothing waits any more.
  feed(
      AgentKind::claude, plan,
      {R"({"type":"user","uuid":"r","message":{"content":[{"type":"tool_result","tool_use_id":"p"}]}})"});
  EXPECT_FALSE(Transcript::pendingOf(plan));
}

TEST(TranscriptTest, InterruptionIsNotATurnAndItsSyntheticReplyEndsIt) {
  TranscriptState s;
  feed(
      AgentKind::claude, s,
      {R"({"type":"assistant","uuid":"a","message":{"model":"claude-opus-4","content":[{"type":"tool_use","id":"t","name":"Bash","input":{"command":"sleep 100"}}]}})",
       R"({"type":"user","uuid":"i","message":{"content":[{"type":"text","text":"[Request interrupted by user for tool use]"}]}})"});
  EXPECT_EQ(s.lastKind, LineKind::interrupted);
  EXPECT_EQ(s.turns, 0);
  feed(
      AgentKind::claude, s,
      {R"({"type":"assistant","uuid":"s","timestamp":"2026-11-21T10:00:00Z","message":{"model":"<synthetic>","content":[{"type":"text","text":"No response requested."}]}})"});
  EXPECT_EQ(s.turnEnded, true);
  EXPECT_EQ(s.lastKind, LineKind::interrupted);
  EXPECT_EQ(s.model, "Opus");
}

TEST(TranscriptTest, PromptWrittenAfterItsReplyDoesNotHideTheRunningTool) {
  TranscriptState s;
  feed(
      AgentKind::claude, s,
      {R"({"type":"assistant","uuid":"a","timestamp":"2026-11-21T10:00:02Z","message":{"content":[{"type":"tool_use","id":"t","name":"Bash","input":{"command":"ls"}}]}})",
       R"({"type":"user","uuid":"p","timestamp":"2026-11-21T10:00:01Z","message":{"content":"list files"}})"});
  EXPECT_EQ(s.lastKind, LineKind::assistantTool);
  EXPECT_EQ(s.turns, 1);
  ASSERT_EQ(s.recent->size(), 2u);
  EXPECT_EQ(s.recent->front().kind, LiveTailItem::Kind::prompt);
}

TEST(TranscriptTest, SubagentsStopOnNotificationsOrAfterTwoHours) {
  TranscriptState s;
  feed(
      AgentKind::claude, s,
      {R"({"type":"user","uuid":"1","timestamp":"2026-11-21T10:00:00Z","message":{"content":[{"type":"tool_result"}]},"toolUseResult":{"status":"async_launched","agentId":"ag1"}})",
       R"({"type":"task_status","taskType":"local_agent","taskId":"bg2","status":"running"})",
       R"({"type":"user","uuid":"2","timestamp":"2026-11-21T10:30:00Z","message":{"content":[{"type":"tool_result"}]},"toolUseResult":{"status":"async_launched","agentId":"ag3"}})"});
  double start = at("2026-11-21T10:00:00Z");
  EXPECT_EQ(Transcript::runningAgents(s, start + 60'000), 3);
  // Two hours on, the first has run out of patience; bg2 (start unknown) still counts.
  EXPECT_EQ(Transcript::runningAgents(s, start + Transcript::agentPatienceMs), 2);

  feed(
      AgentKind::claude, s,
      {R"({"type":"queue-operation","operation":"enqueue","content":"<task-notification><task-id>ag3</task-id><status>completed</status></task-notification> <task-notification><task-id>bg2</task-id><status>running</status></task-notification>"})"});
  EXPECT_EQ(Transcript::runningAgents(s, start + 60'000), 2);
  feed(
      AgentKind::claude, s,
      {R"({"type":"user","uuid":"3","origin":{"kind":"task-notification"},"message":{"content":"<task-notification>\n<task-id>ag1</task-id>\n<status>failed</status>\n</task-notification>"}})",
       R"({"type":"task_status","taskType":"local_agent","taskId":"bg2","status":"completed"})"});
  EXPECT_EQ(s.lastKind, LineKind::woken);
  EXPECT_EQ(Transcript::runningAgents(s, start + 60'000), 0);
}

TEST(TranscriptTest, UnreadableLinesAndWrongTypesLeaveTheStateAlone) {
  TranscriptState s;
  feed(
      AgentKind::claude, s,
      {R"({"type":"user","uuid":"p","timestamp":"2026-11-21T10:00:00Z","message":{"content":"hello"}})"});
  const TranscriptState before = s;
  const std::string torn = R"({"type":"user","message":{"content":"a)";
  const std::string badUTF8 = "{\"type\":\"user\",\"message\":{\"content\":\"\xff\xfe\"}}";
  for (AgentKind agent : allCases<AgentKind>()) {
    if (agent == AgentKind::aider) continue;  // plain text: every line means something
    SCOPED_TRACE(rawValue(agent));
    TranscriptState t = before;
    feed(
        agent, t,
        {"{", " ", "}", "", "not json", "[1,2,3]", "\"text\"", torn, badUTF8,
         std::string(1 << 16, '\0'), R"({"type":5,"payload":[],"role":7})",
         R"({"type":"assistant","message":"words"})",
         R"({"type":"assistant","message":{"content":5,"usage":{"input_tokens":"12","output_tokens":-4}}})",
         R"({"type":"user","message":{"content":[{"type":"tool_result"}]},"toolUseResult":"Error"})",
         R"({"type":"response_item","payload":{"type":"function_call","name":5}})",
         R"({"type":"event_msg","payload":{"type":"token_count","info":[]}})",
         R"({"type":"gemini","toolCalls":"none","tokens":{"total":"9"}})"});
    EXPECT_EQ(t.tokens, before.tokens);
    EXPECT_EQ(t.turns, before.turns);
    EXPECT_EQ(t.model, before.model);
    EXPECT_EQ(t.lastText, before.lastText);
  }
}

TEST(TranscriptTest, RecordsWithoutUuidShareKeysByKindAndTime) {
  auto key = [](std::string_view json, std::string_view kind) {
    return Transcript::lineKey(*JSONValue::parse(json), kind);
  };
  EXPECT_EQ(key(R"({"uuid":"u-1","timestamp":"x"})", "tool"), "u-1");
  EXPECT_EQ(key(R"({"timestamp":"2026-11-21T10:00:00Z"})", "text"), "text@2026-11-21T10:00:00Z");
  EXPECT_EQ(key(R"({"timestamp":1795273876})", "prompt"), "prompt@1795273876");
  EXPECT_EQ(key(R"({"timestamp":true})", "woken"), "woken@true");
  EXPECT_EQ(key(R"({})", "result"), "result@");
  // Two prompts in the same millisecond are one wait to the live list.
  TranscriptState a, b;
  feed(AgentKind::claude, a,
       {R"({"type":"user","timestamp":"2026-11-21T10:00:00Z","message":{"content":"one"}})"});
  feed(AgentKind::claude, b,
       {R"({"type":"user","timestamp":"2026-11-21T10:00:00Z","message":{"content":"two"}})"});
  EXPECT_EQ(a.lastKey, b.lastKey);
}

TEST(TranscriptTest, TailKeepsTheNewestFortyItems) {
  TranscriptState s;
  for (int i = 1; i <= 41; ++i) {
    Transcript::remember(s, {LiveTailItem::Kind::text, std::nullopt, std::to_string(i), i});
  }
  ASSERT_EQ(s.recent->size(), 40u);
  EXPECT_EQ(s.recent->front().text, "2");
  EXPECT_EQ(s.recent->back().text, "41");
}

TEST(TranscriptTest, ToolArgumentIsOneShortLine) {
  const struct {
    std::string_view line;  // a record whose "input" is the call's input
    std::string_view argument;
  } cases[] = {
      {R"({"input":{"file_path":"/home/me/src/main.cpp","command":"x"}})", "main.cpp"},
      {R"({"input":{"notebook_path":"/n/book.ipynb"}})", "book.ipynb"},
      {R"({"input":{"pattern":"TODO\\s+fix","path":"/repo/"}})", "repo"},
      {R"({"input":{"url":"https://example.com","prompt":"Summarise"}})", "Summarise"},
      {R"({"input":{"zeta":"","beta":"second","alpha":"first"}})", "second"},
      {R"({"input":{"command":"echo aaaaaaaaaa bbbbbbbbbb cccccccccc dddddddddd eeeeeeeeee"}})",
       "echo aaaaaaaaaa bbbbbbbbbb cccccccccc ddddd…"},
      {R"({"input":{"description":"Fix the \u00e9t\u00e9 bug"}})", "Fix the été bug"},
      {R"({"input":{}})", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.line);
    auto record = JSONValue::parse(c.line);
    ASSERT_OK(record);
    EXPECT_EQ(Transcript::toolArgument("Tool", *record->get("input"), c.line), c.argument);
  }
  EXPECT_EQ(Transcript::keyOrder(R"({"a":1,"input" : {"b":1,"a":2,"c":3}})",
                                 *JSONValue::parse(R"({"a":2,"b":1,"c":3})")),
            (std::vector<std::string>{"b", "a", "c"}));
}

TEST(TranscriptTest, SmallReaders) {
  EXPECT_EQ(Transcript::shortModel("claude-3-5-HAIKU-2024"), "Haiku");
  EXPECT_EQ(Transcript::commandString(*JSONValue::parse(R"(["git","status",3])")), "git status");
  EXPECT_EQ(Transcript::textOf(*JSONValue::parse(
                R"([{"type":"text","text":"a"},{"type":"image"},{"type":"text","text":"b"}])")),
            "a\nb");
  EXPECT_EQ(Transcript::stoppedTasks("<task-id>x</task-id><status>killed</status>"),
            std::vector<std::string>{});  // not a notification
}

TEST(TranscriptTest, RealCodexSessionAndApprovals) {
  auto lines = linesOf(test::dataPath("transcripts/codex/allow-tui-1.rollout.jsonl"));
  TranscriptState s = Transcript::foldCodex(views(lines));
  EXPECT_EQ(s.sessionId, "01a1fea9-62f8-7723-aba9-854d45647fb6");
  EXPECT_EQ(s.cwd, "/home/dev/scratch/codex/run-allow-tui-1-1795273875/ws");
  EXPECT_EQ(s.model, "gpt-5.1-codex");
  EXPECT_EQ(s.tokens, 264);
  EXPECT_EQ(s.turns, 1);  // the environment context is not a prompt
  EXPECT_EQ(s.turnEnded, true);
  EXPECT_EQ(s.lastText, "Done: the probe command finished.");
  ASSERT_TRUE(s.recent);
  EXPECT_EQ(s.recent->size(), 3u);  // the reply, written three ways, is remembered once
  EXPECT_EQ((*s.recent)[1].text, "touch quibly_probe_file.txt");

  feed(
      AgentKind::codex, s,
      {R"({"timestamp":"2026-11-21T16:00:00Z","type":"event_msg","payload":{"type":"exec_approval_request","call_id":"c9","command":["bash","-lc","rm -rf build"]}})"});
  auto pending = Transcript::pendingOf(s);
  ASSERT_TRUE(pending);
  EXPECT_EQ(pending->call, "rm -rf build");
  EXPECT_EQ(s.lastKey, "c9");
  feed(
      AgentKind::codex, s,
      {R"({"timestamp":"2026-11-21T16:00:01Z","type":"event_msg","payload":{"type":"exec_command_begin","call_id":"c9"}})",
       R"({"timestamp":"2026-11-21T16:00:02Z","type":"event_msg","payload":{"type":"task_complete"})"});
  EXPECT_FALSE(Transcript::pendingOf(s));
  EXPECT_EQ(s.lastKind, LineKind::assistantTool);  // the torn task_complete is skipped
}

TEST(TranscriptTest, RealGeminiSessionCountsRewrittenRowsOnce) {
  auto lines = linesOf(test::dataPath("transcripts/gemini/allow-once.session.jsonl"));
  TranscriptState s = Transcript::foldGemini(views(lines));
  EXPECT_EQ(s.tokens, 220);
  EXPECT_EQ(s.turns, 1);
  EXPECT_EQ(s.cwd, "/home/dev/scratch/gemini/run-1795274111/ws");
  EXPECT_EQ(s.lastTool, "Shell");
  EXPECT_EQ(s.turnEnded, true);

  feed(
      AgentKind::gemini, s,
      {R"({"id":"m9","timestamp":"2026-11-21T16:00:00Z","type":"gemini","content":"","tokens":{"total":50},"toolCalls":[{"id":"c1","name":"write_file","displayName":"WriteFile","args":{"file_path":"/ws/a.txt"},"status":"awaiting_approval"}]})"});
  EXPECT_EQ(s.approvalAsked, true);
  EXPECT_EQ(s.lastKey, "gemini:c1");
  EXPECT_EQ(s.lastText, "a.txt");
  EXPECT_TRUE(Transcript::pendingOf(s));
  feed(
      AgentKind::gemini, s,
      {R"({"id":"m9","timestamp":"2026-11-21T16:00:00Z","type":"gemini","content":"","tokens":{"total":60},"toolCalls":[{"id":"c1","name":"write_file","args":{"file_path":"/ws/a.txt"},"status":"success"}]})",
       R"({"id":"e1","timestamp":"2026-11-21T16:00:05Z","type":"error","content":"quota"})"});
  EXPECT_EQ(s.tokens, 280);
  EXPECT_EQ(s.lastError, true);
  EXPECT_EQ(s.lastText, "stopped on an error");
  EXPECT_EQ(s.turnEnded, true);
}

TEST(TranscriptTest, GrokEventsFollowTheTurn) {
  TranscriptState s;
  feed(
      AgentKind::grok, s,
      {R"({"type":"turn_started","prompt":"tidy up","model_id":"grok-code-fast-1","timestamp":"2026-11-21T10:00:00Z"})",
       R"({"type":"tool_started","tool_name":"bash","tool_call_id":"g1","args":"{\"command\":\"ls -la\"}"})",
       R"({"type":"permission_requested","tool_call_id":"g1"})"});
  EXPECT_EQ(s.model, "grok-code-fast-1");
  EXPECT_EQ(s.lastKey, "grok:g1");
  EXPECT_EQ(s.lastText, "ls -la");
  EXPECT_TRUE(Transcript::pendingOf(s));
  feed(AgentKind::grok, s,
       {R"({"type":"permission_resolved","decision":"deny","tool_call_id":"g1"})",
        R"({"type":"turn_ended","outcome":"cancelled"})"});
  EXPECT_FALSE(Transcript::pendingOf(s));
  EXPECT_EQ(s.lastKind, LineKind::interrupted);
  EXPECT_EQ(s.turnEnded, true);
  EXPECT_EQ(s.turns, 1);
}

TEST(TranscriptTest, CursorAndAiderKeepTheSameMeanings) {
  TranscriptState cursor;
  feed(
      AgentKind::cursor, cursor,
      {R"({"role":"user","content":[{"type":"text","text":"<user_query>\nadd tests\n</user_query>"}]})",
       R"({"role":"assistant","content":[{"type":"text","text":"Sure."},{"type":"tool-call","toolCallId":"k1","toolName":"edit_file","args":{"target_file":"a_test.go"}}]})"});
  EXPECT_EQ(cursor.turns, 1);
  EXPECT_EQ(cursor.lastText, "a_test.go");
  EXPECT_EQ(cursor.lastKey, "cursor:k1");
  feed(AgentKind::cursor, cursor,
       {R"({"role":"tool","content":[{"type":"tool-result","toolCallId":"k1"}]})"});
  EXPECT_EQ(cursor.lastKind, LineKind::toolResult);

  TranscriptState aider = Transcript::foldAider(
      "# aider chat started at 2026-11-21 10:00:00\n\n#### make the tests pass\n#### quickly\n\n"
      "I will fix the import.\nThen run them.\n\n> Applied edit to src/app.py\n"
      "> Tokens: 2.5k sent, 310 received. Cost: $0.01 message.\n");
  EXPECT_EQ(aider.turns, 1);
  EXPECT_EQ(aider.tokens, 2810);
  EXPECT_EQ(aider.turnEnded, true);
  EXPECT_EQ(aider.lastTool, "Edit");
  EXPECT_EQ(aider.saidRaw, "I will fix the import.\nThen run them.");
  EXPECT_EQ(aider.lastAt, at("2026-11-21T10:00:00Z"));
}

TEST(TranscriptTest, StateRoundTripsThroughJSON) {
  auto lines = linesOf(test::dataPath(kClaudeAsk));
  TranscriptState s = Transcript::foldClaude(views(lines));
  s.agents = std::map<std::string, double>{{"a", 0}, {"b", 1795274211572}};
  s.partial = true;
  s.rowTokens = 3;
  JSONValue json = toJSON(s);
  EXPECT_EQ(json.stringAt("lastKind"), "assistantText");
  EXPECT_EQ(fromJSON<TranscriptState>(*JSONValue::parse(json.encode())), s);
  IndexedTranscript entry{"/p", "id", AgentKind::gemini, 1.5, 10, s, "/cwd", "slug", true};
  EXPECT_EQ(fromJSON<IndexedTranscript>(toJSON(entry)), entry);
}

TEST(TranscriptDeathTest, CounterOverflowIsFatal) {
  int64_t counter = INT64_MAX - 1;
  addChecked(counter, 1);
  EXPECT_EQ(counter, INT64_MAX);
  EXPECT_DEATH(addChecked(counter, 1), "");
}

}  // namespace
}  // namespace vobbo
