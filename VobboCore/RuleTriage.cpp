#include "RuleTriage.h"

#include <algorithm>

#include "JSRegex.h"
#include "Text.h"

namespace vobbo {

namespace {

bool has(const std::vector<std::string>& signals, std::string_view word) {
  return std::find(signals.begin(), signals.end(), word) != signals.end();
}

std::string summaryOf(const MailMessage& message) {
  std::string_view subject = Text::trim(message.subject);
  if (!subject.empty()) return std::string(subject);
  std::string_view snippet = Text::trim(message.snippet);
  if (!snippet.empty()) return std::string(snippet);
  return std::string(MailMessage::kNoSubject);
}

// Narrower than the "auth-failed" signal: a missing DKIM signature alone is common
// on honest mail and does not make it suspicious.
bool failedAuthentication(const MailMessage& message) {
  static const JSRegex failed("spf=fail|dmarc=fail");
  auto it = message.headers.find("authentication-results");
  return it != message.headers.end() && failed.matches(it->second);
}

}  // namespace

TriageVerdict RuleTriage::verdict(const MailMessage& message) {
  using U = Triage::Urgency;
  using C = Triage::Category;
  TriageVerdict verdict;
  verdict.summary = summaryOf(message);
  if (failedAuthentication(message)) {
    verdict.urgency = U::ignore;
    verdict.category = C::suspicious;
    verdict.confidence = 0.6;
    verdict.summary = "Sender failed SPF or DMARC authentication. " + verdict.summary;
    return verdict;
  }
  std::vector<std::string> signals = Triage::signals(message);
  if (has(signals, "bulk-mail") && !has(signals, "mailing-list")) {
    verdict.urgency = U::someday;
    verdict.category = C::notification;
    verdict.confidence = 0.5;
  } else if (has(signals, "mailing-list") || has(signals, "has-unsubscribe")) {
    verdict.urgency = U::someday;
    verdict.category = C::newsletter;
    verdict.confidence = 0.5;
  } else {
    verdict.urgency = has(signals, "marked-high-priority") ? U::today : U::this_week;
    verdict.category = C::fyi;
    verdict.confidence = 0.3;
  }
  return verdict;
}

TriagedMessage RuleTriage::triaged(MailMessage message) {
  TriagedMessage row;
  row.verdict = verdict(message);
  row.message = std::move(message);
  row.source = Triage::Source::rules;
  row.tier = "none";
  row.rawConfidence = row.verdict.confidence;
  return row;
}

std::vector<TriagedMessage> RuleTriage::triage(const std::vector<MailMessage>& messages) {
  std::vector<TriagedMessage> rows;
  rows.reserve(messages.size());
  for (const MailMessage& message : messages) rows.push_back(triaged(message));
  return rows;
}

}  // namespace vobbo
