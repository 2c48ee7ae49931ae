#pragma once
// Reads RFC 822 mail text (".eml" files) into MailMessage. Mail in the wild is
// messy, so nothing here fails: truncated MIME, a boundary that never closes, a
// header line without a colon, invalid base64, an unknown charset or stray NUL
// bytes all give the best message that can be read from what is there.
//
// Texts come out as UTF-8. Header values keep their raw form in Parsed (so an
// address list can be split before its names are decoded); MailMessage headers
// hold them decoded, RFC 2047 encoded words included.

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "MailMessage.h"

namespace vobbo {

struct Eml {
  using Headers = std::map<std::string, std::string>;

  // What reading a part (a whole mail being the outermost part) gives.
  struct Parsed {
    Headers headers;                     // the part's own, lower-case names, raw values
    std::string body;                    // the chosen plain body, UTF-8
    std::vector<std::string> partTypes;  // content type of every part met, in order
    bool hasAttachments = false;         // an application/ part, or one sent as an attachment
  };

  // Parts nested deeper than this are not opened; their text is not searched for a body.
  static constexpr int kMaxDepth = 32;

  // The header block: everything before the first empty line. Folded lines are
  // joined; each "Name: value" line is stored under the lower-cased name, a later
  // header replacing an earlier one of the same name. Lines that are not headers
  // are skipped.
  static Headers parseHeaders(std::string_view text);

  // Undoes a content-transfer-encoding. Quoted-printable escapes become one
  // character each, the byte value as a code point (so =E9 is "é" and the two
  // escapes =C3=A9 are the two characters "Ã©"); base64 is decoded and read as
  // UTF-8; any other encoding gives the text as it stands.
  static std::string decode(std::string_view text, std::string_view encoding);

  // Reads a part: its headers, its body (the first text/plain part, else the
  // first HTML part as text), walking nested multiparts depth first. Bodies in
  // charsets other than UTF-8 are converted.
  static Parsed readPart(std::string_view text);

  // Splits an address list at top-level commas: commas inside quotes, angle
  // brackets or comments do not split, and group syntax ("Team: a@x, b@y;")
  // gives its members.
  static std::vector<std::string> splitAddresses(std::string_view list);
  // Every address of a list, display names unquoted and decoded.
  static std::vector<MailAddress> parseAddressList(std::string_view list);
  // One "Name <email>" or bare address; nothing when the item holds no address.
  static std::optional<MailAddress> parseAddress(std::string_view item);

  // Seconds since 1970 for a mail date ("Tue, 3 Nov 2026 09:15:00 +0530").
  // Two-digit years 00-49 are 20xx and 50-99 are 19xx; a missing zone is UTC.
  // Nothing for text that is not a date.
  static std::optional<int64_t> parseDate(std::string_view text);

  // Decodes RFC 2047 encoded words ("=?UTF-8?B?...?=", "=?ISO-8859-1?Q?...?=")
  // in a header value. Words in an unknown charset are left as written.
  static std::string decodeWords(std::string_view value);

  // The whole mail as a message. `id` becomes its id; the thread id is the first
  // id of "References", else "In-Reply-To", else its own "Message-ID", else `id`.
  static MailMessage message(std::string_view text, std::string_view id);
};

}  // namespace vobbo
