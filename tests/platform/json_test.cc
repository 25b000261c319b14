#include "platform/json.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cfloat>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

#include "tests/support/decimal_comma_locale.h"

namespace zln {
namespace {

using namespace std::string_view_literals;
using testing::HasSubstr;

std::optional<Value> parse(std::string_view text) { return json::parse(text, nullptr); }

// The only element of an array that is read from `text`.
Value elementOf(std::string_view text) {
  const std::optional<Value> value = parse("[" + std::string(text) + "]");
  if (!value || value->array() == nullptr || value->array()->size() != 1) return "unreadable";
  return value->array()->front();
}

std::string textOf(const Value& element) {
  return json::serialize(Dictionary{{"k", element}}, nullptr).value_or("unwritable");
}

Value nestedArrays(int levels) {
  Value value(Array{});
  for (int level = 1; level < levels; ++level) value = Array{value};
  return value;
}

// Every character of an ASCII text as one unit of `size` bytes.
std::string inUnits(std::string_view text, std::size_t size, bool bigEndian) {
  std::string bytes;
  for (const char c : text) {
    std::string unit(size, '\0');
    unit[bigEndian ? size - 1 : 0] = c;
    bytes += unit;
  }
  return bytes;
}

TEST(JsonTest, ReadsEveryKindOfValue) {
  EXPECT_EQ(Value(Dictionary{
                {"success", Number::boolean(true)},
                {"no", Number::boolean(false)},
                {"error", "bad \u20AC"},
                {"none", Null{}},
                {"list", Array{Number::int64(1), Number::float64(-2.5), Array{}, Dictionary{}}},
            }),
            parse(" {\"success\" : true, \"no\":false,\"error\":\"bad \\u20ac\",\n\"none\":null,\t"
                  "\"list\":[1,-2.5e0,[],{}]}\r\n"));
}

TEST(JsonTest, ReadsEscapes) {
  EXPECT_EQ(Value("\"\\/\b\f\n\r\t\u00E9\U0001F600"),
            elementOf(R"("\"\\\/\b\f\n\r\t\u00e9\ud83d\uDE00")"));
}

TEST(JsonTest, ReadsAZeroCharacter) {
  EXPECT_EQ(Value(std::string("a\0b", 3)), elementOf(R"("a\u0000b")"));
}

TEST(JsonTest, ReadsIntegersOf64Bits) {
  EXPECT_EQ(Value(Number::int64(INT64_MAX)), elementOf("9223372036854775807"));
  EXPECT_EQ(Value(Number::int64(INT64_MIN)), elementOf("-9223372036854775808"));
  EXPECT_EQ(Value(Number::int64(0)), elementOf("-0"));
}

TEST(JsonTest, ReadsLargerIntegersAsDoubles) {
  EXPECT_EQ(Value(Number::float64(9223372036854775808.0)), elementOf("9223372036854775808"));
  EXPECT_EQ(Value(Number::float64(18446744073709551616.0)), elementOf("18446744073709551616"));
  EXPECT_EQ(Value(Number::float64(-9223372036854775808.0)), elementOf("-9223372036854775809"));
}

TEST(JsonTest, ReadsFractionsAndExponentsAsDoubles) {
  EXPECT_EQ(Value(Number::float64(600)), elementOf("600.0"));
  EXPECT_EQ(Value(Number::float64(1200)), elementOf("12E+2"));
  EXPECT_EQ(Value(Number::float64(0.015)), elementOf("1.5e-2"));
  EXPECT_EQ(Value(Number::float64(DBL_MAX)), elementOf("1.7976931348623157e308"));
  EXPECT_EQ(Value(Number::float64(5e-324)), elementOf("5e-324"));
  EXPECT_EQ(Value(Number::float64(0)), elementOf("0.0e-999"));
}

TEST(JsonTest, OfRepeatedKeysTheFirstCounts) {
  EXPECT_EQ(Value(Dictionary{{"a", Number::int64(1)}, {"b", Number::int64(2)}}),
            parse(R"({"a":1,"b":2,"a":3})"));
}

TEST(JsonTest, KeepsTheOrderOfKeys) {
  const std::optional<Value> value = parse(R"({"z":1,"a":2})");

  ASSERT_TRUE(value);
  EXPECT_EQ("z", value->dictionary()->entries().front().first);
}

TEST(JsonTest, AcceptsOneTrailingComma) {
  EXPECT_EQ(Value(Dictionary{{"success", Number::boolean(true)}}), parse(R"({"success":true,})"));
  EXPECT_EQ(Value(Array{Number::int64(1), Array{"a,]"}}), parse("[1,[\"a,]\" , \n]\t,]"));
}

TEST(JsonTest, LeavesCommasInStringsAlone) {
  EXPECT_EQ(Value(Array{",]", "\",}"}), parse(R"([",]","\",}"])"));
}

TEST(JsonTest, ReadsFiveEncodingsWithoutMark) {
  const Value expected(Dictionary{{"k", Number::int64(1)}});
  constexpr std::string_view kText = "{\"k\":1}";

  EXPECT_EQ(expected, parse(kText));
  EXPECT_EQ(expected, parse(inUnits(kText, 2, false)));
  EXPECT_EQ(expected, parse(inUnits(kText, 2, true)));
  EXPECT_EQ(expected, parse(inUnits(kText, 4, false)));
  EXPECT_EQ(expected, parse(inUnits(kText, 4, true)));
}

TEST(JsonTest, ReadsFiveEncodingsWithMark) {
  const Value expected(Dictionary{{"k", Number::int64(1)}});
  constexpr std::string_view kText = "{\"k\":1}";

  EXPECT_EQ(expected, parse("\xEF\xBB\xBF" + std::string(kText)));
  EXPECT_EQ(expected, parse("\xFF\xFE" + inUnits(kText, 2, false)));
  EXPECT_EQ(expected, parse("\xFE\xFF" + inUnits(kText, 2, true)));
  EXPECT_EQ(expected, parse(std::string("\xFF\xFE\0\0", 4) + inUnits(kText, 4, false)));
  EXPECT_EQ(expected, parse(std::string("\0\0\xFE\xFF", 4) + inUnits(kText, 4, true)));
}

TEST(JsonTest, ReadsSurrogatePairsOfUtf16) {
  EXPECT_EQ(Value(Array{"\U0001F600"}), parse("[\0\"\0\x3D\xD8\x00\xDE\"\0]\0"sv));
}

TEST(JsonTest, RefusesBrokenUtf16AndUtf32) {
  EXPECT_EQ(std::nullopt, parse("[\0\"\0\x3D\xD8\"\0]\0"sv));
  EXPECT_EQ(std::nullopt, parse("[\0\"\0\x00\xDE\"\0]\0"sv));
  EXPECT_EQ(std::nullopt, parse("[\0\"\0a\0\"\0]"sv));
  EXPECT_EQ(std::nullopt, parse("[\0\0\0\"\0\0\0\0\0\x11\0\"\0\0\0]\0\0\0"sv));
  EXPECT_EQ(std::nullopt, parse("\xFF\xFE[\0]\0\x3D\xD8"sv));
}

TEST(JsonTest, RefusesWhatIsNoJson) {
  constexpr std::string_view kBad[] = {
      ""sv,
      " "sv,
      "\xEF\xBB\xBF"sv,
      "\xEF\xBB\xBF\xEF\xBB\xBF[]"sv,
      "success"sv,
      "[1,,]"sv,
      "[,]"sv,
      "[,1]"sv,
      "[1 2]"sv,
      "{,}"sv,
      "{\"a\":,}"sv,
      "{\"a\",}"sv,
      "{\"a\":1,,}"sv,
      "{1:2}"sv,
      "{'a':1}"sv,
      "[1]x"sv,
      "[1][2]"sv,
      "[1],"sv,
      "[1]\0"sv,
      "[1]\0garbage"sv,
      "[1\0]"sv,
      "[1"sv,
      "[1,"sv,
      "[1}"sv,
      "{\"a\":1]"sv,
      "[\"open]"sv,
      "[\"open\\"sv,
      "[tru]"sv,
      "[nul,]"sv,
      "[True]"sv,
      "[01]"sv,
      "[+1]"sv,
      "[.5]"sv,
      "[1.]"sv,
      "[1e]"sv,
      "[-]"sv,
      "[0x10]"sv,
      "[1,5.]"sv,
      "[NaN]"sv,
      "[Infinity]"sv,
      "[-Infinity]"sv,
      "[1e999]"sv,
      "[-1e999]"sv,
      "[1e-999]"sv,
      "[1] // comment"sv,
      "/* comment */ [1]"sv,
      "[\"\\ud83d\"]"sv,
      "[\"\\ude00\\ud83d\"]"sv,
      "[\"\\ud83dx\"]"sv,
      "[\"\\x41\"]"sv,
      "[\"\\u12\"]"sv,
      "[\"raw\nline\"]"sv,
      "[\"raw\0zero\"]"sv,
      "[\"\x1F\"]"sv,
      "[\"\xFF\"]"sv,
      "[\"\xC0\xAF\"]"sv,
      "[\"\xED\xA0\x80\"]"sv,
      "[\"\xE2\x82\"]"sv,
      "[\xC2\xA0]"sv,
  };
  for (const std::string_view text : kBad) EXPECT_EQ(std::nullopt, parse(text)) << text;
}

TEST(JsonTest, RefusesATopLevelThatIsNoContainer) {
  for (const std::string_view text : {"1", "\"text\"", "true", "null", " 1.5 "}) {
    EXPECT_EQ(std::nullopt, parse(text)) << text;
  }
}

TEST(JsonTest, RefusesAnIntegerBeyondTheRangeOfDouble) {
  EXPECT_EQ(std::nullopt, parse("[1" + std::string(400, '0') + "]"));
}

TEST(JsonTest, ReadsAtMost512Levels) {
  const std::string deepest = std::string(512, '[') + std::string(512, ']');

  EXPECT_EQ(nestedArrays(512), parse(deepest));
  EXPECT_EQ(std::nullopt, parse("[" + deepest + "]"));
}

TEST(JsonTest, RefusesEndlessNestingInLittleTime) {
  Error error;

  EXPECT_EQ(std::nullopt, json::parse(std::string(8 << 20, '['), &error));
  EXPECT_EQ("Too many nested arrays or dictionaries.", error.userInfo.at(0).second);
}

TEST(JsonTest, ReadsManyKeysInLittleTime) {
  std::string text = "{";
  for (int key = 0; key < 200000; ++key) text += "\"" + std::to_string(key) + "\":0,";
  text += "}";

  const std::optional<Value> value = parse(text);

  ASSERT_TRUE(value);
  EXPECT_EQ(200000u, value->dictionary()->size());
}

TEST(JsonTest, ExplainsWhyNothingWasRead) {
  Error error;

  json::parse("", &error);

  EXPECT_EQ(
      "Error Domain=NSCocoaErrorDomain Code=3840 \"The data couldn’t be read because it isn’t in "
      "the correct format.\" UserInfo={NSDebugDescription=Unable to parse empty data.}",
      error.description());
}

TEST(JsonTest, SaysWhereTheTextIsBad) {
  Error error;

  json::parse("{\"a\":1 \"b\":2}", &error);

  EXPECT_EQ(std::nullopt, error.localizedDescription);
  EXPECT_EQ("Badly formed text around character 10.", error.userInfo.at(0).second);
}

TEST(JsonTest, LeavesTheErrorAloneWhenItReads) {
  Error error{"untouched", 1, std::nullopt, {}};

  json::parse("[]", &error);

  EXPECT_EQ((Error{"untouched", 1, std::nullopt, {}}), error);
}

TEST(JsonTest, WritesCompactTextInTheOrderOfKeys) {
  const Dictionary object{{"z", "text"},
                          {"a", Array{Number::int64(1), Null{}, Dictionary{}, Array{}}},
                          {"m", Dictionary{{"t", Number::boolean(true)}}}};

  EXPECT_EQ(R"({"z":"text","a":[1,null,{},[]],"m":{"t":true}})", json::serialize(object, nullptr));
}

TEST(JsonTest, WritesAnEmptyDictionary) { EXPECT_EQ("{}", json::serialize({}, nullptr)); }

TEST(JsonTest, EscapesStringsAndKeys) {
  const Dictionary object{
      {"k\"", std::string("\"\\/\b\f\n\r\t\x01\x1F\x7F\0 \u20AC\U0001F600", 20)}};

  EXPECT_EQ("{\"k\\\"\":\"\\\"\\\\\\/\\b\\f\\n\\r\\t\\u0001\\u001f\x7F\\u0000 \u20AC\U0001F600\"}",
            json::serialize(object, nullptr));
}

TEST(JsonTest, MendsStringsThatAreNotUtf8) {
  EXPECT_EQ("{\"a\uFFFD\":\"\uFFFDz\"}", json::serialize({{"a\xFF", "\xE2\x82z"}}, nullptr));
}

TEST(JsonTest, WritesIntegersAndBooleans) {
  EXPECT_EQ("{\"k\":-9223372036854775808}", textOf(Number::int64(INT64_MIN)));
  EXPECT_EQ("{\"k\":86400}", textOf(Number::int32(86400)));
  EXPECT_EQ("{\"k\":false}", textOf(Number::boolean(false)));
}

TEST(JsonTest, WritesDoublesAsTheShortestTextThatReadsBack) {
  EXPECT_EQ("{\"k\":1700000050.123456}", textOf(Number::float64(1700000050.123456)));
  EXPECT_EQ("{\"k\":0.1}", textOf(Number::float64(0.1)));
  EXPECT_EQ("{\"k\":0.30000000000000004}", textOf(Number::float64(0.1 + 0.2)));
  EXPECT_EQ("{\"k\":4.1752050594835e+78}", textOf(Number::float64(4.1752050594835e+78)));
  EXPECT_EQ("{\"k\":5e-324}", textOf(Number::float64(5e-324)));
}

TEST(JsonTest, WritesWholeDoublesWithoutFraction) {
  EXPECT_EQ("{\"k\":600}", textOf(Number::float64(600)));
  EXPECT_EQ("{\"k\":300000}", textOf(Number::float64(300000)));
  EXPECT_EQ("{\"k\":-1700000000}", textOf(Number::float64(-1700000000)));
  EXPECT_EQ("{\"k\":1e+21}", textOf(Number::float64(1e21)));
}

TEST(JsonTest, WritesFloatsAsTheDoubleThatTheyWidenTo) {
  EXPECT_EQ("{\"k\":0.10000000149011612}", textOf(Number::float32(0.1f)));
  EXPECT_EQ("{\"k\":30}", textOf(Number::float32(30)));
}

TEST(JsonTest, IsNoValidObjectWithADateOrData) {
  EXPECT_FALSE(json::isValidObject({{"k", Date{0}}}));
  EXPECT_FALSE(json::isValidObject({{"k", Array{Dictionary{{"d", Data{}}}}}}));
}

TEST(JsonTest, IsNoValidObjectWithANumberThatIsNotFinite) {
  EXPECT_FALSE(
      json::isValidObject({{"k", Number::float64(std::numeric_limits<double>::quiet_NaN())}}));
  EXPECT_FALSE(
      json::isValidObject({{"k", Number::float32(std::numeric_limits<float>::infinity())}}));
}

TEST(JsonTest, IsAValidObjectUpTo512Levels) {
  EXPECT_TRUE(json::isValidObject({{"k", nestedArrays(511)}}));
  EXPECT_FALSE(json::isValidObject({{"k", nestedArrays(512)}}));
}

TEST(JsonTest, IsAValidObjectWithEveryKindThatJsonHas) {
  EXPECT_TRUE(json::isValidObject({{"s", "text"},
                                   {"n", Number::float32(0.5f)},
                                   {"b", Number::boolean(true)},
                                   {"z", Null{}},
                                   {"a", Array{Dictionary{}}}}));
}

TEST(JsonTest, NamesTheKindThatItCannotWrite) {
  Error error;

  EXPECT_EQ(std::nullopt, json::serialize({{"k", Data{"x"}}}, &error));
  EXPECT_EQ(
      "Error Domain=NSCocoaErrorDomain Code=3840 \"The data couldn’t be read because it isn’t in "
      "the correct format.\" UserInfo={NSDebugDescription=Invalid type in JSON write "
      "(NSConcreteData)}",
      error.description());
}

TEST(JsonTest, RefusesToWriteWhatIsNoValidObject) {
  EXPECT_EQ("unwritable", textOf(Date{0}));
  EXPECT_EQ("unwritable", textOf(Number::float64(std::numeric_limits<double>::infinity())));
  EXPECT_EQ("unwritable", textOf(nestedArrays(512)));
}

TEST(JsonTest, FollowsNoLocale) {
  if (!DecimalCommaLocale::canBeMade()) GTEST_SKIP() << "localedef is not installed";
  // A comma, and a decimal point of two bytes.
  for (const char* point : {"<U002C>", "<U066B>"}) {
    const DecimalCommaLocale locale(point);
    ASSERT_TRUE(locale.isActive()) << point;

    EXPECT_EQ(Value(Number::float64(1234.5)), elementOf("1234.5")) << point;
    EXPECT_EQ(Value(Number::float64(-1.25e-3)), elementOf("-1.25e-3")) << point;
    EXPECT_EQ("unreadable", elementOf("1,5.5,").description()) << point;
    EXPECT_EQ("{\"k\":1234.5}", textOf(Number::float64(1234.5))) << point;
  }
}

}  // namespace
}  // namespace zln
