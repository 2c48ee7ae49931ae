// The built quibly-approve and quibly, run as child processes against real
// sockets in temporary folders.

#include <signal.h>
#include <sys/socket.h>

#include <condition_variable>
#include <mutex>
#include <random>
#include <thread>

#include "ApprovalListener.h"
#include "ApproveSocket.h"
#include "Files.h"
#include "TestSupport.h"

namespace vobbo {
namespace {

using Decision = ApproveWire::Decision;
using test::ProcessOptions;
using test::ProcessResult;

const std::string kAllowLine =
    R"({"hookSpecificOutput":{"decision":{"behavior":"allow"},"hookEventName":"PermissionRequest"}})"
    "\n";
const std::string kDenyLine =
    R"({"hookSpecificOutput":{"decision":{"behavior":"deny","message":"Denied from Quibly."},)"
    R"("hookEventName":"PermissionRequest"}})"
    "\n";

std::string sample(std::string_view name) {
  return test::readFile(test::sourcePath("samples/agents/" + std::string(name)));
}

ProcessOptions hookOptions(const std::string& socket, std::string input) {
  ProcessOptions o;
  o.input = std::move(input);
  o.env["QUIBLY_APPROVE_SOCKET"] = socket;
  return o;
}

ProcessResult runHook(std::vector<std::string> args, const ProcessOptions& options) {
  args.insert(args.begin(), QUIBLY_APPROVE_BIN);
  return test::runProcess(args, options);
}

// A stand-in app that answers each hook with a fixed line (or closes, or holds
// the connection open), and records the request lines it received.
class ScriptedApp {
 public:
  enum class Then { answer, hold };
  ScriptedApp(std::string path, std::string answer, Then then)
      : answer_(std::move(answer)), then_(then) {
    auto fd = ApproveSocket::listen(path);
    EXPECT_TRUE(fd);
    if (fd) listener_ = std::move(*fd);
    thread_ = std::thread([this] { serve(); });
  }
  ~ScriptedApp() {
    ::shutdown(listener_.get(), SHUT_RDWR);
    thread_.join();
  }
  std::string waitForLine() {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, std::chrono::seconds(10), [&] { return !lines_.empty(); });
    return lines_.empty() ? "" : lines_.front();
  }

 private:
  void serve() {
    for (;;) {
      auto fd = ApproveSocket::accept(listener_.get());
      if (!fd) return;
      auto line = ApproveSocket::readLine(fd->get(), 10, 65536);
      {
        std::lock_guard lock(mutex_);
        lines_.push_back(line.value_or(""));
      }
      changed_.notify_all();
      if (then_ == Then::answer) (void)ApproveSocket::write(fd->get(), answer_);
      if (then_ == Then::hold) held_.push_back(std::move(*fd));
    }
  }
  Descriptor listener_;
  std::string answer_;
  Then then_;
  std::vector<Descriptor> held_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::string> lines_;
  std::thread thread_;
};

TEST(EndToEndApproveTest, PrintsTheAnswerTheAppGives) {
  const struct {
    std::string reply;
    std::string printed;
  } cases[] = {
      {"{\"decision\":\"allow\"}\n", kAllowLine},
      {"{\"decision\":\"deny\"}\n", kDenyLine},
      {"{\"decision\":\"defer\"}\n", ""},
      {"{\"decision\":\"maybe\"}\n", ""},
      {"{\"decision\":\"allow\"}", ""},  // the app closed before ending the line
      {"not json\n", ""},
      {"", ""},  // the app closed without a word
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.reply);
    test::TempDir dir;
    ScriptedApp app(dir.file("a.sock"), c.reply, ScriptedApp::Then::answer);
    auto r = runHook({"claude"},
                     hookOptions(dir.file("a.sock"), sample("claude-PermissionRequest-Bash.json")));
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out, c.printed);
    EXPECT_EQ(r.err, "");
    auto request = ApproveWire::parse<ApproveWire::Request>(app.waitForLine());
    ASSERT_TRUE(request);
    EXPECT_EQ(request->summary, "echo hello > out.txt");
  }
}

TEST(EndToEndApproveTest, StaysSilentWhenNoAppAnswers) {
  test::TempDir dir;
  auto none = runHook(
      {"codex"}, hookOptions(dir.file("none.sock"), sample("codex-PermissionRequest-Bash.json")));
  EXPECT_EQ(none.exitCode, 0);
  EXPECT_EQ(none.out + none.err, "");
  EXPECT_LT(none.elapsedMs, 2000);
}

TEST(EndToEndApproveTest, WaitingAgentsSendANoticeAndNeverWait) {
  for (std::string agent : {"grok", "gemini"}) {
    SCOPED_TRACE(agent);
    test::TempDir dir;
    ScriptedApp app(dir.file("a.sock"), "{\"decision\":\"allow\"}\n", ScriptedApp::Then::hold);
    auto r = runHook({agent}, hookOptions(dir.file("a.sock"),
                                          sample("gemini-Notification-ToolPermission.json")));
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out, "");
    EXPECT_LT(r.elapsedMs, 5000);
    auto request = ApproveWire::parse<ApproveWire::Request>(app.waitForLine());
    ASSERT_TRUE(request);
    EXPECT_EQ(request->kind, ApproveWire::Kind::waiting);
    EXPECT_EQ(rawValue(request->agent), agent);
  }
}

