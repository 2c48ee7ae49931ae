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
