#pragma once
// The mail records every reader produces and everything downstream (triage, the
// mail card, the assistant's mail tools) works on. A MailMessage is plain data:
// texts are UTF-8, header names are lower case, and the JSON form uses the field
// names below. Readers never leave a field unset: a mail without a subject reads
// "(no subject)", one without a readable sender gets kPlaceholderSender.

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "JSONCodec.h"

namespace vobbo {

struct MailAddress {
  std::optional<std::string> name;  // the display name, absent when the mail gives none
  std::string email;
  bool operator==(const MailAddress&) const = default;
};

struct MailMessage {
  std::string id;  // the provider's message id (the file name for an .eml file)
  std::string threadId;
  MailAddress from;
  std::vector<MailAddress> to;
  std::vector<MailAddress> cc;
  std::string subject;
  std::string date;     // as the mail states it
  std::string snippet;  // a short plain preview of the body
  std::string body;     // the chosen plain body
  std::vector<std::string> labels;
  bool unread = false;
  bool hasAttachments = false;
  int64_t threadSize = 1;
  std::map<std::string, std::string> headers;  // lower-case name to decoded value
  bool operator==(const MailMessage&) const = default;

  static constexpr std::string_view kNoSubject = "(no subject)";
  // Stands in for a sender that is missing or cannot be read.
  static MailAddress placeholderSender() { return {"Unknown sender", "unknown-sender@invalid"}; }
  // How many characters of the body a snippet keeps, "…" included.
  static constexpr size_t kSnippetLength = 160;

  // The display name when there is one, else the address.
  std::string senderLabel() const { return from.name ? *from.name : from.email; }
};

struct MailThread {
  std::string id;
  std::string subject;
  std::vector<MailMessage> messages;
  bool operator==(const MailThread&) const = default;

  // Groups messages by threadId, threads in order of their first message, and
  // sets every message's threadSize to the size of its thread.
  static std::vector<MailThread> group(std::vector<MailMessage> messages);
};

template <>
struct JSONFields<MailAddress> {
  static constexpr auto list =
      std::tuple{JSONField{"name", &MailAddress::name}, JSONField{"email", &MailAddress::email}};
};

template <>
struct JSONFields<MailMessage> {
  using M = MailMessage;
  static constexpr auto list = std::tuple{JSONField{"id", &M::id},
                                          JSONField{"threadId", &M::threadId},
                                          JSONField{"from", &M::from},
                                          JSONField{"to", &M::to},
                                          JSONField{"cc", &M::cc},
                                          JSONField{"subject", &M::subject},
                                          JSONField{"date", &M::date},
                                          JSONField{"snippet", &M::snippet},
                                          JSONField{"body", &M::body},
                                          JSONField{"labels", &M::labels},
                                          JSONField{"unread", &M::unread},
                                          JSONField{"hasAttachments", &M::hasAttachments},
                                          JSONField{"threadSize", &M::threadSize},
                                          JSONField{"headers", &M::headers}};
};

template <>
struct JSONFields<MailThread> {
  static constexpr auto list =
      std::tuple{JSONField{"id", &MailThread::id}, JSONField{"subject", &MailThread::subject},
                 JSONField{"messages", &MailThread::messages}};
};

}  // namespace vobbo
