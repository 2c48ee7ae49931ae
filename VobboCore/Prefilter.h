#pragma once
// The on-device prefilter of mail triage. Mail that carries a one-time
// password, a bank account notice, a card statement or a UPI payment notice is
// recognised here, before any model could see it, and is given a fixed verdict
// on the machine. Its text is kept only after redactCodes has blanked every
// digit run that could be a code or an account number.

#include <optional>
#include <string>
#include <string_view>

#include "MailMessage.h"
#include "RawEnum.h"
#include "Triage.h"

namespace vobbo {

struct Prefilter {
  enum class Reason { otp, bank, card_statement, upi };

  struct Classification {
    Reason reason = Reason::otp;
    std::string rule;  // which rule fired, in words shown to the person
    bool operator==(const Classification&) const = default;
  };

  // What stands in for a blanked digit run.
  static constexpr std::string_view kRedacted = "\u2022\u2022\u2022\u2022";

  // The classification of private mail, or nothing for ordinary mail. The
  // one-time password rule is tried first, then UPI, then mail from a bank's
  // sender, then a statement subject with account words in the body.
  static std::optional<Classification> classify(const MailMessage& message);

  // The fixed on-device verdict. A card statement carries the task "Pay the card
  // bill", due on the payment due date when the body states one.
  static TriageVerdict localVerdict(const MailMessage& message,
                                    const Classification& classification);

  // The text with every run of 4 to 12 digits replaced by kRedacted.
  static std::string redactCodes(std::string_view text);

  // The message with its subject, snippet, body and header values redacted (all
  // but the date and message-id headers, which hold no codes).
  static MailMessage redacted(MailMessage message);

  // The row for prefiltered mail: redacted message, local verdict, source local.
  static TriagedMessage triaged(MailMessage message, const Classification& classification);
};

template <>
struct RawValues<Prefilter::Reason> {
  using R = Prefilter::Reason;
  static constexpr std::pair<R, std::string_view> values[] = {
      {R::otp, "otp"}, {R::bank, "bank"}, {R::card_statement, "card_statement"}, {R::upi, "upi"}};
};

}  // namespace vobbo
