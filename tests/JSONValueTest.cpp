#include "JSONCodec.h"
#include "JSONValue.h"
#include "TestSupport.h"

namespace vobbo {
namespace {

using Format = JSONValue::Format;
using Slashes = JSONValue::Slashes;

TEST(JSONValueTest, EncodesWithSortedKeysAndReadsBack) {
  const char* cases[] = {
      R"({"b":[1,2.5,"x"],"a":{"z":null,"y":true}})",
      R"([{},[],"",0,-1,false,null])",
      R"({"é":"ü","a b":{"c":[[{"d":1}]]}})",
  };
  for (const char* text : cases) {
    SCOPED_TRACE(text);
    auto v = JSONValue::parse(text);
    ASSERT_OK(v);
    for (auto format : {Format::compact, Format::pretty}) {
      auto again = JSONValue::parse(v->encode(format));
      ASSERT_OK(again);
      EXPECT_EQ(*again, *v);
    }
  }
  EXPECT_EQ(JSONValue::parse(cases[0])->encode(), R"({"a":{"y":true,"z":null},"b":[1,2.5,"x"]})");
  // Pretty: two spaces a level, empty containers kept on one line.
  EXPECT_EQ(
      JSONValue::parse(R"({"b":[1,{}],"a":[],"c":{"d":"e"}})")->encode(Format::pretty),
      "{\n  \"a\": [],\n  \"b\": [\n    1,\n    {}\n  ],\n  \"c\": {\n    \"d\": \"e\"\n  }\n}");
}

TEST(JSONValueTest, EscapesSlashesOnlyWhenAsked) {
  JSONValue v(JSONObject{{"path", "/a/b"}});
  EXPECT_EQ(v.encode(Format::compact, Slashes::unescaped), R"({"path":"/a/b"})");
  EXPECT_EQ(v.encode(Format::compact, Slashes::escaped), R"({"path":"\/a\/b"})");
  EXPECT_EQ(*JSONValue::parse(R"("\/a\/b")")->string(), "/a/b");
}

TEST(JSONValueTest, PrintsNumbersShortestAndIntegralWithoutFraction) {
  const struct {
    double value;
    const char* text;
  } cases[] = {
      {120, "120"},
      {-7, "-7"},
      {-0.0, "-0"},
      {0.1, "0.1"},
      {1e-7, "1e-07"},
      {1e300, "1e+300"},
      {2.5, "2.5"},
      {9007199254740991.0, "9007199254740991"},
      {1.0 / 3, "0.3333333333333333"},
      {3.333336666666667e19, "3.333336666666667e+19"},
      {1e20, "1e+20"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(JSONValue(c.value).encode(), c.text);
    auto back = JSONValue::parse(c.text);
    ASSERT_OK(back);
    EXPECT_EQ(*back->number(), c.value);
  }
  EXPECT_EQ(JSONValue(std::numeric_limits<double>::infinity()).encode(), "null");
  EXPECT_EQ(*JSONValue::parse("1.0e2")->number(), 100);
}

TEST(JSONValueTest, EscapesStringsAsJSONRequires) {
  EXPECT_EQ(JSONValue("q\"b\\n\nt\tc\x01 é").encode(), R"("q\"b\\n\nt\tc\u0001 é")");
  // Surrogate pairs decode to the one character they encode.
  EXPECT_EQ(*JSONValue::parse(R"("\ud83d\ude00")")->string(), "\U0001F600");
  // Invalid UTF-8 inside a string never produces JSON that fails to parse.
  std::string broken = JSONValue(std::string("a\xff"
                                             "b"))
                           .encode();
  EXPECT_EQ(broken, "\"a\uFFFDb\"");
}

TEST(JSONValueTest, RefusesBadInputWithASentence) {
  const struct {
    std::string text;
    std::string sentence;
  } cases[] = {
      {"", "The text is empty, so it is not JSON."},
      {"\"\xff\"", "The text is not valid UTF-8, so it is not JSON."},
      {std::string(100000, '[') + std::string(100000, ']'),
       "The JSON nests more than 512 levels deep."},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text.substr(0, 20));
    EXPECT_ERROR(JSONValue::parse(c.text), c.sentence);
  }
  const std::string structure =
      "a bracket, brace, comma or colon is missing or out of place, or something follows the end.";
  const struct {
    const char* text;
    std::string sentence;
  } malformed[] = {
      {"{", structure},
      {"{\"a\":1}}", structure},
      {"tru", "it holds a word other than true, false or null outside quotes."},
      {"[1e400]", "it holds a number that is malformed or too large."},
      {"\"abc",
       "a string in it is not closed, has a bad escape, or holds a raw control character."},
  };
  for (const auto& c : malformed) {
    SCOPED_TRACE(c.text);
    EXPECT_ERROR(JSONValue::parse(c.text), "The text is not valid JSON: " + c.sentence);
  }
  for (const char* bad : {"[1,]", "{\"a\" 1}", "1 2", "\"\\ud800\"", "nan"}) {
    SCOPED_TRACE(bad);
    EXPECT_FALSE(JSONValue::parse(bad).ok());
  }
  // A byte-order mark before the document is passed over.
  EXPECT_OK(JSONValue::parse("\xEF\xBB\xBF{\"a\":1}"));
  // Exactly at the depth limit still parses.
  EXPECT_OK(JSONValue::parse(std::string(512, '[') + std::string(512, ']')));
}

TEST(JSONValueTest, ObjectsKeepOneSortedEntryPerKey) {
  auto v = JSONValue::parse(R"({"b":1,"a":2,"b":3})");
  ASSERT_OK(v);
  EXPECT_EQ(v->encode(), R"({"a":2,"b":3})");  // a later member overrides an earlier one

  JSONObject o;
  o["m"] = 1;
  o.set("c", "x");
  o["z"];  // inserted as null
  EXPECT_EQ(JSONValue(o).encode(), R"({"c":"x","m":1,"z":null})");
  EXPECT_TRUE(o.erase("m"));
  EXPECT_FALSE(o.erase("m"));
  EXPECT_EQ(o.size(), 2u);
}

TEST(JSONValueTest, ReadersYieldNothingForOtherCases) {
  auto v = JSONValue::parse(R"({"s":"x","e":"","n":4,"o":{},"a":[1]})");
  ASSERT_OK(v);
  EXPECT_EQ(v->nonEmptyStringAt("s"), "x");
  EXPECT_FALSE(v->nonEmptyStringAt("e"));
  EXPECT_EQ(v->stringAt("e"), "");
  EXPECT_FALSE(v->stringAt("n"));
  EXPECT_EQ(v->numberAt("n"), 4);
  EXPECT_TRUE(v->objectAt("o"));
  EXPECT_FALSE(v->objectAt("a"));
  EXPECT_EQ(v->firstOf({"missing", "a", "s"}), v->get("a"));
  EXPECT_FALSE(JSONValue("text").get("s"));
}

struct Inner {
  std::string name;
  std::optional<int> count;
  bool operator==(const Inner&) const = default;
};
struct Outer {
  std::vector<Inner> items;
  std::map<std::string, double> weights;
  std::optional<std::string> note;
  bool operator==(const Outer&) const = default;
};

}  // namespace

template <>
struct JSONFields<Inner> {
  static constexpr auto list =
      std::tuple{JSONField{"name", &Inner::name}, JSONField{"count", &Inner::count}};
};
template <>
struct JSONFields<Outer> {
  static constexpr auto list =
      std::tuple{JSONField{"items", &Outer::items}, JSONField{"weights", &Outer::weights},
                 JSONField{"note", &Outer::note}};
};

namespace {

TEST(JSONCodecTest, RecordsRoundTripAndDecodeStrictly) {
  Outer o{{{"a", 3}, {"b", std::nullopt}}, {{"x", 0.5}}, std::nullopt};
  JSONValue json = toJSON(o);
  EXPECT_EQ(json.encode(),
            R"({"items":[{"count":3,"name":"a"},{"name":"b"}],"weights":{"x":0.5}})");
  EXPECT_EQ(fromJSON<Outer>(json), o);

  for (const char* bad : {R"({"items":[{"count":3}],"weights":{}})",                // name missing
                          R"({"items":[{"name":"a","count":1.5}],"weights":{}})",   // fraction
                          R"({"items":[{"name":"a","count":3e10}],"weights":{}})",  // out of range
                          R"({"items":{},"weights":{}})"}) {
    SCOPED_TRACE(bad);
    EXPECT_FALSE(fromJSON<Outer>(*JSONValue::parse(bad)));
  }
}

}  // namespace
}  // namespace vobbo
