#include <gmock/gmock.h>

#include "Prefilter.h"
#include "RuleTriage.h"
#include "TestSupport.h"
#include "Triage.h"

namespace vobbo {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

MailAddress person(std::string email) { return {std::nullopt, std::move(email)}; }

// A mail addressed to one person, with the given headers on top.
MailMessage mail(std::map<std::string, std::string> headers, std::string subject = "Status") {
  MailMessage m;
  m.id = "m1";
  m.from = person("sender@example.com");
  m.to = {person("me@example.com")};
  m.subject = std::move(subject);
  m.headers = std::move(headers);
  return m;
}

TEST(TriageTest, ReadsSignalsFromHeadersAndShape) {
  struct Case {
    std::string name;
    MailMessage message;
    std::vector<std::string> signals;
  };
  auto withRecipients = [](size_t to, size_t cc) {
    MailMessage m = mail({});
    m.to.assign(to, person("t@example.com"));
    m.cc.assign(cc, person("c@example.com"));
    return m;
  };
  auto withThread = [](int64_t size, bool attachments) {
    MailMessage m = mail({});
    m.threadSize = size;
    m.hasAttachments = attachments;
    return m;
  };
  const Case cases[] = {
      {"one recipient", mail({}), {"direct-to-me"}},
      {"2 to and 2 cc is a crowd", withRecipients(2, 2), {"cc-ed"}},
      {"1 to and 2 cc", withRecipients(1, 2), {"direct-to-me", "cc-ed"}},
      {"nobody in to", withRecipients(0, 1), {"cc-ed"}},
      {"precedence bulk", mail({{"precedence", "bulk"}}), {"direct-to-me", "bulk-mail"}},
      {"precedence Bulk is not folded", mail({{"precedence", "Bulk"}}), {"direct-to-me"}},
      {"auto-submitted no still counts",
       mail({{"auto-submitted", "no"}}),
       {"direct-to-me", "bulk-mail"}},
      {"list headers",
       mail({{"list-unsubscribe", "<mailto:u@x>"}, {"list-id", "<dev.x>"}, {"auto-submitted", ""}}),
       {"direct-to-me", "has-unsubscribe", "mailing-list"}},
      {"dkim none alone",
       mail({{"authentication-results", "mx; spf=pass; dkim=none"}}),
       {"direct-to-me", "auth-failed"}},
      {"x-priority 1", mail({{"x-priority", " 1 "}}), {"direct-to-me", "marked-high-priority"}},
      {"x-priority with words", mail({{"x-priority", "1 (Highest)"}}), {"direct-to-me"}},
      {"importance High", mail({{"importance", "High"}}), {"direct-to-me", "marked-high-priority"}},
      {"priority urgent", mail({{"priority", "urgent"}}), {"direct-to-me"}},
      {"calendar header",
       mail({{"x-vobbo-kind", "calendar-invite"}}),
       {"direct-to-me", "calendar-invite"}},
      {"invitation subject",
       mail({}, "INVITATION: Sprint review"),
       {"direct-to-me", "calendar-invite"}},
      {"spam 4.9", mail({{"x-spam-score", "4.9"}}), {"direct-to-me"}},
      {"spam 5", mail({{"x-spam-score", " 5 "}}), {"direct-to-me", "spam-scored"}},
      {"spam not a number", mail({{"x-spam-score", "7 points"}}), {"direct-to-me"}},
      {"thread of one", withThread(1, true), {"direct-to-me", "has-attachments"}},
      {"thread of three", withThread(3, false), {"direct-to-me", "thread-of-3"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(Triage::signals(c.message), c.signals);
  }
}

TEST(TriageTest, RuleListFirstMatchWins) {
  using U = Triage::Urgency;
  using C = Triage::Category;
  const struct {
    std::string name;
    MailMessage message;
    U urgency;
    C category;
    double confidence;
  } cases[] = {
      {"spf fail", mail({{"authentication-results", "spf=fail"}, {"list-id", "x"}}), U::ignore,
       C::suspicious, 0.6},
      {"dmarc fail", mail({{"authentication-results", "dkim=pass; dmarc=fail"}}), U::ignore,
       C::suspicious, 0.6},
      {"dkim none is not suspicious", mail({{"authentication-results", "dkim=none"}}), U::this_week,
       C::fyi, 0.3},
      {"bulk only", mail({{"precedence", "bulk"}}), U::someday, C::notification, 0.5},
      {"bulk and list", mail({{"precedence", "bulk"}, {"list-id", "<a.b>"}}), U::someday,
       C::newsletter, 0.5},
      {"unsubscribe only", mail({{"list-unsubscribe", "<https://u>"}}), U::someday, C::newsletter,
       0.5},
      {"high priority", mail({{"importance", "high"}}), U::today, C::fyi, 0.3},
      {"plain", mail({}), U::this_week, C::fyi, 0.3},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TriageVerdict v = RuleTriage::verdict(c.message);
    EXPECT_EQ(v.urgency, c.urgency);
    EXPECT_EQ(v.category, c.category);
    EXPECT_EQ(v.confidence, c.confidence);
    EXPECT_THAT(v.tasks, IsEmpty());
    EXPECT_FALSE(v.needsReply);
    EXPECT_FALSE(v.suggestedReplyTone);
  }
}

TEST(TriageTest, SummarisesFromSubjectSnippetOrNothing) {
  MailMessage m = mail({}, "  Ship it  ");
  EXPECT_EQ(RuleTriage::verdict(m).summary, "Ship it");
  m.subject = " ";
  m.snippet = " first words ";
  EXPECT_EQ(RuleTriage::verdict(m).summary, "first words");
  m.snippet = "";
  EXPECT_EQ(RuleTriage::verdict(m).summary, "(no subject)");
  m.headers["authentication-results"] = "spf=fail";
  EXPECT_EQ(RuleTriage::verdict(m).summary,
            "Sender failed SPF or DMARC authentication. (no subject)");
}

TEST(TriageTest, RowsKeepInputOrderAndTellTheirStage) {
  MailMessage otp = mail({}, "Your OTP");
  otp.id = "otp";
  otp.body = "Use 482913 to sign in.";
  MailMessage plain = mail({});
  plain.id = "plain";
  auto rows = Triage::triageByRules({plain, otp, plain});
  ASSERT_EQ(rows.size(), 3u);
  EXPECT_EQ(rows[0].source, Triage::Source::rules);
  EXPECT_EQ(rows[1].source, Triage::Source::local);
  EXPECT_EQ(rows[1].message.body, "Use \u2022\u2022\u2022\u2022 to sign in.");
  EXPECT_EQ(rows[2].message.id, "plain");
  EXPECT_EQ(rows[0].tier, "none");
  EXPECT_EQ(rows[0].rawConfidence, rows[0].verdict.confidence);
  EXPECT_EQ(RuleTriage::triage({otp})[0].source, Triage::Source::rules);  // the rule stage alone
}

TEST(TriageTest, RowsEncodeWithRawTexts) {
  TriagedMessage row = RuleTriage::triaged(mail({{"importance", "high"}}));
  JSONValue json = toJSON(row);
  EXPECT_EQ(*json.get("verdict")->stringAt("urgency"), "today");
  EXPECT_EQ(*json.stringAt("source"), "rules");
  EXPECT_FALSE(json.get("modelId"));
  EXPECT_FALSE(json.get("verdict")->get("suggestedReplyTone"));
  EXPECT_EQ(fromJSON<TriagedMessage>(json), row);
}

}  // namespace
}  // namespace vobbo
