// Reading mail the way people actually receive it.
//
// A mail is a tree of parts. Each part is a header block, an empty line and a
// body; a multipart body is cut into child parts at its boundary lines. We walk
// the tree depth first, recording every part's content type, and keep the first
// text/plain body (else the first HTML body, reduced to text) as the body.
// Attachment bodies are never decoded, so a 20 MB attachment costs one scan for
// the next boundary and nothing more.
//
// Everything is forgiving by design. A part that starts without headers is all
// body; a header line without a colon is skipped; a multipart without a boundary
// parameter uses the first "--" line it finds, and one whose boundary never
// appears is read as plain text; a boundary that never closes ends the last part
// at the end of the text. Transfer decoding skips what it cannot read.
//
// Charsets: the transfer decoding itself follows the historical rule that a
// quoted-printable escape is one character of that code point. For parts that
// declare a charset other than UTF-8, the decoded bytes are converted from that
// charset with iconv, so "=E9" in an ISO-8859-1 part and "=82=A0" in Shift_JIS
// both come out right.

#include "Eml.h"

#include <algorithm>
#include <cctype>

#include "Base64.h"
#include "Charset.h"
#include "Clock.h"
#include "GmailParse.h"
#include "JSRegex.h"
#include "Text.h"

namespace vobbo {

namespace {

std::string_view lineContent(std::string_view line) {
  return !line.empty() && line.back() == '\r' ? line.substr(0, line.size() - 1) : line;
}

bool isFoldedLine(std::string_view line) {
  return !line.empty() && (line[0] == ' ' || line[0] == '\t');
}

// "Name: value" split by hand: the name is [A-Za-z0-9-]+, then optional white
// space, a colon and at most one space.
struct HeaderLine {
  std::string_view name;
  std::string_view value;
};

std::optional<HeaderLine> splitHeaderLine(std::string_view line) {
  size_t i = 0;
  while (i < line.size() && (std::isalnum(static_cast<unsigned char>(line[i])) || line[i] == '-'))
    ++i;
  if (i == 0) return std::nullopt;
  size_t nameEnd = i;
  while (i < line.size() && (line[i] == ' ' || line[i] == '\t')) ++i;
  if (i == line.size() || line[i] != ':') return std::nullopt;
  ++i;
  if (i < line.size() && (line[i] == ' ' || line[i] == '\t')) ++i;
  return HeaderLine{line.substr(0, nameEnd), line.substr(i)};
}

struct Split {
  std::string_view headers;
  std::string_view body;
};

// Cuts a part at its first empty line. A part whose first line is not a header
// has no header block at all, and an mbox "From " line at the top is skipped.
Split splitPart(std::string_view text) {
  if (text.starts_with("From ")) {
    size_t eol = text.find('\n');
    text = eol == std::string_view::npos ? std::string_view() : text.substr(eol + 1);
  }
  size_t at = 0;
  while (at < text.size()) {
    size_t eol = text.find('\n', at);
    size_t next = eol == std::string_view::npos ? text.size() : eol + 1;
    std::string_view line =
        lineContent(text.substr(at, next - at - (eol == std::string_view::npos ? 0 : 1)));
    if (line.empty()) return {text.substr(0, at), text.substr(next)};
    if (at == 0 && !isFoldedLine(line) && !splitHeaderLine(line)) return {{}, text};
    at = next;
  }
  return {text, {}};
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

enum class Escapes { asLatin1, asBytes };

// Quoted-printable in one pass: soft line breaks ("=" then optional blanks and
// a line end) vanish, "=XX" becomes one byte or one Latin-1 character, and any
// other "=" stays as written.
std::string decodeQuotedPrintable(std::string_view text, Escapes escapes) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (c != '=') {
      out += c;
      continue;
    }
    size_t j = i + 1;
    while (j < text.size() && (text[j] == ' ' || text[j] == '\t')) ++j;
    if (j < text.size() &&
        (text[j] == '\n' || (text[j] == '\r' && j + 1 < text.size() && text[j + 1] == '\n'))) {
      i = text[j] == '\r' ? j + 1 : j;
      continue;
    }
    int hi = i + 1 < text.size() ? hexValue(text[i + 1]) : -1;
    int lo = i + 2 < text.size() ? hexValue(text[i + 2]) : -1;
    if (hi < 0 || lo < 0) {
      out += c;
      continue;
    }
    auto byte = static_cast<unsigned char>(hi * 16 + lo);
    if (byte >= 0x80 && escapes == Escapes::asLatin1) {
      out += static_cast<char>(0xC0 | byte >> 6);
      out += static_cast<char>(0x80 | (byte & 0x3F));
    } else {
      out += static_cast<char>(byte);
    }
    i += 2;
  }
  return out;
}

std::string normalisedEncoding(std::string_view encoding) {
  return Text::asciiLower(Text::trim(encoding, " \t\r\n\""));
}

// The transfer decoding as bytes, for parts converted from another charset.
std::string decodeToBytes(std::string_view text, std::string_view encoding) {
  std::string name = normalisedEncoding(encoding);
  if (name == "quoted-printable") return decodeQuotedPrintable(text, Escapes::asBytes);
  if (name == "base64") return Base64::decode(text);
  return std::string(text);
}

// A run of ASCII digits as a number; nothing for anything else (PCRE's \\d also
// matches other scripts' digits).
std::optional<int> asciiNumber(std::string_view digits) {
  if (digits.empty() || digits.size() > 9) return std::nullopt;
  int value = 0;
  for (char c : digits) {
    if (c < '0' || c > '9') return std::nullopt;
    value = value * 10 + (c - '0');
  }
  return value;
}

// Minutes east of UTC for a date's zone; no zone is UTC. Nothing when unreadable.
std::optional<int64_t> zoneOffsetMinutes(std::string_view zoneText) {
  std::string zone = Text::asciiLower(zoneText);
  if (zone.size() == 5 && (zone[0] == '+' || zone[0] == '-')) {
    auto hhmm = asciiNumber(std::string_view(zone).substr(1));
    if (!hhmm || *hhmm % 100 > 59) return std::nullopt;
    return static_cast<int64_t>(*hhmm / 100 * 60 + *hhmm % 100) * (zone[0] == '-' ? -1 : 1);
  }
  if (zone.size() == 3 && zone[2] == 't' && zone != "gmt" && zone != "utc") {
    static constexpr std::string_view kUsZones = "ecmp";  // EST is 5 hours west, PST 8
    int64_t hours = 5 + static_cast<int64_t>(kUsZones.find(zone[0]));
    return -hours * 60 + (zone[1] == 'd' ? 60 : 0);
  }
  return 0;
}

// The bytes of an encoded word's text: "B" is base64, "Q" is quoted-printable
// with "_" for a space.
std::string decodeWordPayload(std::string_view encoding, std::string_view payload) {
  if (encoding == "B" || encoding == "b") return Base64::decode(payload);
  std::string text(payload);
  std::replace(text.begin(), text.end(), '_', ' ');
  return decodeQuotedPrintable(text, Escapes::asBytes);
}

std::string headerOr(const Eml::Headers& headers, std::string_view name) {
  auto it = headers.find(std::string(name));
  return it == headers.end() ? std::string() : it->second;
}

// The media type of a content-type value, lower case; "" when there is none.
std::string mediaType(std::string_view contentType) {
  return Text::asciiLower(Text::trim(contentType.substr(0, contentType.find(';'))));
}

std::optional<std::string> parameter(const JSRegex& pattern, std::string_view value) {
  auto m = pattern.firstMatch(value);
  if (!m) return std::nullopt;
  return std::string(m->has(1) ? m->text(1) : m->text(2));
}

std::optional<std::string> boundaryOf(std::string_view contentType) {
  static const JSRegex pattern("boundary\\s*=\\s*(?:\"([^\"]+)\"|([^\";\\s]+))",
                               JSRegex::Case::insensitive);
  return parameter(pattern, contentType);
}

std::string charsetOf(std::string_view contentType) {
  static const JSRegex pattern("charset\\s*=\\s*(?:\"([^\"]+)\"|([^\";\\s]+))",
                               JSRegex::Case::insensitive);
  return parameter(pattern, contentType).value_or("");
}

// A multipart that lost its boundary parameter: the first line that looks like a
// delimiter ("--" and a token) names it.
std::optional<std::string> guessBoundary(std::string_view body) {
  for (size_t at = 0; at < body.size();) {
    size_t eol = std::min(body.find('\n', at), body.size());
    std::string_view line = Text::trim(body.substr(at, eol - at));
    if (line.size() > 2 && line.starts_with("--")) return std::string(line.substr(2));
    at = eol + 1;
  }
  return std::nullopt;
}

// The child parts of a multipart body: the text between delimiter lines ("--"
// boundary, optionally "--" after it, then only blanks). The line break before a
// delimiter belongs to it. Preamble and epilogue are dropped; a missing close
// delimiter ends the last part at the end of the text.
std::vector<std::string_view> splitMultipart(std::string_view body, std::string_view boundary) {
  std::vector<std::string_view> pieces;
  std::string delimiter = "--" + std::string(boundary);
  std::optional<size_t> partStart;
  size_t search = 0;
  while (true) {
    size_t at = body.find(delimiter, search);
    if (at == std::string_view::npos) break;
    search = at + delimiter.size();
    if (at != 0 && body[at - 1] != '\n') continue;
    size_t eol = std::min(body.find('\n', search), body.size());
    std::string_view rest = Text::trim(body.substr(search, eol - search), " \t\r");
    bool closing = rest.starts_with("--");
    if (!rest.empty() && !(closing && Text::trim(rest.substr(2), " \t\r").empty())) continue;
    if (partStart) {
      size_t end = at;
      if (end > *partStart && body[end - 1] == '\n') --end;
      if (end > *partStart && body[end - 1] == '\r') --end;
      pieces.push_back(body.substr(*partStart, end - *partStart));
    }
    if (closing) return pieces;
    partStart = std::min(eol + 1, body.size());
    search = *partStart;
  }
  if (partStart) pieces.push_back(body.substr(*partStart));
  return pieces;
}

std::string crlfToLf(std::string text) {
  size_t cr = text.find("\r\n");
  if (cr == std::string::npos) return text;
  std::string out;
  out.reserve(text.size());
  size_t from = 0;
  for (; cr != std::string::npos; cr = text.find("\r\n", from)) {
    out.append(text, from, cr - from);
    from = cr + 1;  // keeps the "\n"
  }
  out.append(text, from, std::string::npos);
  return out;
}

// A leaf body as UTF-8 text: the transfer decoding, then the charset.
std::string decodeText(std::string_view body, const Eml::Headers& headers) {
  std::string encoding = headerOr(headers, "content-transfer-encoding");
  std::string charset = charsetOf(headerOr(headers, "content-type"));
  if (Charset::isUTF8Family(charset)) {
    std::string text = Eml::decode(body, encoding);
    if (Text::isValidUTF8(text)) return crlfToLf(std::move(text));
    // Undeclared 8-bit text is most often Latin-1; declared UTF-8 stays UTF-8.
    return crlfToLf(charset.empty() ? Charset::latin1ToUTF8(text) : Text::sanitizeUTF8(text));
  }
  std::string bytes = decodeToBytes(body, encoding);
  if (auto converted = Charset::toUTF8(bytes, charset)) return crlfToLf(std::move(*converted));
  // An unknown charset: UTF-8 when the bytes are, else one character per byte.
  return crlfToLf(Text::isValidUTF8(bytes) ? std::move(bytes) : Charset::latin1ToUTF8(bytes));
}

bool isAttachment(const Eml::Headers& headers) {
  static const JSRegex attachment("^\\s*attachment|filename\\s*\\*?=", JSRegex::Case::insensitive);
  return attachment.matches(headerOr(headers, "content-disposition"));
}

// The state of one walk over a part tree.
struct Walk {
  Eml::Parsed& out;
  std::optional<std::string> plain;
  std::optional<std::string> html;
};

void readLeaf(std::string_view type, std::string_view body, const Eml::Headers& headers,
              Walk& walk) {
  bool attachment = isAttachment(headers);
  if (type.starts_with("application/") || attachment) walk.out.hasAttachments = true;
  if (attachment) return;
  if ((type.empty() || type == "text/plain") && !walk.plain) {
    walk.plain = decodeText(body, headers);
  } else if (type == "text/html" && !walk.html) {
    walk.html = decodeText(body, headers);
  }
}

void readInto(std::string_view text, int depth, Walk& walk) {
  Split split = splitPart(text);
  Eml::Headers headers = Eml::parseHeaders(split.headers);
  std::string contentType = headerOr(headers, "content-type");
  std::string type = mediaType(contentType);
  walk.out.partTypes.push_back(type.empty() ? "text/plain" : type);
  if (depth == 0) walk.out.headers = headers;
  if (depth < Eml::kMaxDepth && type.starts_with("multipart/")) {
    auto boundary = boundaryOf(contentType);
    if (!boundary) boundary = guessBoundary(split.body);
    auto pieces =
        boundary ? splitMultipart(split.body, *boundary) : std::vector<std::string_view>{};
    if (!pieces.empty()) {
      for (std::string_view piece : pieces) readInto(piece, depth + 1, walk);
      return;
    }
    type = "text/plain";  // nothing to split at: show what is there
  } else if (depth < Eml::kMaxDepth && type == "message/rfc822") {
    readInto(split.body, depth + 1, walk);
    return;
  }
  readLeaf(type, split.body, headers, walk);
}

// Display names and other header text: encoded words decoded, and raw 8-bit
// bytes, which some mailers still send, read as Latin-1 when they are not UTF-8.
std::string headerText(std::string_view raw) {
  std::string text = Eml::decodeWords(raw);
  return Text::isValidUTF8(text) ? text : Charset::latin1ToUTF8(text);
}

std::string unquoted(std::string_view name) {
  name = Text::trim(name);
  if (name.size() >= 2 && name.front() == '"' && name.back() == '"') {
    name = name.substr(1, name.size() - 2);
  }
  std::string out;
  out.reserve(name.size());
  for (size_t i = 0; i < name.size(); ++i) {
    if (name[i] == '\\' && i + 1 < name.size()) ++i;
    out += name[i];
  }
  return out;
}

std::vector<std::string> angleIds(std::string_view value) {
  static const JSRegex id("<([^>]+)>");
  std::vector<std::string> ids;
  for (const auto& m : id.allMatches(value)) ids.emplace_back(Text::trim(m.text(1)));
  return ids;
}

std::string threadIdOf(const Eml::Headers& headers, std::string_view fallback) {
  for (std::string_view name : {"references", "in-reply-to", "message-id"}) {
    auto ids = angleIds(headerOr(headers, name));
    if (!ids.empty() && !ids.front().empty()) return ids.front();
  }
  std::string bare(Text::trim(headerOr(headers, "message-id")));
  return bare.empty() ? std::string(fallback) : bare;
}

std::string snippetOf(std::string_view body) {
  constexpr size_t kLook = 1024;
  std::string squashed = Text::squashSpaces(body.substr(0, kLook));
  if (body.size() > kLook && squashed.size() < 2 * MailMessage::kSnippetLength) {
    squashed = Text::squashSpaces(body);
  }
  return Text::cut(squashed, MailMessage::kSnippetLength);
}

}  // namespace

