#pragma once
// The rule stage of mail triage: a fixed decision list over the headers that
// sorts mail when no model can be asked. It reads only the signals and the
// subject, and by design never proposes a task or a reply, so the panel can
// promise that nothing is drafted or changed. Pure functions, safe on any thread.
//
// The list, first match wins:
//   authentication failed (SPF or DMARC)   ignore    suspicious     0.6
//   bulk mail that is not a mailing list   someday   notification   0.5
//   mailing list or unsubscribe link       someday   newsletter     0.5
//   anything else                          today (marked high priority) or
//                                          this_week                fyi   0.3

#include <vector>

#include "MailMessage.h"
#include "Triage.h"

namespace vobbo {

struct RuleTriage {
  // The summary is the subject trimmed, else the snippet, else "(no subject)";
  // suspicious mail gets a sentence in front saying why.
  static TriageVerdict verdict(const MailMessage& message);
  // The verdict as a row from the rule stage (source rules, tier "none").
  static TriagedMessage triaged(MailMessage message);
  // Every message's row, in the input order.
  static std::vector<TriagedMessage> triage(const std::vector<MailMessage>& messages);
};

}  // namespace vobbo
