#pragma once
// Mail triage: every mail gets a verdict (urgency, category, a one-line
// summary, tasks, whether it needs a reply and in which tone, a confidence).
// Three stages can give it, told apart by TriagedMessage::source:
//   local  the on-device prefilter (Prefilter): one-time passwords, bank, card
//          statement and UPI notices, whose text never leaves the machine;
//   rules  the rule stage (RuleTriage): simple header rules that never invent a
//          task or a reply, used when no model can be asked;
//   llm    the model stage, which reads ordinary mail in batches.
// This header holds the records all stages share, the signal words they read,
// the reply tones and the sentences the mail panel shows.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "JSONCodec.h"
#include "MailMessage.h"
#include "RawEnum.h"

namespace vobbo {

struct TriagedMessage;

struct Triage {
  enum class Urgency { now, today, this_week, someday, ignore };
  enum class Category {
    action_needed,
    waiting_on_me,
    fyi,
    newsletter,
    notification,
    personal,
    suspicious
  };
  enum class ReplyTone { quick_ack, detailed, decline, schedule };
  enum class Source { llm, local, rules };

  // What the model stage is given besides the mails. The language-model handles
  // (one per tier) and the canned answers of the demo inbox join these when the
  // model stage is built.
  struct Options {
    std::optional<double> now;  // milliseconds since 1970, for "Today is"
    int batchSize = kDefaultBatchSize;
    std::string persona;  // the mailbox owner, as quoted to the model
    int heavyThreadThreshold = kDefaultHeavyThreadThreshold;
  };

  static constexpr int kDefaultBatchSize = 10;
  static constexpr int kDefaultHeavyThreadThreshold = 5;
  // How many UTF-16 units of a body the model is shown.
  static constexpr size_t kMaxBody = 4000;

  // The mail panel's sentences.
  static constexpr std::string_view kRulesWithoutKey =
      "Sorted by simple rules on this Mac. No model has read these mails and Quibly will not "
      "draft or change anything.";
  static constexpr std::string_view kRulesAfterModelFailure =
      "The Anthropic key could not answer, so these rows are sorted by simple rules on this Mac.";
  static constexpr std::string_view kPrivacy =
      "Sender, subject and body of ordinary mail go to Anthropic for triage. OTP, bank and UPI "
      "mail is sorted on this machine and never sent anywhere.";
  static constexpr std::string_view kNoKeyStatusEnding =
      ". No Anthropic key, so it is sorted by simple rules and no replies are drafted.";
  static constexpr std::string_view kNoKeyForDrafts =
      "Add an Anthropic key in Setup to draft replies.";
  static constexpr std::string_view kNoModel =
      "ANTHROPIC_API_KEY is not set. With no key, real mail is sorted by triageByRules() instead.";

  // The signal words of a mail, in a fixed order, each at most once:
  // "direct-to-me", "cc-ed", "bulk-mail", "has-unsubscribe", "mailing-list",
  // "auth-failed", "marked-high-priority", "calendar-invite", "spam-scored",
  // "has-attachments", "thread-of-N". Read by the rule stage and shown to the model.
  static std::vector<std::string> signals(const MailMessage& message);

  // What the drafting step is told for a tone, and the line shown beside the draft.
  static std::string_view guidance(ReplyTone tone);
  static std::string_view rationale(ReplyTone tone);

