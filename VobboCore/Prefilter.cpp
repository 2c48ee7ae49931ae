// Recognising private mail on the machine.
//
// Each rule pairs two weak hints that are strong together: a one-time password
// phrase ("OTP", "verification code") only counts next to a 4 to 8 digit number;
// an amount ("Rs. 1,250.00", "INR 500", "₹200") only next to a transaction verb
// ("debited", "paid to"). The rules, in the order they are tried:
//
//   otp             otp phrase plus numeric code
//   upi             upi phrase plus an amount and a transaction verb
//                   upi reference number in the mail (UPI ref, RRN, UTR)
//                   upi virtual payment address in the mail (name@okhdfcbank)
//   card_statement  bank sender plus statement phrase
//   bank            bank sender plus an amount and a transaction verb
//                   bank sender plus account phrase
//   card_statement  statement subject plus account phrase in body
//
// Most mail is ordinary, and running every pattern over every body would cost
// more than reading the mail did. The phrase and amount patterns can only match
// where one of a few words starts ("otp", "verification", "rs", "upi"...), so one
// byte scan for those word starts (mayHoldPrivateDetails) decides whether they
// need to run at all. The scan is deliberately generous: it also says yes for ₹
// and for the two non-ASCII letters that match "k" and "s" without regard to case.
//
// UPI comes before the bank-sender rules because banks send UPI alerts too and
// the narrower reason tells the person more. A statement phrase is checked
// before the generic bank rules for the same reason: statements also mention
// amounts and accounts.
//
// The text searched is the subject and the body (the snippet when there is no
// body). Once a mail is prefiltered, every digit run of 4 to 12 digits in what
// we keep of it is blanked, so no code or account number reaches a log, the
// screen's JSON output or a model.

#include "Prefilter.h"

#include <array>

#include "JSRegex.h"

