// `quibly hooks` run as the person runs it, in a temporary home folder.

#include <filesystem>

#include "Files.h"
#include "HookConfig.h"
#include "JSONValue.h"
#include "TestSupport.h"

namespace vobbo {
namespace {

namespace fs = std::filesystem;

// A temporary home, and quibly installed beside quibly-approve as a package
// would put them.
struct Session {
  test::TempDir home;
  std::string bin = home.file("bin");

  Session() {
    fs::create_directory(bin);
    fs::copy_file(QUIBLY_BIN, bin + "/quibly");
    fs::copy_file(QUIBLY_APPROVE_BIN, bin + "/quibly-approve");
  }

  test::ProcessResult quibly(std::vector<std::string> args, std::string program = "") const {
    args.insert(args.begin(), program.empty() ? bin + "/quibly" : program);
    test::ProcessOptions options;
    options.env["HOME"] = home.path();
    return test::runProcess(args, options);
  }
  std::string settings(std::string_view suffix) const { return home.path() + std::string(suffix); }
};

JSONValue json(const std::string& text) {
  auto parsed = JSONValue::parse(text);
  EXPECT_TRUE(parsed.ok()) << text;
  return parsed.ok() ? *parsed : JSONValue();
}

TEST(EndToEndHooksTest, InstallsShowsAndRemovesForEveryAgent) {
  Session s;
  auto install = s.quibly({"hooks", "install"});
  EXPECT_EQ(install.exitCode, 0) << install.err;
  for (const char* expected :
       {"Installed the approval hook for Claude Code in ", "/.claude/settings.json, a new file.",
        "restart Claude Code sessions that are already running.", "\"Hooks need review\"",
        "/.grok/hooks/quibly.json", "folders you have trusted"}) {
    EXPECT_NE(install.out.find(expected), std::string::npos) << expected << "\n" << install.out;
  }

  // The installed command runs the quibly-approve beside quibly through a shell.
  auto settings = json(test::readFile(s.settings("/.claude/settings.json")));
  const std::string command =
      HookConfig::command(s.bin + "/quibly-approve", ApproveWire::Agent::claude);
  const JSONValue* entries = settings.objectAt("hooks")->find("PermissionRequest");
  ASSERT_TRUE(entries && entries->array());
  EXPECT_EQ(entries->array()->front().arrayAt("hooks")->front().stringAt("command"), command);
  test::ProcessOptions event;
  event.input = "{}";
  EXPECT_EQ(test::runProcess({"/bin/sh", "-c", command}, event).exitCode, 0);

  auto status = s.quibly({"hooks"});
  EXPECT_EQ(status.exitCode, 0);
  EXPECT_NE(status.out.find("Gemini CLI   on          " + s.settings("/.gemini/settings.json")),
            std::string::npos)
      << status.out;
  auto rows = json(s.quibly({"hooks", "--json"}).out);
  ASSERT_TRUE(rows.array());
  ASSERT_EQ(rows.array()->size(), 4u);
  for (const JSONValue& row : *rows.array()) EXPECT_EQ(row.stringAt("state"), "on");

  auto remove = s.quibly({"hooks", "remove"});
  EXPECT_EQ(remove.exitCode, 0) << remove.err;
  EXPECT_NE(remove.out.find("by deleting " + s.settings("/.grok/hooks/quibly.json")),
            std::string::npos);
  EXPECT_NE(remove.out.find("The file as it was is saved at " +
                            s.settings("/.codex/hooks.json.quibly-backup")),
            std::string::npos);
  rows = json(s.quibly({"hooks", "--json"}).out);
  ASSERT_TRUE(rows.array());
  for (const JSONValue& row : *rows.array()) {
    EXPECT_EQ(row.stringAt("state"), "off");
  }
}

TEST(EndToEndHooksTest, AnUnreadableFileStopsOnlyItsOwnAgent) {
  Session s;
  const std::string gemini = s.settings("/.gemini/settings.json");
  fs::create_directory(s.settings("/.gemini"));
  test::writeFile(gemini, "{\"ui\": {\"theme\": \"Default\"},");

  auto install = s.quibly({"hooks", "install", "--json"});
  EXPECT_EQ(install.exitCode, 1);
  auto rows = json(install.out);
  ASSERT_TRUE(rows.array());
  ASSERT_EQ(rows.array()->size(), 4u);
  EXPECT_EQ(rows.array()->at(0).stringAt("action"), "installed");
  EXPECT_EQ(rows.array()->at(3).stringAt("error"),
            gemini +
                " cannot be read as settings, so Quibly left it unchanged. The text is not "
                "valid JSON: a bracket, brace, comma or colon is missing or out of place, or "
                "something follows the end.");
  EXPECT_EQ(test::readFile(gemini), "{\"ui\": {\"theme\": \"Default\"},");

  auto status = s.quibly({"hooks"});
  EXPECT_NE(status.out.find("Gemini CLI   unreadable  " + gemini), std::string::npos) << status.out;
  auto remove = s.quibly({"hooks", "remove", "--agent", "gemini"});
  EXPECT_EQ(remove.exitCode, 1);
  EXPECT_NE(remove.err.find(gemini + " cannot be read as settings"), std::string::npos);
}

TEST(EndToEndHooksTest, TellsWhatIsWrongWithTheCommandLine) {
  Session s;
  const struct {
    std::vector<std::string> args;
    std::string program;
    int exitCode;
    std::string err;
  } cases[] = {
      {{"hooks", "install", "--agent", "copilot"},
       "",
       2,
       "There is no agent called \"copilot\": name claude, codex, grok or gemini.\n"},
      {{"hooks", "install", "--helper", "/bin/true"},
       "",
       2,
       "The helper /bin/true is not a quibly-approve program: its name must contain "
       "\"quibly-approve\" so Quibly can find its entry again.\n"},
      {{"hooks", "install"},
       s.home.file("alone/quibly"),
       1,
       "There is no quibly-approve beside quibly at " + s.home.file("alone") +
           "/quibly-approve. Install it there, or name it with --helper PATH.\n"},
  };
  fs::create_directory(s.home.file("alone"));
  fs::copy_file(QUIBLY_BIN, s.home.file("alone/quibly"));
  for (const auto& c : cases) {
    SCOPED_TRACE(c.args.back());
    auto ran = s.quibly(c.args, c.program);
    EXPECT_EQ(ran.exitCode, c.exitCode);
    EXPECT_EQ(ran.err, c.err);
  }
  EXPECT_FALSE(Files::exists(s.settings("/.claude")));
}

}  // namespace
}  // namespace vobbo
