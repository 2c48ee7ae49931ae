#include <gmock/gmock.h>

#include "Prefilter.h"
#include "TestSupport.h"

namespace vobbo {
namespace {

MailMessage mail(std::string from, std::string subject, std::string body) {
  MailMessage m;
  m.id = "p1";
  m.from = {std::nullopt, std::move(from)};
  m.subject = std::move(subject);
  m.body = std::move(body);
  return m;
}

TEST(PrefilterTest, EachRuleFiresAndStaysQuiet) {
  using R = Prefilter::Reason;
  const std::string shop = "orders@shop.example";
  const std::string bank = "alerts@hdfcbank.net";
  const struct {
    std::string name;
    MailMessage message;
    std::optional<Prefilter::Classification> expected;
  } cases[] = {
      {"otp",
       mail(shop, "Your OTP", "Use 482913 within 10 minutes."),
       {{R::otp, "otp phrase plus numeric code"}}},
      {"verification code in Devanagari digits",
       mail(shop, "Verification code", "\u0968\u0966\u0969\u096A\u096B\u096C"),
       {{R::otp, "otp phrase plus numeric code"}}},
      // Letters that match without regard to case, and a phrase right after a dash.
      {"long s",
       mail(shop, "\u017Fecurity code", "4821"),
       {{R::otp, "otp phrase plus numeric code"}}},
      {"after an em dash",
       mail(shop, "Sign in", "Here it is\u2014OTP 4821"),
       {{R::otp, "otp phrase plus numeric code"}}},
      {"rupee sign",
       mail(shop, "Paid", "\u20B9200 debited via UPI"),
       {{R::upi, "upi phrase plus an amount and a transaction verb"}}},
      {"otp phrase without a code", mail(shop, "What is an OTP?", "It is a one-time password."),
       std::nullopt},
      {"code without an otp phrase", mail(shop, "Order 48291", "Shipped."), std::nullopt},
      {"a 9 digit number is not a code", mail(shop, "Security code", "Call 123456789"),
       std::nullopt},
      {"upi debit",
       mail(shop, "Alert", "Rs.1,250.00 debited via UPI to Cafe."),
       {{R::upi, "upi phrase plus an amount and a transaction verb"}}},
      {"upi without amount", mail(shop, "UPI is down", "Payments debited later."), std::nullopt},
      {"upi reference",
       mail(shop, "Refund", "UPI Ref No: 412345678901 processed"),
       {{R::upi, "upi reference number in the mail"}}},
      {"utr",
       mail(shop, "Refund", "UTR#AXI9988776655"),
       {{R::upi, "upi reference number in the mail"}}},
      {"vpa",
       mail(shop, "Split the bill", "Send to ravi.k@okicici please"),
       {{R::upi, "upi virtual payment address in the mail"}}},
      {"ordinary address", mail(shop, "Hi", "Mail me at ravi@gmail.com"), std::nullopt},
      {"bank statement",
       mail(bank, "Your e-statement", "Your statement is ready."),
       {{R::card_statement, "bank sender plus statement phrase"}}},
      {"bank debit",
       mail(bank, "Alert", "INR 5,000 withdrawn at ATM"),
       {{R::bank, "bank sender plus an amount and a transaction verb"}}},
      {"bank account words",
       mail(bank, "Update", "Your net banking password changed"),
       {{R::bank, "bank sender plus account phrase"}}},
      {"bank marketing", mail(bank, "Win a trip", "Enter our contest today"), std::nullopt},
      {"google payments sender",
       mail("payments-noreply@google.com", "Receipt", "Debit card ending 4242"),
       {{R::bank, "bank sender plus account phrase"}}},
      {"bank name in a local part only",
       mail("hdfcbank@gmail.com", "Receipt", "Debit card ending 4242"), std::nullopt},
      {"statement from anyone",
       mail(shop, "Statement for October", "Total amount due on your credit card"),
       {{R::card_statement, "statement subject plus account phrase in body"}}},
      {"statement words only in the body", mail(shop, "Hello", "statement for credit card"),
       std::nullopt},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(Prefilter::classify(c.message), c.expected);
  }
}

TEST(PrefilterTest, GivesFixedLocalVerdicts) {
  using R = Prefilter::Reason;
  const struct {
    R reason;
    std::string_view summary;
  } cases[] = {
      {R::otp, "One time password, handled on device and never sent to a model."},
      {R::bank, "Bank account notice, handled on device and never sent to a model."},
      {R::upi, "UPI payment notice, handled on device and never sent to a model."},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(rawValue(c.reason));
    TriageVerdict v = Prefilter::localVerdict(mail("a@b.c", "s", "b"), {c.reason, "rule"});
    EXPECT_EQ(v.summary, c.summary);
    EXPECT_TRUE(v.tasks.empty());
    EXPECT_FALSE(v.needsReply);
  }
}

TEST(PrefilterTest, CardStatementAsksToPayByTheDueDate) {
  Prefilter::Classification statement{Prefilter::Reason::card_statement,
                                      "bank sender plus statement phrase"};
  MailMessage m = mail("cards@sbicard.com", "Statement",
                       "Card 4111 1111 1111 1234.\nPayment Due Date: 05 Dec 2026\n");
  TriageVerdict v = Prefilter::localVerdict(m, statement);
  EXPECT_EQ(v.summary, "Card statement notice, handled on device and never sent to a model.");
  EXPECT_EQ(v.category, Triage::Category::action_needed);
  ASSERT_EQ(v.tasks.size(), 1u);
  EXPECT_EQ(v.tasks[0].title, "Pay the card bill");
  EXPECT_EQ(v.tasks[0].due, "05 Dec 2026");
  EXPECT_EQ(v.tasks[0].quote, "Payment Due Date: 05 Dec \u2022\u2022\u2022\u2022");
  EXPECT_NE(Prefilter::redacted(m).body.find(v.tasks[0].quote), std::string::npos);

  m.body = "No date here.";
  EXPECT_FALSE(Prefilter::localVerdict(m, statement).tasks[0].due);
}

TEST(PrefilterTest, RedactsCodesEverywhereItKeepsText) {
  EXPECT_EQ(Prefilter::redactCodes("OTP 123 4567 1234567890123 ab98765cd 2026-11-21"),
            "OTP 123 \u2022\u2022\u2022\u2022 1234567890123 ab\u2022\u2022\u2022\u2022cd "
            "\u2022\u2022\u2022\u2022-11-21");
  MailMessage m = mail("a@b.c", "Code 918273", "Your code is 918273");
  m.snippet = "Your code is 918273";
  m.headers["subject"] = "Code 918273";
  TriagedMessage row = Prefilter::triaged(m, *Prefilter::classify(m));
  std::string json = toJSON(row).encode();
  EXPECT_EQ(json.find("918273"), std::string::npos) << json;
  EXPECT_EQ(row.source, Triage::Source::local);
}

}  // namespace
}  // namespace vobbo
