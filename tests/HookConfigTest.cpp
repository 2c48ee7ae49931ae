#include <sys/stat.h>

#include "HookConfig.h"
#include "TestSupport.h"

namespace vobbo {
namespace {

using Agent = ApproveWire::Agent;
using Target = HookConfig::Target;

constexpr std::string_view kHelper = "/opt/quibly/bin/quibly-approve";

JSONObject parsed(std::string_view bytes) {
  auto root = HookConfig::root(bytes, "settings.json");
  EXPECT_TRUE(root.ok()) << bytes;
  return root.ok() ? *root : JSONObject{};
}

const JSONValue::Array& eventList(const JSONObject& root, const Target& target) {
  static const JSONValue::Array kNone;
  const JSONValue* hooks = root.find("hooks");
  const JSONValue::Array* list = hooks ? hooks->arrayAt(target.event) : nullptr;
  return list ? *list : kNone;
}

// Settings as people keep them: keys we do not know at every depth, text that
// is not ASCII, numbers in unusual spellings, and hooks of their own under the
// very events we use.
constexpr std::string_view kBusySettings = R"js({
  "model": "opus",
  "ünïcode ключ": "värde – “quoted” 🚀",
  "numbers": [1.0e2, -0, 0.1, -12.5e-3, 9007199254740991],
  "nested": {"deep": [[[]], [{}], {"a": {"b": {"c": [null, true, false]}}}]},
  "empty": {},
  "url": "https://example.com/a/b",
  "hooks": {
    "PermissionRequest": [
      {"matcher": "Bash", "hooks": [{"type": "command", "command": "/usr/local/bin/audit", "x": {"k": 1}}]},
      {"hooks": [{"type": "command", "command": "notify-send asked"}]}
    ],
    "Notification": [{"matcher": "*", "hooks": [{"type": "command", "command": "say hi"}]}],
    "PreToolUse": [{"matcher": "*", "hooks": [{"type": "command", "command": "echo pre"}]}],
    "x-custom": {"keep": true}
  },
  "permissions": {"allow": ["Bash(ls:*)"], "deny": []
}
})js";

TEST(HookConfigTest, InstallAndRemoveKeepEverythingElse) {
  for (const Target& target : Target::all("/home/me")) {
    SCOPED_TRACE(target.path);
    auto installed = HookConfig::install(kBusySettings, target, kHelper);
    ASSERT_OK(installed);
    EXPECT_TRUE(HookConfig::isInstalled(*installed, target));
    EXPECT_NE(installed->find("\"https://example.com/a/b\""), std::string::npos);

    // Our entry comes last; without it the settings are exactly as they were.
    JSONObject after = parsed(*installed);
    JSONValue::Array list = eventList(after, target);
    ASSERT_EQ(list.size(), eventList(parsed(kBusySettings), target).size() + 1);
    EXPECT_EQ(list.back().arrayAt("hooks")->front().stringAt("command"),
              HookConfig::command(kHelper, target.agent));
    list.pop_back();
    (*after["hooks"].object())[target.event] = list;
    EXPECT_EQ(after, parsed(kBusySettings));

    // Installing again changes nothing; a moved helper replaces the old path.
    auto again = HookConfig::install(*installed, target, kHelper);
    ASSERT_OK(again);
    EXPECT_EQ(*again, *installed);
    auto moved = HookConfig::install(kBusySettings, target, "/old/quibly-approve");
    ASSERT_OK(moved);
    auto replaced = HookConfig::install(*moved, target, kHelper);
    ASSERT_OK(replaced);
    EXPECT_EQ(*replaced, *installed);

    auto removed = HookConfig::remove(*installed, target);
    ASSERT_OK(removed);
    EXPECT_EQ(parsed(*removed), parsed(kBusySettings));
    EXPECT_FALSE(HookConfig::isInstalled(*removed, target));
  }
}

TEST(HookConfigTest, WritesTheEntryEachAgentExpects) {
  // Byte for byte: pretty, keys sorted, "/" unescaped, a final line feed.
  auto grok = HookConfig::install(std::nullopt, Target::grok("/home/me"), kHelper);
  ASSERT_OK(grok);
  EXPECT_EQ(*grok, R"({
  "hooks": {
    "Notification": [
      {
        "hooks": [
          {
            "command": "'/opt/quibly/bin/quibly-approve' grok",
            "timeout": 120,
            "type": "command"
          }
        ],
        "matcher": "permission_prompt"
      }
    ]
  }
}
)");

  // The files Codex and Gemini CLI ran our hook from, as they were written.
  const std::string codexSample = test::readFile(test::dataPath("agents/codex-hooks.json"));
  auto codex =
      HookConfig::install(std::nullopt, Target::codex("/home/dev"),
                          "/home/dev/scratch/codex/run-allow-tui-0-1795273949/quibly-approve");
  ASSERT_OK(codex);
  EXPECT_EQ(parsed(*codex), parsed(codexSample));

  const std::string geminiSample =
      test::readFile(test::dataPath("agents/gemini-settings-as-written.json"));
  JSONObject geminiBefore = parsed(geminiSample);
  geminiBefore.erase("hooks");
  auto gemini = HookConfig::install(HookConfig::encode(geminiBefore), Target::gemini("/home/dev"),
                                    "/home/dev/scratch/gemini/run-1795274111/quibly-approve");
  ASSERT_OK(gemini);
  EXPECT_EQ(parsed(*gemini), parsed(geminiSample));
}