Eml::Headers Eml::parseHeaders(std::string_view text) {
  Headers headers;
  std::string name;
  std::string value;
  auto store = [&] {
    if (!name.empty()) headers[name] = std::string(Text::trim(value));
    name.clear();
  };
  for (size_t at = 0; at < text.size();) {
    size_t eol = std::min(text.find('\n', at), text.size());
    std::string_view line = lineContent(text.substr(at, eol - at));
    at = eol + 1;
    if (line.empty()) break;
    if (isFoldedLine(line)) {
      if (!name.empty()) value.append(line);
      continue;
    }
    store();
    if (auto header = splitHeaderLine(line)) {
      name = Text::asciiLower(header->name);
      value.assign(header->value);
    }
  }
  store();
  return headers;
}

std::string Eml::decode(std::string_view text, std::string_view encoding) {
  std::string name = normalisedEncoding(encoding);
  if (name == "quoted-printable") return decodeQuotedPrintable(text, Escapes::asLatin1);
  if (name == "base64") {
    std::string bytes = Base64::decode(text);
    return Text::isValidUTF8(bytes) ? bytes : Text::sanitizeUTF8(bytes);
  }
  return std::string(text);
}

Eml::Parsed Eml::readPart(std::string_view text) {
  Parsed parsed;
  Walk walk{parsed, std::nullopt, std::nullopt};
  readInto(text, 0, walk);
  if (walk.plain) {
    parsed.body = std::move(*walk.plain);
  } else if (walk.html) {
    parsed.body = GmailParse::htmlToText(*walk.html);
  }
  return parsed;
}