namespace vobbo {

namespace {

using R = Prefilter::Reason;

struct Patterns {
  static constexpr auto kCi = JSRegex::Case::insensitive;
  JSRegex otpPhrase{
      R"(\b(otp|one[\s-]?time\s?(password|passcode|code)|verification\s?code|security\s?code|auth(?:entication)?\s?code|2fa\s?code|mpin|t-?pin|cvv)\b)",
      kCi};
  JSRegex numericCode{R"((?<!\d)\d{4,8}(?!\d))", kCi};
  JSRegex transactionVerb{
      R"(\b(debited|credited|withdrawn|deducted|transferred|paid\s+to|received\s+from|transaction\s+(?:of|alert|successful)|txn|payment\s+of|has\s+been\s+(?:debited|credited)|available\s+balance|avl\s?bal|a\/c)\b)",
      kCi};
  JSRegex amount{"(?:\u20B9|\\bINR\\b|\\bRs\\.?)\\s?[\\d,]+(?:\\.\\d{1,2})?", kCi};
  JSRegex accountPhrase{
      R"(\b(a\/c|acct|account\s+(?:no|number|ending)|credit\s?card|debit\s?card|net\s?banking|netbanking|imps|neft|rtgs|upi|statement\s+for|minimum\s+amount\s+due|total\s+amount\s+due|available\s+balance|avl\s?bal|payment\s+due\s+date|card\s+ending)\b)",
      kCi};
  JSRegex statementPhrase{
      R"(\b(statement\s+(?:for|is\s+ready|period)|minimum\s+amount\s+due|total\s+amount\s+due|payment\s+due\s+date|e-?statement)\b)",
      kCi};
  JSRegex upiPhrase{
      R"(\b(upi|vpa|virtual\s+payment\s+address|bhim|collect\s+request|auto\s?pay\s+mandate|e-?mandate|e-?nach|\bnach\b|mandate\s+(?:created|executed|reminder))\b)",
      kCi};
  JSRegex upiReference{
      R"(\b(?:upi\s*(?:ref(?:erence)?|txn|transaction)\s*(?:no\.?|number|id)?|rrn|utr)\s*[:#-]?\s*[A-Z0-9]{6,}\b)",
      kCi};
  JSRegex upiHandle{
      R"(\b[a-z0-9][a-z0-9._-]{1,63}@(?:ok(?:hdfcbank|icici|axis|sbi)|ybl|ibl|axl|apl|upi|paytm|airtel|fbl|jupiteraxis|abfspay|naviaxis|slc|yapl|waaxis|waicici|wasbi|rmhdfcbank)\b)",
      kCi};
  // Banks, card issuers and payment apps that send account mail, matched as a
  // label of the sender's domain.
  JSRegex bankSender{
      R"((?:^|[@.])(?:hdfcbank|icicibank|axisbank|sbi|onlinesbi|sbicard|kotak|kotakbank|yesbank|indusind|idfcfirstbank|idfcbank|pnb|pnbindia|bankofbaroda|canarabank|unionbankofindia|centralbankofindia|bankofindia|indianbank|iob|federalbank|rblbank|aubank|bandhanbank|standardchartered|sc|hsbc|citi|citibank|americanexpress|aexp|dbs|barclays|chase|wellsfargo|bankofamerica|capitalone|paytmbank|paytm|phonepe|amazonpay|razorpay)\.|payments-noreply[@.]google)",
      kCi};
  JSRegex dueDate{R"(payment due date[:\s]+([0-9]{1,2} [A-Za-z]{3,9} [0-9]{4}))", kCi};
  JSRegex code{R"((?<!\d)\d{4,12}(?!\d))"};
};

const Patterns& patterns() {
  static const Patterns kPatterns;
  return kPatterns;
}

bool isAsciiAlnum(unsigned char c) {
  return (c >= '0' && c <= '9') || ((c | 0x20) >= 'a' && (c | 0x20) <= 'z');
}

// Only ASCII counts here: after any other character a word may start, which errs
// on the side of running the patterns.
bool isWordByte(unsigned char c) { return isAsciiAlnum(c) || c == '_'; }

unsigned char asciiLower(unsigned char c) { return c >= 'A' && c <= 'Z' ? c | 0x20 : c; }

bool startsWithWord(std::string_view text, size_t at, std::string_view lead) {
  if (text.size() - at < lead.size()) return false;
  for (size_t k = 0; k < lead.size(); ++k) {
    if (asciiLower(static_cast<unsigned char>(text[at + k])) != lead[k]) return false;
  }
  return true;
}

// Whether a word in the text starts with one of the words the phrase, amount and
// UPI reference patterns begin with. False means none of those patterns can match.
bool mayHoldPrivateDetails(std::string_view text) {
  static constexpr std::string_view kLeads[] = {"otp", "one",  "verification", "security", "auth",
                                                "2fa", "mpin", "tpin",         "t-pin",    "cvv",
                                                "inr", "rs",   "upi",          "rrn",      "utr"};
  static constexpr auto kFirst = [] {
    std::array<bool, 256> first{};
    for (std::string_view lead : kLeads) {
      auto c = static_cast<unsigned char>(lead[0]);
      first[c] = true;
      if (c >= 'a' && c <= 'z') first[c - ('a' - 'A')] = true;
    }
    return first;
  }();
  static constexpr std::string_view kWideLetters[] = {"\u20B9", "\u212A",
                                                      "\u017F"};  // ₹, Kelvin K, long s
  for (std::string_view wide : kWideLetters) {
    if (text.find(wide) != std::string_view::npos) return true;
  }
  for (size_t i = 0; i < text.size(); ++i) {
    if (!kFirst[static_cast<unsigned char>(text[i])]) continue;
    auto c = asciiLower(static_cast<unsigned char>(text[i]));
    if (i > 0 && isWordByte(static_cast<unsigned char>(text[i - 1]))) continue;
    for (std::string_view lead : kLeads) {
      if (lead[0] == c && startsWithWord(text, i, lead)) return true;
    }
  }
  return false;
}

Prefilter::Classification classification(R reason, std::string rule) {
  return {reason, std::move(rule)};
}

std::optional<Prefilter::Classification> fromBankSender(const Patterns& p, std::string_view text,
                                                        bool amountAndVerb) {
  if (p.statementPhrase.matches(text))
    return classification(R::card_statement, "bank sender plus statement phrase");
  if (amountAndVerb)
    return classification(R::bank, "bank sender plus an amount and a transaction verb");
  if (p.accountPhrase.matches(text))
    return classification(R::bank, "bank sender plus account phrase");
  return std::nullopt;
}

// Headers that only carry dates and message ids; their digits are no secret and
// keeping them keeps threading and ordering intact.
bool isStructuralHeader(std::string_view name) {
  return name == "date" || name == "message-id" || name == "in-reply-to" || name == "references";
}

std::optional<Prefilter::Classification> statementBySubject(const Patterns& p,
                                                            const MailMessage& message) {
  if (p.statementPhrase.matches(message.subject) && p.accountPhrase.matches(message.body)) {
    return classification(R::card_statement, "statement subject plus account phrase in body");
  }
  return std::nullopt;
}

std::string_view summaryOf(R reason) {
  switch (reason) {
    case R::otp:
      return "One time password, handled on device and never sent to a model.";
    case R::bank:
      return "Bank account notice, handled on device and never sent to a model.";
    case R::card_statement:
      return "Card statement notice, handled on device and never sent to a model.";
    case R::upi:
      return "UPI payment notice, handled on device and never sent to a model.";
  }
  return {};
}

}  // namespace

std::optional<Prefilter::Classification> Prefilter::classify(const MailMessage& message) {
  const Patterns& p = patterns();
  std::string text =
      message.subject + "\n" + (message.body.empty() ? message.snippet : message.body);
  bool fromBank = p.bankSender.matches(message.from.email);
  bool amountAndVerb = false;
  if (mayHoldPrivateDetails(text)) {
    if (p.otpPhrase.matches(text) && p.numericCode.matches(text)) {
      return classification(R::otp, "otp phrase plus numeric code");
    }
    amountAndVerb = p.amount.matches(text) && p.transactionVerb.matches(text);
    if (amountAndVerb && p.upiPhrase.matches(text)) {
      return classification(R::upi, "upi phrase plus an amount and a transaction verb");
    }
    if (p.upiReference.matches(text)) {
      return classification(R::upi, "upi reference number in the mail");
    }
  }
  if (p.upiHandle.matches(text)) {
    return classification(R::upi, "upi virtual payment address in the mail");
  }
  if (fromBank) {
    if (auto bank = fromBankSender(p, text, amountAndVerb)) return bank;
  }
  return statementBySubject(p, message);
}

TriageVerdict Prefilter::localVerdict(const MailMessage& message,
                                      const Classification& classification) {
  using U = Triage::Urgency;
  using C = Triage::Category;
  TriageVerdict verdict;
  verdict.summary = summaryOf(classification.reason);
  verdict.confidence = 0.9;
  verdict.category = C::notification;
  verdict.urgency = classification.reason == R::otp ? U::today : U::someday;
  if (classification.reason == R::card_statement) {
    verdict.urgency = U::this_week;
    verdict.category = C::action_needed;
    ExtractedTask task{"Pay the card bill", std::nullopt, "me", ""};
    if (auto due = patterns().dueDate.firstMatch(message.body)) {
      task.due = std::string(due->text(1));
      task.quote = redactCodes(due->text(0));
    }
    verdict.tasks.push_back(std::move(task));
  }
  return verdict;
}

std::string Prefilter::redactCodes(std::string_view text) {
  return patterns().code.replaceAll(text, kRedacted);
}

MailMessage Prefilter::redacted(MailMessage message) {
  message.subject = redactCodes(message.subject);
  message.snippet = redactCodes(message.snippet);
  message.body = redactCodes(message.body);
  for (auto& [name, value] : message.headers) {
    if (!isStructuralHeader(name)) value = redactCodes(value);
  }
  return message;
}

TriagedMessage Prefilter::triaged(MailMessage message, const Classification& classification) {
  TriagedMessage row;
  row.verdict = localVerdict(message, classification);
  row.message = redacted(std::move(message));
  row.source = Triage::Source::local;
  row.tier = "none";
  row.rawConfidence = row.verdict.confidence;
  return row;
}

}  // namespace vobbo
