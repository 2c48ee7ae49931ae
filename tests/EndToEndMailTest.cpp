#include <gmock/gmock.h>

#include <map>

#include "JSONValue.h"
#include "TestSupport.h"

namespace vobbo {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

const std::string kInbox = std::string(QUIBLY_SOURCE_DIR) + "/samples/inbox";

test::ProcessResult quibly(std::vector<std::string> args) {
  args.insert(args.begin(), QUIBLY_BIN);
  return test::runProcess(args);
}

TEST(EndToEndMailTest, TriagesTheSampleInboxByUrgency) {
  auto result = quibly({"mail", "triage", kInbox});
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_THAT(result.out,
              StartsWith("Sorted by simple rules on this Mac. No model has read these mails "
                         "and Quibly will not draft or change anything.\n"));
  for (std::string heading : {"\nToday (", "\nThis week (", "\nSomeday (", "\nIgnore ("}) {
    EXPECT_THAT(result.out, HasSubstr(heading));
  }
  EXPECT_LT(result.out.find("\nToday ("), result.out.find("\nSomeday ("));
  EXPECT_THAT(result.out, HasSubstr("  suspicious     Sender failed SPF or DMARC authentication."));
  EXPECT_THAT(
      result.out,
      HasSubstr("  fyi            \u00DCbergabe verschieben?  from J\u00FCrgen M\u00FCller\n"));
  EXPECT_THAT(result.out, Not(HasSubstr("482913")));  // the one-time password
  EXPECT_THAT(result.out, HasSubstr("4 of 32 mails hold codes or payment details"));
}

TEST(EndToEndMailTest, PrintsRowsAsJSONWithCodesHidden) {
  auto result = quibly({"mail", "triage", kInbox, "--json"});
  ASSERT_EQ(result.exitCode, 0) << result.err;
  for (std::string secret : {"482913", "432198765432", "XX4821", "ending 7712"}) {
    EXPECT_EQ(result.out.find(secret), std::string::npos) << secret;
  }
  auto json = JSONValue::parse(result.out);
  ASSERT_TRUE(json) << json.error();
  ASSERT_TRUE(json->array());
  ASSERT_EQ(json->array()->size(), 32u);
  std::map<std::string, std::string> byId;  // id to "source category"
  for (const JSONValue& row : *json->array()) {
    byId[std::string(*row.get("message")->stringAt("id"))] =
        std::string(*row.stringAt("source")) + " " +
        std::string(*row.get("verdict")->stringAt("category"));
  }
  EXPECT_EQ(byId["10-otp-sign-in"], "local notification");
  EXPECT_EQ(byId["12-card-statement"], "local action_needed");
  EXPECT_EQ(byId["04-systems-digest"], "rules newsletter");
  EXPECT_EQ(byId["06-ci-build-failed"], "rules notification");
  const JSONValue& signoff = (*json->array())[3];
  EXPECT_EQ(*signoff.get("message")->numberAt("threadSize"), 3);
}

TEST(EndToEndMailTest, ExplainsPathsItCannotUse) {
  test::TempDir dir;
  test::writeFile(dir.file("notes.txt"), "not mail");
  const struct {
    std::string path, sentence;
  } cases[] = {
      {dir.file("missing"), "There is no file or folder at " + dir.file("missing") + ".\n"},
      {dir.path(), "There are no .eml files in " + dir.path() + ".\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path);
    auto result = quibly({"mail", "triage", c.path});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, c.sentence);
    EXPECT_EQ(result.out, "");
  }
}

TEST(EndToEndMailTest, ReadsAnyFileNamedDirectly) {
  test::TempDir dir;
  test::writeFile(dir.file("broken.txt"),
                  std::string("Subject: half\0", 14) + "\nContent-Type: multipart/mixed\n\n--");
  auto result = quibly({"mail", "triage", dir.file("broken.txt")});
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("This week (1)\n  fyi            half"));
}

}  // namespace
}  // namespace vobbo
