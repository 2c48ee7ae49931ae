#include "TestSupport.h"
#include "Text.h"

namespace vobbo {
namespace {

TEST(TextTest, CountsWhatAPersonSeesAsOneCharacter) {
  const struct {
    std::string text;
    size_t count;
  } cases[] = {
      {"", 0},
      {"abc", 3},
      {"a\r\nb", 3},                                      // CR LF is one
      {"e\u0301", 1},                                     // e + combining acute
      {"\U0001F1EB\U0001F1F7", 1},                        // a flag
      {"\U0001F468\u200D\U0001F469\u200D\U0001F467", 1},  // a family
      {"héllo wörld", 11},
      {"a\xff"
       "b",
       3},  // a stray byte counts as one
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(Text::characterCount(c.text), c.count);
  }
}

TEST(TextTest, FlagsInARowAreOneCharacterEach) {
  const std::string nz = "\U0001F1F3\U0001F1FF", fr = "\U0001F1EB\U0001F1F7";
  const struct {
    std::string text;
    size_t count;
    std::string firstTwo;
  } cases[] = {
      {nz + fr + nz, 3, nz + fr},
      {nz + "\U0001F1EB", 2, nz + "\U0001F1EB"},  // a lone indicator after a flag
      {"a" + nz + fr, 3, "a" + nz},
      {nz + "\uFE0F" + fr, 2, nz + "\uFE0F" + fr},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(Text::characterCount(c.text), c.count);
    EXPECT_EQ(Text::prefix(c.text, 2), c.firstTwo);
  }
}

TEST(TextTest, CutsNeverSplitACharacter) {
  EXPECT_EQ(Text::cut("abcdef", 4), "abc\u2026");
  EXPECT_EQ(Text::cut("abcd", 4), "abcd");
  // Multi-byte characters at the cut stay whole.
  std::string accented = std::string(398, 'x') + "é\U0001F600tail";
  EXPECT_EQ(Text::cut(accented, 400), std::string(398, 'x') + "é\u2026");
  std::string family = "ab\U0001F468\u200D\U0001F469\u200D\U0001F467cd";
  EXPECT_EQ(Text::prefix(family, 3), "ab\U0001F468\u200D\U0001F469\u200D\U0001F467");
}

TEST(TextTest, RepairsAndMeasuresUTF8) {
  EXPECT_TRUE(Text::isValidUTF8("héllo"));
  EXPECT_FALSE(Text::isValidUTF8("\xc3"));
  EXPECT_EQ(Text::sanitizeUTF8("a\xc3"
                               "b\xed\xa0\x80"
                               "c"),
            "a\uFFFDb\uFFFD\uFFFD\uFFFDc");
  EXPECT_EQ(Text::utf16Length("a\U0001F600é"), 4u);
  EXPECT_EQ(Text::utf16Prefix("ab\U0001F600c", 3), "ab");  // a surrogate pair is never split
  EXPECT_EQ(Text::squashSpaces("  a \t\n b  "), "a b");
  EXPECT_EQ(Text::trim("\t x \n"), "x");
}

}  // namespace
}  // namespace vobbo
