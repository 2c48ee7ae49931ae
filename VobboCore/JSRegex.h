#pragma once
// A compiled regular expression, over PCRE2 in UTF and Unicode-property mode:
// \d, \w, \b and \s understand Unicode, \p{L} works, look-behind works, and
// matching is JIT-compiled where the platform allows. A JSRegex is compiled once
// and may be used from many threads at once. Ranges are byte offsets into the
// subject. Subjects that are not valid UTF-8 are searched too: a match simply
// never covers an invalid byte.

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Result.h"

namespace vobbo {

class JSRegex {
 public:
  enum class Case { sensitive, insensitive };

  struct Range {
    size_t begin = 0;
    size_t end = 0;
    size_t size() const { return end - begin; }
    bool operator==(const Range&) const = default;
  };

  // One match: group 0 is the whole match. It views the subject it was found in
  // and must not outlive it.
  class Match {
   public:
    Range range() const { return *group(0); }
    size_t groupCount() const { return groups_.size(); }
    // The group's range, or nothing when the group took no part in the match.
    std::optional<Range> group(size_t i) const;
    // The group's text, "" when it took no part.
    std::string_view text(size_t i = 0) const;
    bool has(size_t i) const { return group(i).has_value(); }

   private:
    friend class JSRegex;
    std::string_view subject_;
    std::vector<Range> groups_;  // begin == npos marks an unset group
  };

  // Compiles a pattern written into the program. Requires: the pattern is valid
  // (checked by an assert; a bad pattern in a release build matches nothing).
  explicit JSRegex(std::string_view pattern, Case caseMode = Case::sensitive);
  // Compiles a pattern from outside the program; fails with a sentence.
  static Result<JSRegex> compile(std::string_view pattern, Case caseMode = Case::sensitive);

  std::optional<Match> firstMatch(std::string_view subject, size_t from = 0) const;
  std::vector<Match> allMatches(std::string_view subject) const;
  bool matches(std::string_view subject) const { return firstMatch(subject).has_value(); }
  // Every match replaced by the template, in which $1 (or ${1}) stands for a
  // group and $$ for a dollar sign; an unset group is empty.
  std::string replaceAll(std::string_view subject, std::string_view replacement) const;

 private:
  struct Code;
  JSRegex() = default;
  std::shared_ptr<const Code> code_;
};

}  // namespace vobbo
