#pragma once
// Turning the bytes of a mail part or an encoded header word into UTF-8. Mail
// names its charset ("iso-8859-1", "windows-1252", "Shift_JIS", "koi8-r");
// conversion goes through the C library's iconv. UTF-8 and US-ASCII are taken
// as they are, with invalid sequences shown as U+FFFD, because mislabelled
// mail is common and the text is still best read as UTF-8.

#include <optional>
#include <string>
#include <string_view>

namespace vobbo::Charset {

// The bytes as UTF-8, or nothing when the charset is unknown. Bytes the charset
// cannot map become U+FFFD; nothing is dropped silently.
std::optional<std::string> toUTF8(std::string_view bytes, std::string_view charset);

// Whether toUTF8 can convert from the charset.
bool isKnown(std::string_view charset);

// Whether the name stands for UTF-8 or its ASCII subset ("utf-8", "UTF8", "us-ascii").
bool isUTF8Family(std::string_view charset);

// Every byte as the Latin-1 character of that value (U+0000 to U+00FF), and back:
// characters above U+00FF, and bytes that are not UTF-8, are kept as they are.
std::string latin1ToUTF8(std::string_view bytes);
std::string latin1FromUTF8(std::string_view text);

}  // namespace vobbo::Charset
