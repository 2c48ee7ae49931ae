#include "Triage.h"

#include <algorithm>
#include <charconv>

#include "JSRegex.h"
#include "Prefilter.h"
#include "RuleTriage.h"
#include "Text.h"

namespace vobbo {

namespace {

std::string_view headerOf(const MailMessage& message, std::string_view name) {
  auto it = message.headers.find(std::string(name));
  return it == message.headers.end() ? std::string_view() : std::string_view(it->second);
}

bool isBulk(const MailMessage& message) {
  return headerOf(message, "precedence") == "bulk" || !headerOf(message, "auto-submitted").empty();
}

bool isHighPriority(const MailMessage& message) {
  if (Text::trim(headerOf(message, "x-priority")) == "1") return true;
  static const JSRegex high("high", JSRegex::Case::insensitive);
  std::string joined = std::string(headerOf(message, "importance")) + " " +
                       std::string(headerOf(message, "priority"));
  return high.matches(joined);
}

bool isCalendarInvite(const MailMessage& message) {
  static const JSRegex invitation("^invitation:", JSRegex::Case::insensitive);
  return headerOf(message, "x-vobbo-kind") == "calendar-invite" ||
         invitation.matches(message.subject);
}

bool isSpamScored(const MailMessage& message) {
  std::string_view text = Text::trim(headerOf(message, "x-spam-score"));
  double score = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), score);
  return !text.empty() && error == std::errc() && end == text.data() + text.size() && score >= 5.0;
}

}  // namespace

std::vector<std::string> Triage::signals(const MailMessage& message) {
  static const JSRegex authFailed("spf=fail|dkim=none|dmarc=fail");
  std::vector<std::string> words;
  auto add = [&](bool condition, std::string word) {
    if (condition && std::find(words.begin(), words.end(), word) == words.end()) {
      words.push_back(std::move(word));
    }
  };
  add(!message.to.empty() && message.to.size() + message.cc.size() < 4, "direct-to-me");
  add(!message.cc.empty(), "cc-ed");
  add(isBulk(message), "bulk-mail");
  add(!headerOf(message, "list-unsubscribe").empty(), "has-unsubscribe");
  add(!headerOf(message, "list-id").empty(), "mailing-list");
  add(authFailed.matches(headerOf(message, "authentication-results")), "auth-failed");
  add(isHighPriority(message), "marked-high-priority");
  add(isCalendarInvite(message), "calendar-invite");
  add(isSpamScored(message), "spam-scored");
  add(message.hasAttachments, "has-attachments");
  add(message.threadSize > 1, "thread-of-" + std::to_string(message.threadSize));
  return words;
}

std::string_view Triage::guidance(ReplyTone tone) {
  switch (tone) {
    case ReplyTone::quick_ack:
      return "Two or three sentences. Confirm you have it, state what you will do and by when. "
             "Nothing else.";
    case ReplyTone::detailed:
      return "Answer every open question in the thread, one short paragraph or one bullet each. "
             "Close with the next step and who owns it.";
    case ReplyTone::decline:
      return "Decline clearly in the first sentence, give one honest reason, leave the door open "
             "if that is true. Stay under six sentences.";
    case ReplyTone::schedule:
      return "Accept or propose a time. Name the exact date and time with the timezone. Keep it "
             "under four sentences.";
  }
  return {};
}

std::string_view Triage::rationale(ReplyTone tone) {
  switch (tone) {
    case ReplyTone::quick_ack:
      return "Kept it to a confirmation and a same day commitment because the ask was one line.";
    case ReplyTone::detailed:
      return "Answered each open question separately and flagged the one number that is not "
             "confirmed yet.";
    case ReplyTone::decline:
      return "Declined in the first sentence and gave one real reason, so nobody is left guessing.";
    case ReplyTone::schedule:
      return "Accepted the exact slot with the timezone spelled out so the invite does not bounce.";
  }
  return {};
}

std::vector<TriagedMessage> Triage::triageByRules(std::vector<MailMessage> messages) {
  std::vector<TriagedMessage> rows;
  rows.reserve(messages.size());
  for (MailMessage& message : messages) {
    if (auto classification = Prefilter::classify(message)) {
      rows.push_back(Prefilter::triaged(std::move(message), *classification));
    } else {
      rows.push_back(RuleTriage::triaged(std::move(message)));
    }
  }
  return rows;
}

}  // namespace vobbo
