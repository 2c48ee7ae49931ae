#pragma once
// Helpers for display text. A "character" here is what a person sees as one:
// an extended grapheme cluster ("é" written as e + U+0301, a flag, a family emoji
// are one each). Cuts never split a UTF-8 sequence or a cluster. Text that is
// not valid UTF-8 counts each stray byte as one character.

#include <cstddef>
#include <string>
#include <string_view>

namespace vobbo::Text {

inline constexpr std::string_view kEllipsis = "\u2026";

bool isValidUTF8(std::string_view text);
// The text with every invalid UTF-8 sequence replaced by U+FFFD.
std::string sanitizeUTF8(std::string_view text);

// How many user-perceived characters the text holds.
size_t characterCount(std::string_view text);
// The first n characters of the text (all of it when it is shorter).
std::string_view prefix(std::string_view text, size_t n);
// The text when it holds at most limit characters; otherwise its first limit-1
// characters followed by "…", so the result is exactly limit characters.
// Requires: limit >= 1.
std::string cut(std::string_view text, size_t limit);

// Length in UTF-16 code units, and the longest prefix of at most that many units
// that ends on a character boundary.
size_t utf16Length(std::string_view text);
std::string_view utf16Prefix(std::string_view text, size_t units);

// ASCII letters lower-cased; every other byte as it stands (so UTF-8 survives).
std::string asciiLower(std::string_view text);

// Leading and trailing characters of `chars` removed.
std::string_view trim(std::string_view text, std::string_view chars = " \t\r\n");
// Runs of white space (space, tab, CR, LF, FF, VT) become one space; the ends are trimmed.
std::string squashSpaces(std::string_view text);

}  // namespace vobbo::Text
