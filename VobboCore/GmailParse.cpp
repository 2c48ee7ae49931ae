#include "GmailParse.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <random>
#include <utility>

#include "Base64.h"
#include "Charset.h"
#include "Eml.h"
#include "JSRegex.h"
#include "Text.h"

namespace vobbo {

namespace {

// The part's headers (a list of {name, value} objects) by lower-case name.
Eml::Headers headersOf(const JSONValue& part) {
  Eml::Headers headers;
  const JSONValue::Array* list = part.arrayAt("headers");
  if (!list) return headers;
  for (const JSONValue& header : *list) {
    auto name = header.stringAt("name");
    auto value = header.stringAt("value");
    if (name && value) headers[Text::asciiLower(*name)] = Eml::decodeWords(*value);
  }
  return headers;
}

std::string headerOr(const Eml::Headers& headers, std::string_view name) {
  auto it = headers.find(std::string(name));
  return it == headers.end() ? std::string() : it->second;
}

std::string charsetOf(const JSONValue& part) {
  static const JSRegex pattern("charset\\s*=\\s*\"?([^\";\\s]+)\"?", JSRegex::Case::insensitive);
  std::string contentType = headerOr(headersOf(part), "content-type");  // the match views it
  auto m = pattern.firstMatch(contentType);
  return m ? std::string(m->text(1)) : std::string();
}

std::string partText(const JSONValue& part) {
  const JSONValue* body = part.get("body");
  auto data = body ? body->stringAt("data") : std::nullopt;
  if (!data) return {};
  std::string bytes = GmailParse::decodeB64Url(*data);
  auto text = Charset::toUTF8(bytes, charsetOf(part));
  return text ? std::move(*text) : Text::sanitizeUTF8(bytes);
}

bool isAttachment(const JSONValue& part) {
  auto filename = part.nonEmptyStringAt("filename");
  const JSONValue* body = part.get("body");
  return filename || (body && body->nonEmptyStringAt("attachmentId"));
}

struct Walk {
  std::optional<std::string> plain;
  std::optional<std::string> html;
  bool hasAttachments = false;
};

void walkPart(const JSONValue& part, int depth, Walk& walk) {
  if (!part.object() || depth > Eml::kMaxDepth) return;
  bool attachment = isAttachment(part);
  if (attachment) walk.hasAttachments = true;
  std::string type = Text::asciiLower(part.stringAt("mimeType").value_or(""));
  if (!attachment && type == "text/plain" && !walk.plain) walk.plain = partText(part);
  if (!attachment && type == "text/html" && !walk.html) walk.html = partText(part);
  if (const JSONValue::Array* parts = part.arrayAt("parts")) {
    for (const JSONValue& child : *parts) walkPart(child, depth + 1, walk);
  }
}

void appendUTF8(std::string& out, uint32_t cp) {
  if (cp == 0 || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) cp = 0xFFFD;
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | cp >> 6);
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += static_cast<char>(0xE0 | cp >> 12);
    out += static_cast<char>(0x80 | (cp >> 6 & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | cp >> 18);
    out += static_cast<char>(0x80 | (cp >> 12 & 0x3F));
    out += static_cast<char>(0x80 | (cp >> 6 & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

// The text of one character reference, or nothing when it is not one we know.
std::optional<std::string> entityText(std::string_view entity) {
  static constexpr std::array<std::pair<std::string_view, std::string_view>, 17> kNamed{{
      {"amp", "&"},
      {"lt", "<"},
      {"gt", ">"},
      {"quot", "\""},
      {"apos", "'"},
      {"nbsp", " "},
      {"mdash", "\u2014"},
      {"ndash", "\u2013"},
      {"hellip", "\u2026"},
      {"rsquo", "\u2019"},
      {"lsquo", "\u2018"},
      {"ldquo", "\u201C"},
      {"rdquo", "\u201D"},
      {"copy", "\u00A9"},
      {"reg", "\u00AE"},
      {"trade", "\u2122"},
      {"zwnj", ""},
  }};
  if (entity.starts_with("#")) {
    bool hex = entity.size() > 1 && (entity[1] == 'x' || entity[1] == 'X');
    std::string_view digits = entity.substr(hex ? 2 : 1);
    if (digits.empty() || digits.size() > 7) return std::nullopt;
    uint32_t cp = 0;
    for (char c : digits) {
      if (hex && !std::isxdigit(static_cast<unsigned char>(c))) return std::nullopt;
      if (!hex && !std::isdigit(static_cast<unsigned char>(c))) return std::nullopt;
      cp = cp * (hex ? 16 : 10) + static_cast<uint32_t>(std::isdigit(static_cast<unsigned char>(c))
                                                            ? c - '0'
                                                            : std::tolower(c) - 'a' + 10);
    }
    std::string out;
    appendUTF8(out, cp);
    return out;
  }
  std::string name = Text::asciiLower(entity);
  for (const auto& [key, text] : kNamed) {
    if (key == name) return std::string(text);
  }
  return std::nullopt;
}

std::string decodeEntities(std::string_view text) {
  if (text.find('&') == std::string_view::npos) return std::string(text);
  static const JSRegex reference("&(#[0-9]{1,7}|#[xX][0-9a-fA-F]{1,6}|[A-Za-z]{2,8});");
  std::string out;
  size_t last = 0;
  for (const auto& m : reference.allMatches(text)) {
    out.append(text.substr(last, m.range().begin - last));
    auto decoded = entityText(m.text(1));
    out += decoded ? *decoded : std::string(m.text(0));
    last = m.range().end;
  }
  out.append(text.substr(last));
  return out;
}

std::string freshId() {
  std::random_device device;
  std::uniform_int_distribution<uint32_t> word;
  std::array<uint32_t, 4> bits{word(device), word(device), word(device), word(device)};
  bits[1] = (bits[1] & 0xFFFF0FFF) | 0x00004000;  // version 4
  bits[2] = (bits[2] & 0x3FFFFFFF) | 0x80000000;  // variant 1
  char text[37];
  std::snprintf(text, sizeof text, "%08x-%04x-%04x-%04x-%04x%08x", bits[0], bits[1] >> 16,
                bits[1] & 0xFFFF, bits[2] >> 16, bits[2] & 0xFFFF, bits[3]);
  return text;
}

std::string oneLine(std::string_view value) {
  std::string out(value);
  std::replace_if(
      out.begin(), out.end(), [](char c) { return c == '\r' || c == '\n'; }, ' ');
  return out;
}

std::string encodedSubject(std::string_view subject) {
  std::string line = oneLine(subject);
  bool ascii = std::all_of(line.begin(), line.end(),
                           [](char c) { return static_cast<unsigned char>(c) < 0x80; });
  return ascii ? line : "=?UTF-8?B?" + Base64::encode(line) + "?=";
}

std::string withCRLF(std::string_view text) {
  std::string out;
  out.reserve(text.size() + text.size() / 32);
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\n' && (i == 0 || text[i - 1] != '\r')) out += '\r';
    out += text[i];
  }
  return out;
}

}  // namespace

std::optional<MailMessage> GmailParse::message(const JSONValue& resource, int64_t threadSize) {
  auto id = resource.stringAt("id");
  if (!id) return std::nullopt;
  const JSONValue* payload = resource.get("payload");
  static const JSONValue kEmpty = JSONValue(JSONObject{});
  if (!payload || !payload->object()) payload = &kEmpty;
  MailMessage message;
  message.id = *id;
  message.threadId = resource.stringAt("threadId").value_or(*id);
  message.headers = headersOf(*payload);
  message.from = parseAddress(headerOr(message.headers, "from"));
  message.to = Eml::parseAddressList(headerOr(message.headers, "to"));
  message.cc = Eml::parseAddressList(headerOr(message.headers, "cc"));
  std::string subject(Text::trim(headerOr(message.headers, "subject")));
  message.subject = subject.empty() ? std::string(MailMessage::kNoSubject) : subject;
  std::string date = headerOr(message.headers, "date");
  message.date = date.empty() ? std::string(resource.stringAt("internalDate").value_or("")) : date;
  message.snippet = resource.stringAt("snippet").value_or("");
  if (const JSONValue::Array* labels = resource.arrayAt("labelIds")) {
    for (const JSONValue& label : *labels) {
      if (label.string()) message.labels.push_back(*label.string());
    }
  }
  message.unread =
      std::find(message.labels.begin(), message.labels.end(), "UNREAD") != message.labels.end();
  Body body = extractBody(*payload);
  message.body = std::move(body.text);
  message.hasAttachments = body.hasAttachments;
  message.threadSize = threadSize;
  return message;
}

GmailParse::Body GmailParse::extractBody(const JSONValue& payload) {
  Walk walk;
  walkPart(payload, 0, walk);
  Body body;
  body.hasAttachments = walk.hasAttachments;
  if (walk.plain) {
    body.text = std::move(*walk.plain);
  } else if (walk.html) {
    body.text = htmlToText(*walk.html);
  }
  return body;
}

std::string GmailParse::decodeB64Url(std::string_view data) { return Base64::decode(data); }

MailAddress GmailParse::parseAddress(std::string_view value) {
  auto addresses = Eml::parseAddressList(value);
  return addresses.empty() ? MailMessage::placeholderSender() : std::move(addresses.front());
}

std::string GmailParse::htmlToText(std::string_view html) {
  static const JSRegex hidden(
      "<style[\\s\\S]*?</style\\s*>|<script[\\s\\S]*?</script\\s*>|<!--[\\s\\S]*?-->",
      JSRegex::Case::insensitive);
  static const JSRegex blockTag(
      "</"
      "?(?:p|div|br|tr|td|th|li|ul|ol|h[1-6]|table|section|article|header|footer|blockquote|hr)\\b["
      "^>]*>",
      JSRegex::Case::insensitive);
  static const JSRegex tag("<[^>]*>");
  std::string text = hidden.replaceAll(html, " ");
  text = blockTag.replaceAll(text, " ");
  text = tag.replaceAll(text, "");
  return Text::squashSpaces(decodeEntities(text));
}

std::string GmailParse::buildRawMessage(std::string_view from, const Draft& draft) {
  std::string recipients;
  for (const std::string& to : draft.to) {
    if (!recipients.empty()) recipients += ", ";
    recipients += oneLine(to);
  }
  std::string text;
  text += "From: " + oneLine(from) + "\r\n";
  text += "To: " + recipients + "\r\n";
  text += "Subject: " + encodedSubject(draft.subject) + "\r\n";
  text += "Message-ID: <" + freshId() + "@" + std::string(kMessageIdDomain) + ">\r\n";
  text += "MIME-Version: 1.0\r\n";
  text += "Content-Type: text/plain; charset=UTF-8\r\n";
  text += "Content-Transfer-Encoding: 8bit\r\n";
  text += "\r\n";
  text += withCRLF(draft.body);
  return Base64::encode(text, Base64::Alphabet::url, Base64::Padding::omit);
}

}  // namespace vobbo