TEST(EndToEndApproveTest, PrintsUsageForAMissingOrUnknownAgent) {
  for (std::vector<std::string> args :
       {std::vector<std::string>{}, {"Claude"}, {""}, {"cursor", "claude"}}) {
    auto r = runHook(args, {});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "usage: quibly-approve claude|codex|grok|gemini\n");
  }
}

TEST(EndToEndApproveTest, AnEmptySocketVariableMeansTheDefaultPath) {
  test::TempDir home;
  std::string folder = home.path() + "/.local/share/Vobbo Native";
  ASSERT_OK(Files::createDirectories(folder));
  ScriptedApp app(folder + "/approve.sock", "{\"decision\":\"allow\"}\n",
                  ScriptedApp::Then::answer);
  ProcessOptions o = hookOptions("", sample("claude-PermissionRequest-Bash.json"));
  o.env["HOME"] = home.path();
  o.env["XDG_DATA_HOME"] = std::nullopt;
  auto r = runHook({"claude", "ignored"}, o);
  EXPECT_EQ(r.out, kAllowLine);
}

TEST(EndToEndApproveTest, SurvivesAnyInput) {
  test::TempDir dir;
  ScriptedApp app(dir.file("a.sock"), "{\"decision\":\"allow\"}\n", ScriptedApp::Then::answer);
  std::mt19937 random(7);
  std::string noise(4096, '\0');
  for (char& c : noise) c = static_cast<char>(random());
  std::string huge =
      R"({"tool_name":"Bash","tool_input":{"command":")" + std::string(100 << 20, 'x') + "\"}}";
  const struct {
    const char* name;
    std::string input;
    std::string printed;
  } cases[] = {
      {"random bytes", noise, ""},
      {"invalid UTF-8", "{\"tool_name\":\"\xff\"}", ""},
      {"deep nesting", std::string(100000, '[') + std::string(100000, ']'), ""},
      {"empty", "", ""},
      {"100 MB event", huge, kAllowLine},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ProcessOptions options = hookOptions(dir.file("a.sock"), c.input);
    options.timeoutSeconds = 180;  // 100 MB takes a while under the sanitizers
    auto r = runHook({"claude"}, options);
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out, c.printed);
    EXPECT_EQ(r.err, "");
  }
}

// The real listener behind real hooks, answering each request with `decide`.
class ListenerApp {
 public:
  explicit ListenerApp(std::string path) {
    ApprovalListener::Handler h;
    h.requested = [this](ApprovalListener::Id, const ApproveWire::Request& r,
                         ApprovalListener::Reply reply) {
      if (decide) reply.send(decide(r));
    };
    auto l = ApprovalListener::start({std::move(path)}, std::move(h));
    EXPECT_OK(l);
    if (l) listener_ = std::move(*l);
  }
  std::function<Decision(const ApproveWire::Request&)> decide;

 private:
  std::unique_ptr<ApprovalListener> listener_;
};

TEST(EndToEndApproveTest, OneListenerAnswersAHundredHooksAtOnce) {
  test::TempDir dir;
  ListenerApp app(dir.file("a.sock"));
  app.decide = [](const ApproveWire::Request& r) {
    return std::stoi(r.session) % 2 ? Decision::deny : Decision::allow;
  };
  std::vector<test::Child> hooks;
  for (int i = 0; i < 100; ++i) {
    std::string event = R"({"tool_name":"Bash","tool_input":{"command":"ls"},"session_id":")" +
                        std::to_string(i) + "\"}";
    hooks.push_back(
        test::Child::start({QUIBLY_APPROVE_BIN, "claude"}, hookOptions(dir.file("a.sock"), event)));
  }
  for (int i = 0; i < 100; ++i) {
    auto r = hooks[static_cast<size_t>(i)].wait();
    EXPECT_EQ(r.out, i % 2 ? kDenyLine : kAllowLine) << "hook " << i;
  }
}

// ---- quibly approve ------------------------------------------------------

test::Child startApprover(const std::string& socket, std::vector<std::string> flags) {
  std::vector<std::string> args = {QUIBLY_BIN, "approve", "--socket", socket};
  args.insert(args.end(), flags.begin(), flags.end());
  ProcessOptions o;
  o.keepInputOpen = true;
  return test::Child::start(args, o);
}