TEST(HookConfigTest, RemoveTakesOutOnlyWhatIsOurs) {
  const Target target = Target::claude("/home/me");
  const struct {
    std::string_view before;
    std::string_view after;
  } cases[] = {
      // Nothing of ours: the same settings come back, and no "hooks" is added.
      {"{}", "{}"},
      {R"({"a": [1, {"b": null}]})", R"({"a": [1, {"b": null}]})"},
      {R"({"hooks": null})", R"({"hooks": null})"},
      {R"({"hooks": {"Stop": []}})", R"({"hooks": {"Stop": []}})"},
      // The last entry goes with its event's key; "hooks" stays, even empty.
      {R"({"hooks": {"PermissionRequest": [{"hooks": [{"command": "'/x/quibly-approve' claude"}]}]}})",
       R"({"hooks": {}})"},
      // A hand-written entry that merely mentions the helper counts as ours,
      // however deep in its list; other entries keep their order.
      {R"({"hooks": {"PermissionRequest": [
          {"hooks": [{"command": "a"}]},
          {"hooks": [{"command": "b"}, {"command": "env DEBUG=1 quibly-approve claude"}]},
          "not an entry",
          {"hooks": "not a list"},
          {"hooks": [{"command": "c"}]}]}})",
       R"({"hooks": {"PermissionRequest": [{"hooks": [{"command": "a"}]}, "not an entry",
          {"hooks": "not a list"}, {"hooks": [{"command": "c"}]}]}})"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.before);
    auto removed = HookConfig::remove(c.before, target);
    ASSERT_OK(removed);
    EXPECT_EQ(parsed(*removed), parsed(c.after));
  }
}

TEST(HookConfigTest, RefusesSettingsItCannotEditSafely) {
  const Target target = Target::gemini("/home/me");
  const std::string prefix =
      "/home/me/.gemini/settings.json cannot be read as settings, so Quibly left it unchanged. ";
  const struct {
    std::string_view bytes;
    std::string_view reason;
  } cases[] = {
      {"", "The text is empty, so it is not JSON."},
      {"{\"a\": 1", "The text is not valid JSON: "},
      {"{\"a\": \"\xff\"}", "The text is not valid UTF-8, so it is not JSON."},
      {"[]", "Its top level is a list, not an object."},
      {"null", "Its top level is null, not an object."},
      {R"({"hooks": []})", "Its \"hooks\" key holds a list, not an object."},
      {R"({"hooks": "none"})", "Its \"hooks\" key holds text, not an object."},
      {R"({"hooks": {"Notification": {"hooks": []}}})",
       "Its \"hooks\" object holds an object under \"Notification\", not a list."},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.bytes);
    for (const auto& result :
         {HookConfig::install(c.bytes, target, kHelper), HookConfig::remove(c.bytes, target)}) {
      ASSERT_FALSE(result.ok());
      EXPECT_EQ(result.error().substr(0, prefix.size() + c.reason.size()),
                prefix + std::string(c.reason));
    }
    EXPECT_FALSE(HookConfig::check(c.bytes, target).ok());
    EXPECT_FALSE(HookConfig::isInstalled(c.bytes, target));
  }
}

TEST(HookConfigTest, RefusesAHelperItCouldNotRecogniseAgain) {
  EXPECT_ERROR(HookConfig::install("{}", Target::codex("/h"), "/usr/bin/my-hook"),
               "The hook command /usr/bin/my-hook does not contain \"quibly-approve\", so Quibly "
               "could not find its entry again to replace or remove it.");
}

// The command goes to the agent's shell; a real /bin/sh must run the helper at
// its odd path with the agent's word as the only argument.
TEST(HookConfigTest, ShellReadsTheHelperPathAsOneWord) {
  const std::string_view folders[] = {"with space",  "it's",  "''",     "'lead",     "trail'",
                                      "$HOME",       "`id`",  "$(id)",  "a;b&c|d",   "ünï 日本",
                                      "back\\slash", "*?[x]", "\"dq\"", "new\nline", "~tilde"};
  test::TempDir dir;
  for (std::string_view folder : folders) {
    SCOPED_TRACE(folder);
    const std::string place = dir.file(folder);
    ASSERT_EQ(::mkdir(place.c_str(), 0700), 0);
    const std::string helper = place + "/quibly-approve";
    test::writeFile(helper, "#!/bin/sh\nprintf '%s|' \"$#\" \"$@\"\n");
    ASSERT_EQ(::chmod(helper.c_str(), 0700), 0);
    auto ran = test::runProcess({"/bin/sh", "-c", HookConfig::command(helper, Agent::codex)});
    EXPECT_EQ(ran.exitCode, 0) << ran.err;
    EXPECT_EQ(ran.out, "1|codex|");
  }
}

}  // namespace
}  // namespace vobbo