std::vector<std::string> Eml::splitAddresses(std::string_view list) {
  std::vector<std::string> items;
  std::string current;
  bool quoted = false;
  int angle = 0;
  int comment = 0;
  auto flush = [&] {
    std::string_view item = Text::trim(current);
    if (!item.empty()) items.emplace_back(item);
    current.clear();
  };
  for (size_t i = 0; i < list.size(); ++i) {
    char c = list[i];
    if (quoted) {
      if (c == '\\' && i + 1 < list.size()) {
        current += c;
        c = list[++i];
      } else if (c == '"') {
        quoted = false;
      }
    } else if (c == '"') {
      quoted = true;
    } else if (c == '(') {
      ++comment;
    } else if (c == ')' && comment > 0) {
      --comment;
    } else if (comment == 0 && c == '<') {
      ++angle;
    } else if (comment == 0 && c == '>' && angle > 0) {
      --angle;
    } else if (comment == 0 && angle == 0 && (c == ',' || c == ';')) {
      flush();
      continue;
    } else if (comment == 0 && angle == 0 && c == ':') {
      current.clear();  // "Group name:" introduces the group's members
      continue;
    }
    current += c;
  }
  flush();
  return items;
}

std::optional<MailAddress> Eml::parseAddress(std::string_view item) {
  static const JSRegex named("^\\s*(.*?)\\s*<([^>]*)>\\s*$", JSRegex::Case::insensitive);
  static const JSRegex commented("^\\s*([^\\s(]+)\\s*\\((.*)\\)\\s*$");
  MailAddress address;
  if (auto m = named.firstMatch(item)) {
    address.email = Text::trim(m->text(2));
    std::string name = headerText(unquoted(m->text(1)));
    if (!name.empty()) address.name = std::move(name);
  } else if (auto c = commented.firstMatch(item)) {
    address.email = c->text(1);
    std::string name = headerText(Text::trim(c->text(2)));
    if (!name.empty()) address.name = std::move(name);
  } else {
    address.email = Text::trim(item);
  }
  if (address.email.empty()) return std::nullopt;
  return address;
}