TEST(EndToEndApproveTest, TheTerminalApproverAnswersWithSingleKeys) {
  test::TempDir dir;
  std::string socket = dir.file("a.sock");
  auto approver = startApprover(socket, {});
  ASSERT_TRUE(approver.readUntil("Listening for coding agents at " + socket + "."));

  auto first =
      test::Child::start({QUIBLY_APPROVE_BIN, "claude"},
                         hookOptions(socket, sample("claude-PermissionRequest-Bash.json")));
  ASSERT_TRUE(approver.readUntil("[1] Claude Code asks to run Bash\n    echo hello > out.txt\n"));
  auto second =
      test::Child::start({QUIBLY_APPROVE_BIN, "codex"},
                         hookOptions(socket, sample("codex-PermissionRequest-Bash.json")));
  ASSERT_TRUE(approver.readUntil("[2] Codex asks to run Bash"));
  ASSERT_TRUE(approver.readUntil("[1] a allow · d deny · p pass  (1 more waiting) › "));
  approver.writeInput("xa");  // unknown keys are ignored; a answers the oldest request
  EXPECT_EQ(first.wait().out, kAllowLine);
  ASSERT_TRUE(approver.readUntil("[1] Allowed.\n[2] a allow"));
  approver.writeInput("d");
  EXPECT_EQ(second.wait().out, kDenyLine);

  auto third = test::Child::start(
      {QUIBLY_APPROVE_BIN, "claude"},
      hookOptions(socket, sample("claude-PermissionRequest-AskUserQuestion.json")));
  ASSERT_TRUE(approver.readUntil("[3] Claude Code asks to run AskUserQuestion"));
  third.kill(SIGTERM);
  ASSERT_TRUE(approver.readUntil(
      "[3] Withdrawn: the agent stopped waiting, most often because it was answered in its own "
      "terminal."));

  auto notice =
      runHook({"gemini"}, hookOptions(socket, sample("gemini-Notification-ToolPermission.json")));
  EXPECT_EQ(notice.out, "");
  ASSERT_TRUE(approver.readUntil("Gemini CLI is waiting for you: touch quibly_probe_file.txt"));

  approver.kill(SIGINT);
  auto done = approver.wait();
  EXPECT_EQ(done.exitCode, 0);
  EXPECT_NE(done.out.find("[2] Denied."), std::string::npos);
  EXPECT_NE(done.out.find("Stopped. Agents ask in their own way again."), std::string::npos);
  EXPECT_FALSE(Files::exists(socket));
}

TEST(EndToEndApproveTest, TheApproverAnswersByPolicyAndReportsJSON) {
  test::TempDir dir;
  std::string socket = dir.file("a.sock");
  auto approver = startApprover(socket, {"--deny-all", "--json"});
  ASSERT_TRUE(approver.readUntil("\"event\":\"listening\""));
  auto hook =
      runHook({"claude"}, hookOptions(socket, sample("claude-PermissionRequest-Bash.json")));
  EXPECT_EQ(hook.out, kDenyLine);
  ASSERT_TRUE(approver.readUntil("\"event\":\"decision\""));
  approver.kill(SIGTERM);
  auto done = approver.wait();
  std::vector<std::string> events;
  size_t start = 0;
  for (size_t end; (end = done.out.find('\n', start)) != std::string::npos; start = end + 1) {
    auto line = JSONValue::parse(std::string_view(done.out).substr(start, end - start));
    ASSERT_OK(line);
    events.emplace_back(*line->stringAt("event"));
  }
  EXPECT_EQ(events, (std::vector<std::string>{"listening", "request", "decision", "stopped"}));
  EXPECT_NE(done.out.find(R"("decision":"deny","delivered":true)"), std::string::npos);
}

TEST(EndToEndApproveTest, TheApproverWillNotTakeOverAnotherListener) {
  test::TempDir dir;
  ListenerApp app(dir.file("a.sock"));
  auto r = test::runProcess({QUIBLY_BIN, "approve", "--socket", dir.file("a.sock"), "--allow-all"});
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_EQ(r.err, "Quibly is already listening at " + dir.file("a.sock") +
                       ". Stop it first, or listen elsewhere with --socket.\n");
  auto flags = test::runProcess({QUIBLY_BIN, "approve", "--allow-all", "--deny-all"});
  EXPECT_EQ(flags.exitCode, 2);

  // Nor replace a file of the person's that happens to sit at the path.
  test::writeFile(dir.file("notes.txt"), "my notes");
  auto file =
      test::runProcess({QUIBLY_BIN, "approve", "--socket", dir.file("notes.txt"), "--allow-all"});
  EXPECT_EQ(file.exitCode, 1);
  EXPECT_EQ(file.err,
            "There is already something at " + dir.file("notes.txt") +
                " that is not a socket, so Quibly left it alone and did not listen there.\n");
  EXPECT_EQ(test::readFile(dir.file("notes.txt")), "my notes");
}

// The whole wait: an app that never answers lets the hook go after 110 seconds.
TEST(EndToEndApproveSlowTest, AHookGivesUpAfterItsWait) {
  test::TempDir dir;
  ScriptedApp app(dir.file("a.sock"), "", ScriptedApp::Then::hold);
  ProcessOptions o = hookOptions(dir.file("a.sock"), sample("claude-PermissionRequest-Bash.json"));
  o.timeoutSeconds = 200;
  auto r = runHook({"claude"}, o);
  EXPECT_EQ(r.exitCode, 0);
  EXPECT_EQ(r.out, "");
  EXPECT_GE(r.elapsedMs, 109000);
  EXPECT_LT(r.elapsedMs, 130000);
}

}  // namespace
}  // namespace vobbo
