#include <gmock/gmock.h>

#include "Base64.h"
#include "Eml.h"
#include "GmailParse.h"
#include "JSRegex.h"
#include "TestSupport.h"

namespace vobbo {
namespace {

std::string b64url(std::string_view text) {
  return Base64::encode(text, Base64::Alphabet::url, Base64::Padding::omit);
}

JSONValue part(std::string_view mimeType, std::string_view text,
               std::string_view contentType = "") {
  JSONObject body{{"data", b64url(text)}, {"size", static_cast<double>(text.size())}};
  JSONObject object{{"mimeType", mimeType}, {"filename", ""}, {"body", body}};
  if (!contentType.empty()) {
    object.set("headers",
               JSONValue::Array{JSONObject{{"name", "Content-Type"}, {"value", contentType}}});
  }
  return object;
}

JSONValue header(std::string_view name, std::string_view value) {
  return JSONObject{{"name", name}, {"value", value}};
}

TEST(GmailParseTest, ReadsAMessageWithNestedParts) {
  JSONValue attachment =
      JSONObject{{"mimeType", "application/pdf"},
                 {"filename", "q3.pdf"},
                 {"body", JSONObject{{"attachmentId", "ANGjdJ8"}, {"size", 48213}}}};
  JSONValue alternative =
      JSONObject{{"mimeType", "multipart/alternative"},
                 {"parts", JSONValue::Array{part("text/html", "<p>ignored</p>"),
                                            part("text/plain",
                                                 "Gr\xFC\xDF"
                                                 "e, see the numbers",
                                                 "text/plain; charset=ISO-8859-1")}}};
  JSONValue resource = JSONObject{
      {"id", "18c2f"},
      {"threadId", "18c20"},
      {"snippet",
       "Gr\u00FC\u00DF"
       "e, see the numbers"},
      {"labelIds", JSONValue::Array{"INBOX", "UNREAD", "IMPORTANT"}},
      {"internalDate", "1795251600000"},
      {"payload",
       JSONObject{
           {"mimeType", "multipart/mixed"},
           {"headers", JSONValue::Array{header("From", "\"Ng, Mai\" <mai@example.com>"),
                                        header("To", "me@example.com, Ops <ops@example.com>"),
                                        header("Subject", "=?UTF-8?Q?Q3_n=C3=BAmeros?="),
                                        header("X-Priority", "1")}},
           {"parts", JSONValue::Array{alternative, attachment}}}}};
  auto message = GmailParse::message(resource, 3);
  ASSERT_TRUE(message);
  EXPECT_EQ(message->threadId, "18c20");
  EXPECT_EQ(message->from, (MailAddress{"Ng, Mai", "mai@example.com"}));
  EXPECT_EQ(message->to.size(), 2u);
  EXPECT_EQ(message->subject, "Q3 n\u00FAmeros");
  EXPECT_EQ(message->date, "1795251600000");  // no Date header: the internal date
  EXPECT_EQ(message->body,
            "Gr\u00FC\u00DF"
            "e, see the numbers");
  EXPECT_TRUE(message->unread);
  EXPECT_TRUE(message->hasAttachments);
  EXPECT_EQ(message->threadSize, 3);
  EXPECT_EQ(message->headers["x-priority"], "1");
}

TEST(GmailParseTest, FallsBackOnSparseResources) {
  auto message = GmailParse::message(JSONObject{{"id", "m1"}});
  ASSERT_TRUE(message);
  EXPECT_EQ(message->subject, "(no subject)");
  EXPECT_EQ(message->from, MailMessage::placeholderSender());
  EXPECT_EQ(message->threadId, "m1");
  EXPECT_FALSE(message->unread);
  EXPECT_FALSE(GmailParse::message(JSONValue("not an object")));
  EXPECT_FALSE(GmailParse::message(JSONObject{{"id", 42}}));
}

TEST(GmailParseTest, UsesHtmlWhenThereIsNoPlainPart) {
  JSONValue payload = JSONObject{
      {"mimeType", "multipart/alternative"},
      {"parts",
       JSONValue::Array{part("text/html",
                             "<STYLE>.x{}</STYLE><div>Build&#32;#42 &#x2014; <i>failed</i></div>"
                             "<!-- tracking --><br>Fix &quot;it&quot; &bogus;")}}};
  auto body = GmailParse::extractBody(payload);
  EXPECT_EQ(body.text, "Build #42 \u2014 failed Fix \"it\" &bogus;");
  EXPECT_FALSE(body.hasAttachments);
}

TEST(GmailParseTest, DecodesBase64Url) {
  EXPECT_EQ(GmailParse::decodeB64Url("-_8"), "\xFB\xFF");
  EXPECT_EQ(GmailParse::decodeB64Url("aGk_Pn4"), "hi?>~");
  EXPECT_EQ(GmailParse::decodeB64Url("aGk"), "hi");
  EXPECT_EQ(GmailParse::decodeB64Url(""), "");
}

TEST(GmailParseTest, DraftDecodesBackToItsParts) {
  GmailParse::Draft draft{{"Priya <priya@example.com>", "ops@example.com"},
                          "Re: r\u00E9sum\u00E9\r\nBcc: evil@example.com",
                          "Thanks, confirmed.\nSee you at 3."};
  std::string raw = Base64::decode(GmailParse::buildRawMessage("me@example.com", draft));
  EXPECT_EQ(raw.find("\nBcc:"), std::string::npos);
  auto parsed = Eml::readPart(raw);
  EXPECT_EQ(parsed.headers["from"], "me@example.com");
  EXPECT_EQ(parsed.headers["to"], "Priya <priya@example.com>, ops@example.com");
  EXPECT_EQ(Eml::decodeWords(parsed.headers["subject"]),
            "Re: r\u00E9sum\u00E9  Bcc: evil@example.com");
  EXPECT_EQ(parsed.headers["content-type"], "text/plain; charset=UTF-8");
  EXPECT_EQ(parsed.headers["content-transfer-encoding"], "8bit");
  EXPECT_EQ(parsed.body, "Thanks, confirmed.\nSee you at 3.");
  EXPECT_TRUE(JSRegex("^<[0-9a-f-]{36}@quibly\\.local>$").matches(parsed.headers["message-id"]));
  std::string again = Base64::decode(GmailParse::buildRawMessage("me@example.com", draft));
  EXPECT_NE(Eml::parseHeaders(again)["message-id"], parsed.headers["message-id"]);
}

}  // namespace
}  // namespace vobbo
