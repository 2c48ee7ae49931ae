#pragma once
// Small helpers the commands share for what they print: one way to list words
// in a sentence, one way to print a JSON document, one way to make a path the
// person typed absolute.

#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "JSONValue.h"
#include "RawEnum.h"

namespace quibly {

// "a", "a and b", "a, b and c" with `lastJoin` "and"; "a, b or c" with "or".
std::string joinWords(const std::vector<std::string>& items, std::string_view lastJoin);

// The raw texts of every case of an enum, joined with "or": "claude, codex or gemini".
template <class Enum>
std::string choiceWords() {
  std::vector<std::string> words;
  for (Enum value : vobbo::allCases<Enum>()) words.emplace_back(vobbo::rawValue(value));
  return joinWords(words, "or");
}

// Prints one JSON document, pretty, followed by a newline.
void printPretty(std::ostream& out, const vobbo::JSONValue& json);

// The path made absolute against the current folder and tidied ("a/./b/" is
// "<cwd>/a/b"). Symbolic links are kept as given, so a path reached through a
// stable link stays that link. The path itself when the current folder is unknown.
std::string absolutePath(const std::string& path);

}  // namespace quibly
