#pragma once
// Base64 in both alphabets mail needs: the standard one of MIME bodies and the
// URL-safe one of the Gmail API. Decoding is lenient in the way mail readers
// have to be: white space and any character outside the alphabets are skipped,
// missing padding is fine, and decoding stops at the first "=". Bad input
// therefore decodes to what could be read, never to a failure.

#include <string>
#include <string_view>

namespace vobbo::Base64 {

enum class Alphabet { standard, url };
enum class Padding { keep, omit };

std::string encode(std::string_view bytes, Alphabet alphabet = Alphabet::standard,
                   Padding padding = Padding::keep);

// Accepts both alphabets at once ("+/" and "-_"), so one call reads either.
std::string decode(std::string_view text);

}  // namespace vobbo::Base64
