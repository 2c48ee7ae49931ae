#include "TestSupport.h"
#include "Text.h"

namespace vobbo {
namespace {

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

}  // namespace
}  // namespace vobbo
