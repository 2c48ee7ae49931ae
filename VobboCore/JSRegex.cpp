#include "JSRegex.h"

#include <pcre2.h>

#include <cassert>

namespace vobbo {

struct JSRegex::Code {
  pcre2_code* code = nullptr;
  uint32_t groups = 1;  // capture groups plus the whole match
  Code() = default;
  Code(const Code&) = delete;
  Code& operator=(const Code&) = delete;
  ~Code() { pcre2_code_free(code); }
};

namespace {

constexpr uint32_t kInlineGroups = 32;

// Match data is per thread, so one compiled pattern serves every thread without
// a lock; patterns with more groups than the shared block get their own.
class MatchData {
 public:
  explicit MatchData(uint32_t groups) {
    if (groups <= kInlineGroups) {
      struct Free {
        void operator()(pcre2_match_data* md) const { pcre2_match_data_free(md); }
      };
      thread_local std::unique_ptr<pcre2_match_data, Free> shared(
          pcre2_match_data_create(kInlineGroups, nullptr));
      data_ = shared.get();
    } else {
      owned_ = pcre2_match_data_create(groups, nullptr);
      data_ = owned_;
    }
  }
  MatchData(const MatchData&) = delete;
  MatchData& operator=(const MatchData&) = delete;
  ~MatchData() { pcre2_match_data_free(owned_); }
  pcre2_match_data* get() const { return data_; }

 private:
  pcre2_match_data* data_ = nullptr;
  pcre2_match_data* owned_ = nullptr;
};

std::string pcreMessage(int code) {
  PCRE2_UCHAR buffer[256];
  int n = pcre2_get_error_message(code, buffer, sizeof buffer);
  return n > 0 ? std::string(reinterpret_cast<char*>(buffer), static_cast<size_t>(n))
               : "unknown error";
}

size_t utf8Length(std::string_view s, size_t at) {
  auto c = static_cast<unsigned char>(s[at]);
  size_t n = c < 0x80 ? 1 : c >= 0xF0 ? 4 : c >= 0xE0 ? 3 : c >= 0xC0 ? 2 : 1;
  return std::min(n, s.size() - at);
}

}  // namespace

std::optional<JSRegex::Range> JSRegex::Match::group(size_t i) const {
  if (i >= groups_.size() || groups_[i].begin == std::string_view::npos) return std::nullopt;
  return groups_[i];
}

std::string_view JSRegex::Match::text(size_t i) const {
  auto r = group(i);
  return r ? subject_.substr(r->begin, r->size()) : std::string_view();
}

Result<JSRegex> JSRegex::compile(std::string_view pattern, Case caseMode) {
  uint32_t options = PCRE2_UTF | PCRE2_UCP | PCRE2_MATCH_INVALID_UTF;
  if (caseMode == Case::insensitive) options |= PCRE2_CASELESS;
  int error = 0;
  PCRE2_SIZE offset = 0;
  pcre2_code* code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.data()), pattern.size(),
                                   options, &error, &offset, nullptr);
  if (!code) {
    return failure("The pattern is not a valid regular expression (" + pcreMessage(error) +
                   " at offset " + std::to_string(offset) + ").");
  }
  auto owned = std::make_shared<Code>();
  owned->code = code;
  (void)pcre2_jit_compile(code, PCRE2_JIT_COMPLETE);  // falls back to the interpreter
  uint32_t captures = 0;
  pcre2_pattern_info(code, PCRE2_INFO_CAPTURECOUNT, &captures);
  owned->groups = captures + 1;
  JSRegex re;
  re.code_ = std::move(owned);
  return re;
}

JSRegex::JSRegex(std::string_view pattern, Case caseMode) {
  auto compiled = compile(pattern, caseMode);
  assert(compiled.ok() && "a built-in pattern failed to compile");
  if (compiled) code_ = std::move(compiled->code_);
}

std::optional<JSRegex::Match> JSRegex::firstMatch(std::string_view subject, size_t from) const {
  if (!code_ || from > subject.size()) return std::nullopt;
  MatchData md(code_->groups);
  int rc = pcre2_match(code_->code, reinterpret_cast<PCRE2_SPTR>(subject.data()), subject.size(),
                       from, 0, md.get(), nullptr);
  if (rc <= 0) return std::nullopt;
  const PCRE2_SIZE* ovector = pcre2_get_ovector_pointer(md.get());
  Match m;
  m.subject_ = subject;
  m.groups_.resize(code_->groups);
  for (uint32_t i = 0; i < code_->groups; ++i) {
    if (i < static_cast<uint32_t>(rc) && ovector[2 * i] != PCRE2_UNSET) {
      m.groups_[i] = Range{ovector[2 * i], ovector[2 * i + 1]};
    } else {
      m.groups_[i] = Range{std::string_view::npos, std::string_view::npos};
    }
  }
  return m;
}

std::vector<JSRegex::Match> JSRegex::allMatches(std::string_view subject) const {
  std::vector<Match> out;
  size_t from = 0;
  while (from <= subject.size()) {
    auto m = firstMatch(subject, from);
    if (!m) break;
    Range r = m->range();
    out.push_back(std::move(*m));
    if (r.end > r.begin) {
      from = r.end;
    } else if (r.end < subject.size()) {
      from = r.end + utf8Length(subject, r.end);  // step over an empty match
    } else {
      break;
    }
  }
  return out;
}

std::string JSRegex::replaceAll(std::string_view subject, std::string_view replacement) const {
  if (!code_) return std::string(subject);
  MatchData md(code_->groups);
  const uint32_t options =
      PCRE2_SUBSTITUTE_GLOBAL | PCRE2_SUBSTITUTE_UNSET_EMPTY | PCRE2_SUBSTITUTE_OVERFLOW_LENGTH;
  std::string out(subject.size() + replacement.size() + 64, '\0');
  for (int attempt = 0; attempt < 2; ++attempt) {
    PCRE2_SIZE length = out.size();
    int rc = pcre2_substitute(code_->code, reinterpret_cast<PCRE2_SPTR>(subject.data()),
                              subject.size(), 0, options, md.get(), nullptr,
                              reinterpret_cast<PCRE2_SPTR>(replacement.data()), replacement.size(),
                              reinterpret_cast<PCRE2_UCHAR*>(out.data()), &length);
    if (rc >= 0) {
      out.resize(length);
      return out;
    }
    if (rc != PCRE2_ERROR_NOMEMORY) break;
    out.resize(length);  // with OVERFLOW_LENGTH, length is now the size needed
  }
  return std::string(subject);
}

}  // namespace vobbo
