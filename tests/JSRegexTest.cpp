#include <atomic>
#include <thread>

#include "JSRegex.h"
#include "TestSupport.h"

namespace vobbo {
namespace {

TEST(JSRegexTest, MatchesWithUnicodeCaseAndLookBehind) {
  JSRegex word("(?<!\\d)\\d{4,8}(?!\\d)");
  EXPECT_EQ(word.firstMatch("code 123456789 or 4321.")->text(), "4321");

  JSRegex letters("\\p{L}+", JSRegex::Case::insensitive);
  EXPECT_EQ(letters.firstMatch("12 Ünïcode!")->text(), "Ünïcode");

  JSRegex otp("\\b(otp|one[\\s-]?time\\s?password)\\b", JSRegex::Case::insensitive);
  EXPECT_TRUE(otp.matches("Your One-Time Password is"));
  EXPECT_FALSE(otp.matches("hotpot"));

  JSRegex groups("(a)|(b)");
  auto m = groups.firstMatch("xb");
  ASSERT_TRUE(m);
  EXPECT_FALSE(m->has(1));
  EXPECT_EQ(m->text(2), "b");
  EXPECT_EQ(m->range(), (JSRegex::Range{1, 2}));
}

TEST(JSRegexTest, FindsAllMatchesAndReplaces) {
  JSRegex ids("<task-id>([^<]+)</task-id>");
  auto all = ids.allMatches("<task-id>a1</task-id> x <task-id>b2</task-id>");
  ASSERT_EQ(all.size(), 2u);
  EXPECT_EQ(all[1].text(1), "b2");
  EXPECT_EQ(JSRegex("x*").allMatches("abc").size(), 4u);  // empty matches advance
  EXPECT_EQ(JSRegex("(\\w+)@(\\w+)").replaceAll("me@home you@work", "$2:$1"), "home:me work:you");
  EXPECT_EQ(JSRegex("\\d").replaceAll("a1b22", "#"), "a#b##");
  // Invalid UTF-8 in the subject is searched around, never an error.
  EXPECT_EQ(JSRegex("b+")
                .firstMatch("a\xff"
                            "bb")
                ->text(),
            "bb");
}

TEST(JSRegexTest, RefusesABadPatternWithASentence) {
  auto bad = JSRegex::compile("(unclosed");
  ASSERT_FALSE(bad.ok());
  EXPECT_NE(bad.error().find("The pattern is not a valid regular expression"), std::string::npos);
}

TEST(JSRegexTest, OneCompiledPatternServesManyThreads) {
  JSRegex re("(\\d+)-(\\d+)");
  std::vector<std::thread> threads;
  std::atomic<int> wrong{0};
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 2000; ++i) {
        std::string s = "x" + std::to_string(t) + "-" + std::to_string(i);
        auto m = re.firstMatch(s);
        if (!m || m->text(2) != std::to_string(i)) ++wrong;
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(wrong, 0);
}

}  // namespace
}  // namespace vobbo
