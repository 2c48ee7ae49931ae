#include "JSONValue.h"

#include "TestSupport.h"

namespace vobbo {
namespace {

TEST(JSONValueTest, RoundTripsSortedCompact) {
  auto v = JSONValue::parse(R"({"b":[1,2.5,"x/y"],"a":{"z":null,"y":true}})");
  ASSERT_OK(v);
  EXPECT_EQ(v->encode(), R"({"a":{"y":true,"z":null},"b":[1,2.5,"x/y"]})");
}

}  // namespace
}  // namespace vobbo

namespace vobbo {
namespace {

TEST(JSONValueTest, ParseFailuresEndInOneFullStop) {
  for (std::string_view text : {"", "{", "{\"a\": 1,", "[1 2]", "\"\xff\"", "1 2"}) {
    SCOPED_TRACE(text);
    auto parsed = JSONValue::parse(text);
    ASSERT_FALSE(parsed.ok());
    EXPECT_EQ(parsed.error().back(), '.');
    EXPECT_EQ(parsed.error().find(".."), std::string::npos) << parsed.error();
  }
}

}  // namespace
}  // namespace vobbo
