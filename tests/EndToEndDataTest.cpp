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
  EXPECT_EQ(second.encode(),
            R"({"applied":[],"message":"The store at )" + home_.file("d/vobbo-store.json") +
                R"( is up to date (version 2).","ok":true,"saved":true,"storeVersion":2})");
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
  EXPECT_EQ(result.get("empty")->encode(), "false");
  auto exported = JSONValue::parse(test::readFile(path));
  ASSERT_OK(exported);
  EXPECT_EQ(exported->get("data")->encode(), R"({"tasks":[1]})");

  auto missing = quibly({"export", home_.file("nowhere")}, home_.file("d"));
  EXPECT_EQ(missing.exitCode, 1);
  EXPECT_EQ(missing.err, "Could not export: " + home_.file("nowhere") + " is not a folder.\n");
  JSONValue failed = json(quibly({"export", home_.file("nowhere"), "--json"}, home_.file("d")));
  EXPECT_EQ(failed.get("ok")->encode(), "false");
}

TEST_F(EndToEndDataTest, DamagedStoreIsNeitherExportedNorMigratedAway) {
  ASSERT_OK(Files::createDirectories(home_.file("d")));
  test::writeFile(home_.file("d/vobbo-store.json"), "{\"tasks\": [");
  const std::string sentence = home_.file("d/vobbo-store.json") +
                               " does not hold Quibly’s data as a JSON object, so it was left as "
                               "it is. Repair or remove it, then try again.";
  for (std::string_view verb : {"export", "migrate"}) {
    SCOPED_TRACE(verb);
    auto result = quibly({std::string(verb)}, home_.file("d"));
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, sentence + "\n");
    auto asJSON = quibly({std::string(verb), "--json"}, home_.file("d"));
    EXPECT_EQ(asJSON.exitCode, 1);
    EXPECT_EQ(json(asJSON).encode(),
              JSONValue(JSONObject{{"message", sentence}, {"ok", false}}).encode());
  }
  EXPECT_EQ(test::readFile(home_.file("d/vobbo-store.json")), "{\"tasks\": [");
}

TEST_F(EndToEndDataTest, MoveCopiesAndKeepsTheOriginalUntilThePersonSwitches) {
  ASSERT_OK(Files::createDirectories(home_.file("d")));
  ASSERT_OK(Files::createDirectories(home_.file("new")));
  test::writeFile(home_.file("d/vobbo-store.json"), "{\"tasks\":[1]}");

  auto moved = quibly({"move", home_.file("new")}, home_.file("d"));
  EXPECT_EQ(moved.exitCode, 0) << moved.err;
  EXPECT_EQ(moved.out, "Copied Quibly’s data to " + home_.file("new") +
                           " and checked the copy byte for byte.\n"
                           "Quibly keeps using " +
                           home_.file("d") + " until you set VOBBO_DATA_DIR=" + home_.file("new") +
                           ".\nThe old file stays at " + home_.file("d/vobbo-store.json") +
                           " until you remove it.\n");
  EXPECT_EQ(test::readFile(home_.file("new/vobbo-store.json")), "{\"tasks\":[1]}");
  // Until the variable is set, the data is still where Quibly looks.
  auto exported = json(quibly({"export", home_.file("new"), "--json"}, home_.file("d")));
  EXPECT_EQ(exported.get("empty")->encode(), "false");

  ASSERT_OK(Files::createDirectories(home_.file("fresh")));
  auto nothingYet = json(quibly({"move", home_.file("fresh"), "--json"}, home_.file("empty")));
  EXPECT_EQ(nothingYet.encode(),
            R"({"dataDir":")" + home_.file("fresh") +
                R"(","message":"Nothing saved yet, so new data starts there. Quibly keeps using )" +
                home_.file("empty") + " until you set VOBBO_DATA_DIR=" + home_.file("fresh") +
                R"(.","ok":true})");
}

TEST_F(EndToEndDataTest, MoveRefusalsKeepTheCheckSentenceAndNameTheFolder) {
  ASSERT_OK(Files::createDirectories(home_.file("d/inside")));
  test::writeFile(home_.file("d/vobbo-store.json"), "{}");
  const struct {
    std::string folder;
    std::string err;
  } cases[] = {
      {home_.file("d"), "Quibly’s data is already there. You named " + home_.file("d") + ".\n"},
      {home_.file("nowhere"),
       "That folder does not exist. You named " + home_.file("nowhere") + ".\n"},
      {home_.file("d/inside"), "That folder is inside Quibly’s data folder, " + home_.file("d") +
                                   ". Choose a folder outside it. You named " +
                                   home_.file("d/inside") + ".\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.folder);
    auto refused = quibly({"move", c.folder}, home_.file("d"));
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_EQ(refused.err, c.err);
  }
  JSONValue refused = json(quibly({"move", home_.file("nowhere"), "--json"}, home_.file("d")));
  EXPECT_EQ(refused.encode(), R"({"folder":")" + home_.file("nowhere") +
                                  R"(","message":"That folder does not exist.","ok":false})");
  EXPECT_FALSE(Files::exists(home_.file("d/inside/vobbo-store.json")));
}

TEST_F(EndToEndDataTest, ExportOfNothingSavedSaysSo) {
  ASSERT_OK(Files::createDirectories(home_.file("out")));
  ASSERT_OK(Files::createDirectories(home_.file("d")));
  test::writeFile(home_.file("d/vobbo-store.json"), R"({"storeVersion":2})");
  for (const std::string& dataDir : {home_.file("none"), home_.file("d")}) {
    SCOPED_TRACE(dataDir);
    JSONValue result = json(quibly({"export", home_.file("out"), "--json"}, dataDir));
    const std::string path(result.stringAt("path").value_or(""));
    EXPECT_EQ(result.stringAt("message"), "Exported Quibly’s data to " + path +
                                              ". Nothing was saved yet in " + dataDir +
                                              ", so the export holds no tasks, notes or settings.");
    EXPECT_TRUE(Files::exists(path));
  }
  EXPECT_FALSE(Files::exists(home_.file("none")));
}

TEST_F(EndToEndDataTest, MigrateLeavesStoresItCannotMigrateAsTheyAre) {
  ASSERT_OK(Files::createDirectories(home_.file("d")));
  const std::string store = home_.file("d/vobbo-store.json");
  const struct {
    std::string document;
    int exitCode;
    std::string out;
    std::string err;
  } cases[] = {
      {R"({"storeVersion":7,"theme":"neon"})", 0,
       "The store at " + store +
           " was written by a newer Quibly (version 7; this one knows versions up to 2), so it "
           "was left as it is.\n",
       ""},
      {R"({"storeVersion":1e300})", 1, "",
       "The store at " + store +
           " has storeVersion 1e+300, which is not a version number, so it was left as it is. "
           "Repair it, then try again.\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.document);
    test::writeFile(store, c.document);
    auto result = quibly({"migrate"}, home_.file("d"));
    EXPECT_EQ(result.exitCode, c.exitCode);
    EXPECT_EQ(result.out, c.out);
    EXPECT_EQ(result.err, c.err);
    EXPECT_EQ(test::readFile(store), c.document);
  }

  auto nothing = quibly({"migrate"}, home_.file("none"));
  EXPECT_EQ(nothing.exitCode, 0);
  EXPECT_EQ(nothing.out, "There is no store at " + home_.file("none/vobbo-store.json") +
                             " yet, so there is nothing to migrate.\n");
  EXPECT_FALSE(Files::exists(home_.file("none")));
}

}  // namespace
}  // namespace vobbo