std::vector<MailAddress> Eml::parseAddressList(std::string_view list) {
  std::vector<MailAddress> addresses;
  for (const std::string& item : splitAddresses(list)) {
    if (auto address = parseAddress(item)) addresses.push_back(std::move(*address));
  }
  return addresses;
}

std::optional<int64_t> Eml::parseDate(std::string_view text) {
  static const JSRegex pattern(
      "^\\s*(?:[A-Za-z]{3},?\\s*)?(\\d{1,2})\\s+([A-Za-z]{3})[a-z]*\\s+(\\d{2,4})\\s+(\\d{1,2}):("
      "\\d{2})"
      "(?::(\\d{2}))?\\s*([+-]\\d{4}|GMT|UTC|UT|Z|[ECMP][SD]T)?",
      JSRegex::Case::insensitive);
  auto m = pattern.firstMatch(text);
  if (!m) return std::nullopt;
  static constexpr std::string_view kMonths = "janfebmaraprmayjunjulaugsepoctnovdec";
  size_t month = kMonths.find(Text::asciiLower(m->text(2)));
  auto day = asciiNumber(m->text(1)), year = asciiNumber(m->text(3));
  auto hour = asciiNumber(m->text(4)), minute = asciiNumber(m->text(5));
  auto second = m->has(6) ? asciiNumber(m->text(6)) : 0;
  if (month == std::string_view::npos || month % 3 != 0 || !day || !year || !hour || !minute ||
      !second || *day < 1 || *day > 31 || *hour > 23 || *minute > 59 || *second > 60) {
    return std::nullopt;
  }
  if (m->text(3).size() == 2) *year += *year < 50 ? 2000 : 1900;
  if (m->text(3).size() == 3) *year += 1900;
  auto offset = zoneOffsetMinutes(m->text(7));
  if (!offset) return std::nullopt;
  int64_t days = Clock::daysFromCivil(*year, static_cast<unsigned>(month / 3 + 1),
                                      static_cast<unsigned>(*day));
  return days * 86400 + *hour * 3600 + *minute * 60 + *second - *offset * 60;
}

