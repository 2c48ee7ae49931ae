// Grapheme clusters come from PCRE2's \X, which follows Unicode's extended
// grapheme cluster rules. Calling the engine for every character would be slow
// for the long ASCII texts that dominate (commands, paths, mail), so a cluster
// boundary between two ASCII characters other than CR LF is taken directly:
// no Unicode rule joins two ASCII characters except CR followed by LF.

#include "Text.h"

#include <simdjson.h>

#include "JSRegex.h"

namespace vobbo::Text {

namespace {

// The length of the valid UTF-8 sequence at `at`, or 0 when the bytes there are not one.
size_t sequenceLength(std::string_view s, size_t at) {
  auto b = [&](size_t i) { return static_cast<unsigned char>(s[i]); };
  unsigned char c = b(at);
  size_t left = s.size() - at;
  auto cont = [&](size_t i) { return (b(at + i) & 0xC0) == 0x80; };
  if (c < 0x80) return 1;
  if (c >= 0xC2 && c <= 0xDF) return left >= 2 && cont(1) ? 2 : 0;
  if (c >= 0xE0 && c <= 0xEF) {
    if (left < 3 || !cont(1) || !cont(2)) return 0;
    if (c == 0xE0 && b(at + 1) < 0xA0) return 0;  // overlong
    if (c == 0xED && b(at + 1) > 0x9F) return 0;  // surrogate
    return 3;
  }
  if (c >= 0xF0 && c <= 0xF4) {
    if (left < 4 || !cont(1) || !cont(2) || !cont(3)) return 0;
    if (c == 0xF0 && b(at + 1) < 0x90) return 0;  // overlong
    if (c == 0xF4 && b(at + 1) > 0x8F) return 0;  // above U+10FFFF
    return 4;
  }
  return 0;
}

bool isAscii(char c) { return static_cast<unsigned char>(c) < 0x80; }

// A regional indicator (U+1F1E6 to U+1F1FF, F0 9F 87 A6..BF) starts at `at`.
bool isRegionalIndicator(std::string_view s, size_t at) {
  return s.size() >= at + 4 && s.substr(at, 3) == "\xF0\x9F\x87" &&
         static_cast<unsigned char>(s[at + 3]) >= 0xA6 &&
         static_cast<unsigned char>(s[at + 3]) <= 0xBF;
}

// The end of the character that starts at `at`.
size_t nextBoundary(std::string_view s, size_t at) {
  if (isAscii(s[at]) &&
      (at + 1 == s.size() || (isAscii(s[at + 1]) && !(s[at] == '\r' && s[at + 1] == '\n')))) {
    return at + 1;
  }
  // PCRE2 10.42 pairs regional indicators wrongly (a row of flags comes out as
  // one cluster, or a flag is split), so a flag is taken here: two indicators
  // and the marks or joiners that follow them.
  if (isRegionalIndicator(s, at) && isRegionalIndicator(s, at + 4)) {
    static const JSRegex marks("\\G(?:\\p{M}|\\x{200D})*");
    auto tail = marks.firstMatch(s, at + 8);
    return tail ? tail->range().end : at + 8;
  }
  static const JSRegex cluster("\\G\\X");
  auto m = cluster.firstMatch(s, at);
  if (!m || m->range().begin != at || m->range().end == at) return at + 1;  // a stray byte
  return m->range().end;
}

}  // namespace

bool isValidUTF8(std::string_view text) {
  return simdjson::validate_utf8(text.data(), text.size());
}

std::string sanitizeUTF8(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size();) {
    size_t n = sequenceLength(text, i);
    if (n == 0) {
      out += "\uFFFD";
      ++i;
    } else {
      out.append(text.substr(i, n));
      i += n;
    }
  }
  return out;
}

size_t characterCount(std::string_view text) {
  size_t count = 0;
  for (size_t i = 0; i < text.size(); i = nextBoundary(text, i)) ++count;
  return count;
}

std::string_view prefix(std::string_view text, size_t n) {
  if (text.size() <= n) return text;  // never more characters than bytes
  size_t i = 0;
  for (size_t taken = 0; taken < n && i < text.size(); ++taken) i = nextBoundary(text, i);
  return text.substr(0, i);
}

std::string cut(std::string_view text, size_t limit) {
  if (text.size() <= limit) return std::string(text);
  std::string_view head = prefix(text, limit);
  if (head.size() == text.size()) return std::string(text);
  return std::string(prefix(text, limit - 1)) + std::string(kEllipsis);
}

size_t utf16Length(std::string_view text) {
  size_t units = 0;
  for (size_t i = 0; i < text.size();) {
    size_t n = sequenceLength(text, i);
    units += n == 4 ? 2 : 1;
    i += n == 0 ? 1 : n;
  }
  return units;
}

std::string_view utf16Prefix(std::string_view text, size_t units) {
  size_t used = 0;
  size_t end = 0;
  while (end < text.size()) {
    size_t next = nextBoundary(text, end);
    size_t cost = utf16Length(text.substr(end, next - end));
    if (used + cost > units) break;
    used += cost;
    end = next;
  }
  return text.substr(0, end);
}

std::string asciiLower(std::string_view text) {
  std::string out(text);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return out;
}

std::string_view trim(std::string_view text, std::string_view chars) {
  size_t b = text.find_first_not_of(chars);
  if (b == std::string_view::npos) return {};
  size_t e = text.find_last_not_of(chars);
  return text.substr(b, e - b + 1);
}

std::string squashSpaces(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  bool pendingSpace = false;
  for (char c : text) {
    if (c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v') {
      pendingSpace = !out.empty();
    } else {
      if (pendingSpace) out += ' ';
      pendingSpace = false;
      out += c;
    }
  }
  return out;
}

}  // namespace vobbo::Text
