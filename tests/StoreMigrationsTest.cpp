#include "StoreMigrations.h"
#include "TestSupport.h"
#include "VobboStore.h"

namespace vobbo {
namespace {

using test::TempDir;

std::string repeat(std::string_view piece, int times) {
  std::string out;
  for (int i = 0; i < times; ++i) out += piece;
  return out;
}

TEST(StoreMigrationsTest, VersionZeroDocumentsEndWithWhatTheirReadersAccept) {
  const std::string combining = repeat("e\u0301", 40);  // 40 characters, 80 code points
  const std::string flags = repeat("\U0001F1F3\U0001F1FF", 33);
  const struct {
    std::string name;
    JSONObject before;
    JSONObject after;  // without storeVersion
  } cases[] = {
      {"unknown theme", {{"theme", "blue"}}, {{"theme", "light"}}},
      {"theme of another kind", {{"theme", 3}}, {{"theme", "light"}}},
      {"accepted themes stay", {{"theme", "system"}}, {{"theme", "system"}}},
      {"loginItem text true", {{"loginItem", "true"}}, {{"loginItem", true}}},
      {"loginItem text in capitals", {{"loginItem", "TRUE"}}, {{"loginItem", false}}},
      {"loginItem number", {{"loginItem", 1}}, {{"loginItem", nullptr}}},
      {"loginItem boolean stays", {{"loginItem", false}}, {{"loginItem", false}}},
      {"absent keys stay absent", {{"tasks", JSONValue::Array{}}}, {{"tasks", JSONValue::Array{}}}},
      {"onboardingStep of 40",
       {{"onboardingStep", repeat("a", 40)}},
       {{"onboardingStep", repeat("a", 32)}}},
      {"onboardingStep of 32 stays",
       {{"onboardingStep", repeat("b", 32)}},
       {{"onboardingStep", repeat("b", 32)}}},
      {"combining marks stay with their letters",
       {{"onboardingStep", combining}},
       {{"onboardingStep", repeat("e\u0301", 32)}}},
      {"flags are not split",
       {{"onboardingStep", flags}},
       {{"onboardingStep", repeat("\U0001F1F3\U0001F1FF", 32)}}},
      {"onboardingStep null stays", {{"onboardingStep", nullptr}}, {{"onboardingStep", nullptr}}},
      {"onboardingStep of another kind", {{"onboardingStep", 4}}, {{"onboardingStep", nullptr}}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::optional<JSONObject> migrated = StoreMigrations::plan(c.before);
    ASSERT_TRUE(migrated.has_value());
    JSONObject expected = c.after;
    expected.set("storeVersion", 2);
    EXPECT_EQ(*migrated, expected);
  }
}

TEST(StoreMigrationsTest, VersionIsStoreVersionTruncatedOrZero) {
  const struct {
    JSONObject document;
    int64_t version;
    size_t pending;
  } cases[] = {
      {{}, 0, 2},
      {{{"storeVersion", "2"}}, 0, 2},
      {{{"storeVersion", 1.9}}, 1, 1},
      {{{"storeVersion", -3}}, -3, 2},
      {{{"storeVersion", 2}}, 2, 0},
      {{{"storeVersion", 1e300}}, 9'000'000'000'000'000'000, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(JSONValue(c.document).encode());
    EXPECT_EQ(StoreMigrations::version(c.document), c.version);
    EXPECT_EQ(StoreMigrations::pending(c.document).size(), c.pending);
  }
}

TEST(StoreMigrationsTest, DocumentsAtOrAboveTheLatestVersionAreNotWritten) {
  for (std::string_view text : {R"({"storeVersion":2,"theme":"neon"})",
                                R"({"storeVersion":7,"theme":"neon","loginItem":"yes"})"}) {
    SCOPED_TRACE(text);
    TempDir tmp;
    VobboStore store(tmp.path());
    test::writeFile(store.file(), text);
    int writes = 0;
    Subscription counting = store.onWrite([&](const JSONObject&) { ++writes; });
    EXPECT_TRUE(StoreMigrations::run(store).empty());
    EXPECT_EQ(writes, 0);
    EXPECT_EQ(test::readFile(store.file()), text) << "not even reformatted";
  }
}

}  // namespace
}  // namespace vobbo