std::string Eml::decodeWords(std::string_view value) {
  if (value.find("=?") == std::string_view::npos) return std::string(value);
  static const JSRegex word("=\\?([^?\\s]+)\\?([BbQq])\\?([^?\\s]*)\\?=");
  std::string out;
  std::string pendingBytes;    // adjacent words of one charset are converted together,
  std::string pendingCharset;  // so a character split across two words survives
  auto flush = [&] {
    if (pendingCharset.empty()) return;
    auto text = Charset::toUTF8(pendingBytes, pendingCharset);
    out += text ? *text : Charset::latin1ToUTF8(pendingBytes);
    pendingBytes.clear();
    pendingCharset.clear();
  };
  size_t last = 0;
  for (const auto& m : word.allMatches(value)) {
    JSRegex::Range r = m.range();
    std::string_view gap = value.substr(last, r.begin - last);
    std::string charset = Text::asciiLower(m.text(1));
    bool joins = !pendingCharset.empty() && Text::trim(gap).empty();
    if (!joins) {
      flush();
      out.append(gap);
    }
    if (!Charset::isKnown(charset)) {  // unknown charset: keep the word as written
      flush();
      out.append(m.text(0));
    } else {
      if (!pendingCharset.empty() && pendingCharset != charset) flush();
      pendingCharset = charset;
      pendingBytes += decodeWordPayload(m.text(2), m.text(3));
    }
    last = r.end;
  }
  flush();
  out.append(value.substr(last));
  return out;
}

MailMessage Eml::message(std::string_view text, std::string_view id) {
  Parsed parsed = readPart(text);
  MailMessage message;
  message.id = id;
  for (const auto& [name, raw] : parsed.headers) message.headers[name] = headerText(raw);
  auto from = parseAddressList(headerOr(parsed.headers, "from"));
  message.from = from.empty() ? MailMessage::placeholderSender() : std::move(from.front());
  message.to = parseAddressList(headerOr(parsed.headers, "to"));
  message.cc = parseAddressList(headerOr(parsed.headers, "cc"));
  std::string subject(Text::trim(headerOr(message.headers, "subject")));
  message.subject = subject.empty() ? std::string(MailMessage::kNoSubject) : subject;
  message.date = headerOr(message.headers, "date");
  message.body = std::move(parsed.body);
  message.snippet = snippetOf(message.body);
  message.unread = true;
  message.hasAttachments = parsed.hasAttachments;
  if (std::find(parsed.partTypes.begin(), parsed.partTypes.end(), "text/calendar") !=
      parsed.partTypes.end()) {
    message.headers["x-vobbo-kind"] = "calendar-invite";
  }
  message.threadId = threadIdOf(parsed.headers, id);
  return message;
}

}  // namespace vobbo
