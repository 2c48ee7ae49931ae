#pragma once
// Reads Gmail API message resources (the "full" format: a `payload` tree of MIME
// parts with base64url bodies) into MailMessage, and builds the raw text of a
// draft for the drafts call. Like the .eml reader it never fails on odd input:
// missing fields fall back to the defaults MailMessage documents.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "JSONValue.h"
#include "MailMessage.h"

namespace vobbo {

struct GmailParse {
  struct Body {
    std::string text;             // UTF-8; "" when the message has no text part
    bool hasAttachments = false;  // a part with a file name or an attachment id
  };

  // An unsent reply or new mail, as the person approved it.
  struct Draft {
    std::vector<std::string> to;  // "Name <email>" or bare addresses
    std::string subject;
    std::string body;
  };

  // Generated Message-IDs end in this domain, which never resolves.
  static constexpr std::string_view kMessageIdDomain = "quibly.local";

  // The message, or nothing when the resource is not an object with a string id.
  // `threadSize` is the caller's count of messages in the thread.
  static std::optional<MailMessage> message(const JSONValue& resource, int64_t threadSize = 1);

  // Walks the payload and its parts depth first: the first text/plain part is
  // the body, else the first text/html part as text. Part bodies are converted
  // from the charset their Content-Type header names.
  static Body extractBody(const JSONValue& payload);

  // Base64url to bytes; "-" and "_" stand for "+" and "/", padding optional.
  static std::string decodeB64Url(std::string_view data);

  // "Name <email>" or a bare address; the placeholder sender when there is none.
  static MailAddress parseAddress(std::string_view value);

  // Style and script blocks and comments dropped, tags removed (block tags leave a
  // space), character references decoded, runs of white space collapsed.
  static std::string htmlToText(std::string_view html);

  // The RFC 822 text of the draft with a fresh Message-ID, base64url-encoded.
  // Line breaks inside header values are replaced by spaces, so a recipient or
  // subject can never add a header; a subject beyond ASCII is sent encoded.
  static std::string buildRawMessage(std::string_view from, const Draft& draft);
};

}  // namespace vobbo
