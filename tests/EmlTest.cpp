#include <gmock/gmock.h>

#include "Eml.h"
#include "TestSupport.h"

namespace vobbo {
namespace {

using ::testing::ElementsAre;

TEST(EmlTest, DecodesTransferEncodings) {
  const struct {
    std::string_view text, encoding, expected;
  } cases[] = {
      // Each escape is one character of that code point, even inside a UTF-8 sequence.
      {"caf=C3=A9", "quoted-printable", "caf\u00C3\u00A9"},
      {"na=EFve", "Quoted-Printable ", "na\u00EFve"},
      {"soft=\nbreak and soft=\r\nCRLF and =  \ntrailing blanks", "quoted-printable",
       "softbreak and softCRLF and trailing blanks"},
      {"2+2=4, =ZZ and a lone =", "quoted-printable", "2+2=4, =ZZ and a lone ="},
      {"aGVsbG8", "base64", "hello"},  // not a multiple of four
      {"aGVs\r\nbG8g\n d29y bGQ=", "base64", "hello world"},
      {"aGV*s!bG8=", "base64", "hello"},         // stray characters are skipped
      {"//79", "base64", "\uFFFD\uFFFD\uFFFD"},  // bytes that are not UTF-8
      {"=41 stays", "7bit", "=41 stays"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(Eml::decode(c.text, c.encoding), c.expected);
  }
}

TEST(EmlTest, ParsesHeaderBlocks) {
  auto headers = Eml::parseHeaders(
      "Subject: Quarterly\r\n  numbers\r\n"
      "X-Dup: first\nX-DUP: second\n"
      "this line has no colon\n"
      "Empty:\n"
      "To : a@example.com\n"
      "\n"
      "Body-Looking: not a header\n");
  EXPECT_EQ(headers["subject"], "Quarterly  numbers");
  EXPECT_EQ(headers["x-dup"], "second");
  EXPECT_EQ(headers["empty"], "");
  EXPECT_EQ(headers["to"], "a@example.com");
  EXPECT_FALSE(headers.contains("body-looking"));
  EXPECT_EQ(headers.size(), 4u);
}

TEST(EmlTest, ReadsAnHtmlOnlyMultipart) {
  auto parsed = Eml::readPart(
      "Content-Type: multipart/alternative; boundary=\"b1\"\n\n"
      "--b1\nContent-Type: text/html; charset=utf-8\n\n"
      "<html><head><style>p { color: red; }</style><script>alert(1)</script></head>"
      "<body><p>Deploy&nbsp;is <b>green</b></p><p>Thanks &amp; bye</p></body></html>\n"
      "--b1--\n");
  EXPECT_EQ(parsed.body, "Deploy is green Thanks & bye");
  EXPECT_THAT(parsed.partTypes, ElementsAre("multipart/alternative", "text/html"));
}

TEST(EmlTest, WalksNestedMultipartsWithAttachments) {
  auto parsed = Eml::readPart(
      "Content-Type: multipart/mixed; boundary=outer\n\n"
      "preamble is ignored\n"
      "--outer\nContent-Type: multipart/alternative; boundary=\"inner part\"\n\n"
      "--inner part\nContent-Type: text/plain; charset=iso-8859-1\n"
      "Content-Transfer-Encoding: quoted-printable\n\nCaf=E9 at 10?\n"
      "--inner part\nContent-Type: text/html\n\n<p>ignored</p>\n"
      "--inner part--\n"
      "--outer\nContent-Type: text/plain\nContent-Disposition: attachment; filename=notes.txt\n\n"
      "not the body\n"
      "--outer\nContent-Type: application/pdf\nContent-Transfer-Encoding: base64\n\nJVBERi0=\n"
      "--outer--\nepilogue\n");
  EXPECT_EQ(parsed.body, "Caf\u00E9 at 10?");
  EXPECT_TRUE(parsed.hasAttachments);
  EXPECT_THAT(parsed.partTypes,
              ElementsAre("multipart/mixed", "multipart/alternative", "text/plain", "text/html",
                          "text/plain", "application/pdf"));
}

TEST(EmlTest, ReadsWhatCanBeReadFromBrokenMime) {
  const struct {
    std::string_view name, text, body;
  } cases[] = {
      {"boundary never closes",
       "Content-Type: multipart/mixed; boundary=x\n\n--x\n\nfirst part\n--x\nContent-Type: "
       "text/html\n\n<p>cut",
       "first part"},
      {"missing boundary parameter", "Content-Type: multipart/mixed\n\n--zz\n\nguessed\n--zz--\n",
       "guessed"},
      {"boundary never appears", "Content-Type: multipart/mixed; boundary=q\n\nplain words\n",
       "plain words\n"},
      {"no header block", "just a body\nover two lines", "just a body\nover two lines"},
      {"headers only, truncated", "Subject: hi\nContent-Type: text/pl", ""},
      {"NUL bytes", std::string_view("Subject: a\0b\n\nbo\0dy", 19), std::string_view("bo\0dy", 5)},
      {"undeclared 8-bit text", "Subject: x\n\nna\xEFve", "na\u00EFve"},
      {"unknown charset", "Content-Type: text/plain; charset=x-martian\n\nhello", "hello"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(Eml::readPart(c.text).body, c.body);
  }
}

TEST(EmlTest, FindsTheBodyPastAHugeAttachment) {
  std::string text =
      "Content-Type: multipart/mixed; boundary=big\n\n--big\n"
      "Content-Type: application/zip\nContent-Transfer-Encoding: base64\n\n";
  text.append(20 * 1024 * 1024, 'A');
  text += "\n--big\nContent-Type: text/plain\n\nafter the zip\n--big--\n";
  auto parsed = Eml::readPart(text);
  EXPECT_EQ(parsed.body, "after the zip");
  EXPECT_TRUE(parsed.hasAttachments);
}

TEST(EmlTest, ConvertsCharsets) {
  const struct {
    std::string_view charset, encoding, body, expected;
  } cases[] = {
      {"iso-8859-1", "8bit",
       "Gr\xFC\xDF"
       "e",
       "Gr\u00FC\u00DFe"},
      {"windows-1252", "quoted-printable", "=80 5", "\u20AC 5"},
      {"koi8-r", "8bit", "\xF0\xD2\xC9\xD7\xC5\xD4", "\u041F\u0440\u0438\u0432\u0435\u0442"},
      {"shift_jis", "base64", "gqCCog==", "\u3042\u3044"},
      {"utf-8", "base64", "w6k=", "\u00E9"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.charset);
    std::string mail = "Content-Type: text/plain; charset=\"" + std::string(c.charset) +
                       "\"\nContent-Transfer-Encoding: " + std::string(c.encoding) + "\n\n" +
                       std::string(c.body);
    EXPECT_EQ(Eml::readPart(mail).body, c.expected);
  }
}

TEST(EmlTest, DecodesEncodedWords) {
  const struct {
    std::string_view raw, expected;
  } cases[] = {
      {"=?UTF-8?B?SGVsbG8gd8O2cmxk?=", "Hello w\u00F6rld"},
      {"Re: =?ISO-8859-1?Q?caf=E9_cr=E8me?= today", "Re: caf\u00E9 cr\u00E8me today"},
      {"=?utf-8?q?a?= =?utf-8?q?b?=", "ab"},            // blanks between words vanish
      {"=?UTF-8?B?4oI=?= =?UTF-8?B?rA==?=", "\u20AC"},  // one character split in two
      {"=?x-martian?Q?zork?= stays", "=?x-martian?Q?zork?= stays"},
      {"no words here", "no words here"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.raw);
    EXPECT_EQ(Eml::decodeWords(c.raw), c.expected);
  }
}

TEST(EmlTest, ParsesAddressForms) {
  using A = MailAddress;
  const struct {
    std::string_view list;
    std::vector<MailAddress> expected;
  } cases[] = {
      {"Priya Raman <priya@example.com>", {A{"Priya Raman", "priya@example.com"}}},
      {"bare@example.com", {A{std::nullopt, "bare@example.com"}}},
      {"\"Raman, Priya\" <p@x.io>, <only@x.io>",
       {A{"Raman, Priya", "p@x.io"}, A{std::nullopt, "only@x.io"}}},
      {"\"Say \\\"hi\\\"\" <q@x.io>", {A{"Say \"hi\"", "q@x.io"}}},
      {"Team: a@x.io, B <b@x.io>;, c@x.io",
       {A{std::nullopt, "a@x.io"}, A{"B", "b@x.io"}, A{std::nullopt, "c@x.io"}}},
      {"undisclosed-recipients:;", {}},
      {"=?UTF-8?Q?J=C3=BCrgen_M=C3=BCller?= <jm@x.de>", {A{"J\u00FCrgen M\u00FCller", "jm@x.de"}}},
      {"old@x.io (Old Style, Jr)", {A{"Old Style, Jr", "old@x.io"}}},
      {" , ,", {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.list);
    EXPECT_EQ(Eml::parseAddressList(c.list), c.expected);
  }
}

TEST(EmlTest, ParsesDates) {
  constexpr int64_t kBase = 1795251600;  // Sat, 21 Nov 2026 09:00:00 +0000
  const struct {
    std::string_view text;
    std::optional<int64_t> seconds;
  } cases[] = {
      {"Sat, 21 Nov 2026 09:00:00 +0000", kBase},
      {"21 Nov 2026 14:30:00 +0530", kBase},
      {"Sat, 21 November 2026 04:00 EST", kBase},
      {"Sat, 21 Nov 2026 01:00:00 -0800 (PST)", kBase},
      {"Sat, 21 Nov 2026 09:00:00 GMT", kBase},
      {"Sat, 21 Nov 2026 09:00:00", kBase},  // no zone reads as UTC
      {"21 Nov 26 09:00:00 +0000", kBase},   // two-digit year
      {"1 Jan 99 00:00:00 +0000", 915148800},
      {"32 Nov 2026 09:00:00 +0000", std::nullopt},
      {"21 Foo 2026 09:00:00 +0000", std::nullopt},
      {"yesterday", std::nullopt},
      {"\u0662\u0661 Nov 2026 09:00 +0000", std::nullopt},  // digits of another script
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(Eml::parseDate(c.text), c.seconds);
  }
}

TEST(EmlTest, BuildsAMessage) {
  std::string text =
      "From: =?UTF-8?Q?Ana_Su=C3=A1rez?= <ana@example.com>\n"
      "To: me@example.com, \"Ops, Team\" <ops@example.com>\n"
      "Cc: lead@example.com\n"
      "Subject: =?UTF-8?B?UmU6IGxhdW5jaCDwn5qA?=\n"
      "Date: Sat, 21 Nov 2026 09:00:00 +0000\n"
      "Message-ID: <c@example.com>\n"
      "In-Reply-To: <b@example.com>\n"
      "References: <a@example.com>\n <b@example.com>\n"
      "Content-Type: multipart/mixed; boundary=m\n\n"
      "--m\nContent-Type: text/plain\n\n  Can   you\n\n review\tthe plan?  \n"
      "--m\nContent-Type: text/calendar; method=REQUEST\n\nBEGIN:VCALENDAR\n"
      "--m--\n";
  MailMessage m = Eml::message(text, "mail-7");
  EXPECT_EQ(m.id, "mail-7");
  EXPECT_EQ(m.threadId, "a@example.com");
  EXPECT_EQ(m.from, (MailAddress{"Ana Su\u00E1rez", "ana@example.com"}));
  EXPECT_EQ(m.to.size(), 2u);
  EXPECT_EQ(m.to[1].name, "Ops, Team");
  EXPECT_EQ(m.subject, "Re: launch \U0001F680");
  EXPECT_EQ(m.headers["subject"], "Re: launch \U0001F680");
  EXPECT_EQ(m.date, "Sat, 21 Nov 2026 09:00:00 +0000");
  EXPECT_EQ(m.snippet, "Can you review the plan?");
  EXPECT_EQ(m.headers["x-vobbo-kind"], "calendar-invite");
  EXPECT_FALSE(m.hasAttachments);
  EXPECT_TRUE(m.labels.empty());
}

TEST(EmlTest, FillsInWhatTheMailLeavesOut) {
  MailMessage m = Eml::message("Subject:   \nFrom: <>\n\n" + std::string(500, 'x'), "f");
  EXPECT_EQ(m.subject, "(no subject)");
  EXPECT_EQ(m.from, MailMessage::placeholderSender());
  EXPECT_EQ(m.threadId, "f");
  EXPECT_EQ(m.snippet, std::string(MailMessage::kSnippetLength - 1, 'x') + "\u2026");
}

TEST(EmlTest, EncodesToJSONUnderFieldNames) {
  MailMessage m = Eml::message("From: A <a@x.io>\nSubject: hi\n\nbody", "id1");
  JSONValue json = toJSON(m);
  EXPECT_EQ(*json.get("from")->stringAt("name"), "A");
  EXPECT_EQ(*json.get("headers")->stringAt("subject"), "hi");
  EXPECT_EQ(fromJSON<MailMessage>(json), m);
}

TEST(EmlTest, GroupsRepliesIntoThreads) {
  auto mail = [](std::string_view id, std::string_view headers) {
    return Eml::message(std::string(headers) + "\n\nbody", id);
  };
  auto threads = MailThread::group({
      mail("root", "Subject: Plan\nMessage-ID: <r@x>"),
      mail("other", "Subject: Lunch\nMessage-ID: <o@x>"),
      mail("reply", "Subject: Re: Plan\nMessage-ID: <s@x>\nIn-Reply-To: <r@x>"),
      mail("late", "Subject: Re: Plan\nMessage-ID: <t@x>\nReferences: <r@x> <s@x>"),
  });
  ASSERT_EQ(threads.size(), 2u);
  EXPECT_EQ(threads[0].id, "r@x");
  EXPECT_EQ(threads[0].subject, "Plan");
  ASSERT_EQ(threads[0].messages.size(), 3u);
  EXPECT_EQ(threads[0].messages[2].id, "late");
  EXPECT_EQ(threads[0].messages[1].threadSize, 3);
  EXPECT_EQ(threads[1].messages[0].threadSize, 1);
}

}  // namespace
}  // namespace vobbo
