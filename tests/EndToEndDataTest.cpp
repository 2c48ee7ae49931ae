// `quibly data` run as the person runs it, against a temporary home folder.

#include "Files.h"
#include "JSONValue.h"
#include "TestSupport.h"

namespace vobbo {
namespace {

using test::TempDir;

class EndToEndDataTest : public ::testing::Test {
 protected:
  test::ProcessResult quibly(std::vector<std::string> args,
                             std::optional<std::string> dataDir = std::nullopt) {
    args.insert(args.begin(), {QUIBLY_BIN, "data"});
    test::ProcessOptions options;
    options.env = {{"HOME", home_.path()},
                   {"XDG_DATA_HOME", std::nullopt},
                   {"VOBBO_DATA_DIR", dataDir},
                   {"OBSIDIAN_VAULT_PATH", std::nullopt},
                   {"VOBBO_API_URL", "https://sync.example"}};
    return test::runProcess(args, options);
  }
  JSONValue json(const test::ProcessResult& result) {
    auto parsed = JSONValue::parse(result.out);
    EXPECT_TRUE(parsed.ok()) << result.out << result.err;
    return parsed.ok() ? *parsed : JSONValue();
  }
  std::string defaultStore() const {
    return home_.file(".local/share/Vobbo Native/vobbo-store.json");
  }

  TempDir home_;
};

TEST_F(EndToEndDataTest, ShowsWhereEachKindOfDataLives) {
  auto shown = quibly({});
  EXPECT_EQ(shown.exitCode, 0) << shown.err;
  EXPECT_NE(shown.out.find("Tasks, notes and settings: " + defaultStore() + " (not there yet)\n"),
            std::string::npos)
      << shown.out;
  EXPECT_NE(shown.out.find("Sync: https://sync.example\n"), std::string::npos);

  JSONValue rows = json(quibly({"--json"}));
  ASSERT_TRUE(rows.arrayAt("rows"));
  EXPECT_EQ(rows.arrayAt("rows")->size(), 7u);
  EXPECT_EQ(rows.get("facts")->stringAt("dataDir"), home_.file(".local/share/Vobbo Native"));
}

TEST_F(EndToEndDataTest, MigrateNamesWhatRanThenFindsNothingToDo) {
  ASSERT_OK(Files::createDirectories(home_.file("d")));
  test::writeFile(home_.file("d/vobbo-store.json"), R"({"theme":"neon","loginItem":"TRUE"})");
  auto first = quibly({"migrate"}, home_.file("d"));
  EXPECT_EQ(first.exitCode, 0) << first.err;
  EXPECT_EQ(first.out, "Applied 2 migrations to " + home_.file("d/vobbo-store.json") +
                           ":\n  theme and loginItem hold only what their readers accept\n"
                           "  a half-done welcome step is a string of at most 32\n");
  JSONValue second = json(quibly({"migrate", "--json"}, "~/d"));
  EXPECT_EQ(second.encode(), R"({"applied":[],"saved":true,"storeVersion":2})");
  EXPECT_EQ(test::readFile(home_.file("d/vobbo-store.json")),
            "{\n  \"loginItem\": false,\n  \"storeVersion\": 2,\n  \"theme\": \"light\"\n}\n");
}

TEST_F(EndToEndDataTest, ExportWritesADatedFileWithoutSecrets) {
  ASSERT_OK(Files::createDirectories(home_.file("d")));
  ASSERT_OK(Files::createDirectories(home_.file("out")));
  test::writeFile(home_.file("d/vobbo-store.json"), R"({"tasks":[1],"googleToken":"t"})");
  JSONValue result = json(quibly({"export", home_.file("out"), "--json"}, home_.file("d")));
  const std::string path(result.stringAt("path").value_or(""));
  EXPECT_TRUE(Files::lastComponent(path).starts_with("vobbo-export-")) << path;
  EXPECT_EQ(result.stringAt("message"), "Exported Quibly’s data to " + path + ".");
  auto exported = JSONValue::parse(test::readFile(path));
  ASSERT_OK(exported);
  EXPECT_EQ(exported->get("data")->encode(), R"({"tasks":[1]})");

  auto missing = quibly({"export", home_.file("nowhere")}, home_.file("d"));
  EXPECT_EQ(missing.exitCode, 1);
  EXPECT_EQ(missing.err, "Could not export: " + home_.file("nowhere") + " is not a folder.\n");
}

TEST_F(EndToEndDataTest, DamagedStoreIsNeitherExportedNorMigratedAway) {
  ASSERT_OK(Files::createDirectories(home_.file("d")));
  test::writeFile(home_.file("d/vobbo-store.json"), "{\"tasks\": [");
  for (std::string_view verb : {"export", "migrate"}) {
    SCOPED_TRACE(verb);
    auto result = quibly({std::string(verb)}, home_.file("d"));
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, home_.file("d/vobbo-store.json") +
                              " does not hold Quibly’s data as a JSON object, so it was left as "
                              "it is. Repair or remove it, then try again.\n");
  }
  EXPECT_EQ(test::readFile(home_.file("d/vobbo-store.json")), "{\"tasks\": [");
}

TEST_F(EndToEndDataTest, MoveRefusesWithTheCheckSentenceAndMovesAfterVerifying) {
  ASSERT_OK(Files::createDirectories(home_.file("d")));
  ASSERT_OK(Files::createDirectories(home_.file("new")));
  test::writeFile(home_.file("d/vobbo-store.json"), "{\"tasks\":[]}");

  auto same = quibly({"move", home_.file("d")}, home_.file("d"));
  EXPECT_EQ(same.exitCode, 1);
  EXPECT_EQ(same.err, "Quibly’s data is already there.\n");

  auto moved = quibly({"move", home_.file("new")}, home_.file("d"));
  EXPECT_EQ(moved.exitCode, 0) << moved.err;
  EXPECT_EQ(moved.out, "Moved Quibly’s data to " + home_.file("new") + ".\nSet VOBBO_DATA_DIR=" +
                           home_.file("new") + " so Quibly uses that folder.\n");
  EXPECT_EQ(test::readFile(home_.file("new/vobbo-store.json")), "{\"tasks\":[]}");
  EXPECT_FALSE(Files::exists(home_.file("d/vobbo-store.json")));

  JSONValue back = json(quibly({"move", home_.file("d"), "--json"}, home_.file("new")));
  EXPECT_EQ(back.encode(), R"({"dataDir":")" + home_.file("d") +
                               R"(","message":"Moved Quibly’s data to )" + home_.file("d") +
                               R"(.","ok":true})");

  auto nothingYet = quibly({"move", home_.file("new")}, home_.file("empty"));
  EXPECT_EQ(nothingYet.exitCode, 0);
  EXPECT_TRUE(nothingYet.out.starts_with("Nothing saved yet, so new data starts there.\n"));
}

}  // namespace
}  // namespace vobbo