  // Triage without a model: prefiltered mail gets its on-device verdict (with
  // its text redacted), everything else the rule stage's. Input order is kept.
  static std::vector<TriagedMessage> triageByRules(std::vector<MailMessage> messages);
};

struct ExtractedTask {
  std::string title;
  std::optional<std::string> due;    // an ISO date or the mail's own date phrase
  std::optional<std::string> owner;  // "me" when it is the reader
  std::string quote;                 // a span of the mail body
  bool operator==(const ExtractedTask&) const = default;
};

struct TriageVerdict {
  Triage::Urgency urgency = Triage::Urgency::someday;
  Triage::Category category = Triage::Category::fyi;
  std::string summary;
  std::vector<ExtractedTask> tasks;
  bool needsReply = false;
  std::optional<Triage::ReplyTone> suggestedReplyTone;
  double confidence = 0;  // 0 to 1
  bool operator==(const TriageVerdict&) const = default;
};

// One row of the model's answer: the mail id copied back, then a verdict.
struct MessageTriage {
  std::string id;
  Triage::Urgency urgency = Triage::Urgency::someday;
  Triage::Category category = Triage::Category::fyi;
  std::string summary;
  std::vector<ExtractedTask> tasks;
  bool needsReply = false;
  std::optional<Triage::ReplyTone> suggestedReplyTone;
  double confidence = 0;
  bool operator==(const MessageTriage&) const = default;
};

struct QuoteCheck {
  std::string quote;
  bool verbatim = false;  // the quote occurs character for character in the body
  bool operator==(const QuoteCheck&) const = default;
};

struct TriagedMessage {
  MailMessage message;
  TriageVerdict verdict;
  Triage::Source source = Triage::Source::rules;
  std::optional<std::string> modelId;  // the model that answered
  std::string tier = "none";           // "heavy", "light" or "none"
  std::vector<QuoteCheck> quoteChecks;
  double rawConfidence = 0;  // the confidence before any adjustment
  bool operator==(const TriagedMessage&) const = default;
};

template <>
struct RawValues<Triage::Urgency> {
  using U = Triage::Urgency;
  static constexpr std::pair<U, std::string_view> values[] = {{U::now, "now"},
                                                              {U::today, "today"},
                                                              {U::this_week, "this_week"},
                                                              {U::someday, "someday"},
                                                              {U::ignore, "ignore"}};
};
template <>
struct RawValues<Triage::Category> {
  using C = Triage::Category;
  static constexpr std::pair<C, std::string_view> values[] = {{C::action_needed, "action_needed"},
                                                              {C::waiting_on_me, "waiting_on_me"},
                                                              {C::fyi, "fyi"},
                                                              {C::newsletter, "newsletter"},
                                                              {C::notification, "notification"},
                                                              {C::personal, "personal"},
                                                              {C::suspicious, "suspicious"}};
};
template <>
struct RawValues<Triage::ReplyTone> {
  using T = Triage::ReplyTone;
  static constexpr std::pair<T, std::string_view> values[] = {{T::quick_ack, "quick_ack"},
                                                              {T::detailed, "detailed"},
                                                              {T::decline, "decline"},
                                                              {T::schedule, "schedule"}};
};
template <>
struct RawValues<Triage::Source> {
  using S = Triage::Source;
  static constexpr std::pair<S, std::string_view> values[] = {
      {S::llm, "llm"}, {S::local, "local"}, {S::rules, "rules"}};
};

template <>
struct JSONFields<ExtractedTask> {
  using T = ExtractedTask;
  static constexpr auto list =
      std::tuple{JSONField{"title", &T::title}, JSONField{"due", &T::due},
                 JSONField{"owner", &T::owner}, JSONField{"quote", &T::quote}};
};
template <>
struct JSONFields<TriageVerdict> {
  using V = TriageVerdict;
  static constexpr auto list = std::tuple{JSONField{"urgency", &V::urgency},
                                          JSONField{"category", &V::category},
                                          JSONField{"summary", &V::summary},
                                          JSONField{"tasks", &V::tasks},
                                          JSONField{"needsReply", &V::needsReply},
                                          JSONField{"suggestedReplyTone", &V::suggestedReplyTone},
                                          JSONField{"confidence", &V::confidence}};
};
template <>
struct JSONFields<MessageTriage> {
  using V = MessageTriage;
  static constexpr auto list = std::tuple{JSONField{"id", &V::id},
                                          JSONField{"urgency", &V::urgency},
                                          JSONField{"category", &V::category},
                                          JSONField{"summary", &V::summary},
                                          JSONField{"tasks", &V::tasks},
                                          JSONField{"needsReply", &V::needsReply},
                                          JSONField{"suggestedReplyTone", &V::suggestedReplyTone},
                                          JSONField{"confidence", &V::confidence}};
};
template <>
struct JSONFields<QuoteCheck> {
  static constexpr auto list = std::tuple{JSONField{"quote", &QuoteCheck::quote},
                                          JSONField{"verbatim", &QuoteCheck::verbatim}};
};
template <>
struct JSONFields<TriagedMessage> {
  using T = TriagedMessage;
  static constexpr auto list = std::tuple{JSONField{"message", &T::message},
                                          JSONField{"verdict", &T::verdict},
                                          JSONField{"source", &T::source},
                                          JSONField{"modelId", &T::modelId},
                                          JSONField{"tier", &T::tier},
                                          JSONField{"quoteChecks", &T::quoteChecks},
                                          JSONField{"rawConfidence", &T::rawConfidence}};
};

}  // namespace vobbo
