#include "platform/json.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <utility>

#include "tests/support/decimal_comma_locale.h"

namespace zln {
namespace {

using namespace std::string_view_literals;

std::optional<Value> parse(std::string_view text) { return json::parse(text, nullptr); }

// The only element of an array that is read from `text`.
Value parsedElement(std::string_view text) {
  const std::optional<Value> value = parse("[" + std::string(text) + "]");
  if (!value || value->array() == nullptr || value->array()->size() != 1) return "unreadable";
  return value->array()->front();
}

std::string textOf(const Value& element) {
  return json::serialize(Dictionary{{"k", element}}, nullptr).value_or("unwritable");
}

Value nestedArrayValue(int levels) {
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
            parsedElement(R"("\"\\\/\b\f\n\r\t\u00e9\ud83d\uDE00")"));
  EXPECT_EQ(Value(std::string("a\0b", 3)), parsedElement(R"("a\u0000b")"));
}

TEST(JsonTest, ReadsIntegersOf64BitsAndOtherNumbersAsDoubles) {
  const std::pair<std::string_view, Number> rows[] = {
      {"9223372036854775807", Number::int64(INT64_MAX)},
      {"-9223372036854775808", Number::int64(INT64_MIN)},
      {"-0", Number::int64(0)},
      {"9223372036854775808", Number::float64(9223372036854775808.0)},
      {"18446744073709551616", Number::float64(18446744073709551616.0)},
      {"-9223372036854775809", Number::float64(-9223372036854775808.0)},
      {"600.0", Number::float64(600)},
      {"12E+2", Number::float64(1200)},
      {"1.5e-2", Number::float64(0.015)},
      {"1.7976931348623157e308", Number::float64(DBL_MAX)},
      {"5e-324", Number::float64(5e-324)},
      {"0.0e-999", Number::float64(0)},
  };
  for (const auto& [text, number] : rows) EXPECT_EQ(Value(number), parsedElement(text)) << text;
}

TEST(JsonTest, KeepsTheOrderOfKeysAndOfRepeatedOnesTheFirst) {
  const std::optional<Value> value = parse(R"({"z":1,"b":2,"z":3})");

  EXPECT_EQ(Value(Dictionary{{"z", Number::int64(1)}, {"b", Number::int64(2)}}), value);
  EXPECT_EQ("z", value.value().dictionary()->entries().front().first);
}

TEST(JsonTest, AcceptsOneTrailingComma) {
  EXPECT_EQ(Value(Dictionary{{"success", Number::boolean(true)}}), parse(R"({"success":true,})"));
  EXPECT_EQ(Value(Array{Number::int64(1), Array{"a,]"}}), parse("[1,[\"a,]\" , \n]\t,]"));
  EXPECT_EQ(Value(Array{",]", "\",}"}), parse(R"([",]","\",}"])"));
}

TEST(JsonTest, ReadsFiveEncodingsWithAndWithoutMark) {
  constexpr std::string_view kText = "{\"k\":1}";
  const std::pair<std::string_view, std::string> encodings[] = {
      {"\xEF\xBB\xBF", std::string(kText)},
      {"\xFF\xFE", inUnits(kText, 2, false)},
      {"\xFE\xFF", inUnits(kText, 2, true)},
      {"\xFF\xFE\0\0"sv, inUnits(kText, 4, false)},
      {"\0\0\xFE\xFF"sv, inUnits(kText, 4, true)}};
  for (const auto& [mark, bytes] : encodings) {
    EXPECT_EQ(Value(Dictionary{{"k", Number::int64(1)}}), parse(bytes));
    EXPECT_EQ(Value(Dictionary{{"k", Number::int64(1)}}), parse(std::string(mark) + bytes));
  }
}

TEST(JsonTest, ReadsSurrogatePairsAndRefusesBrokenUtf16AndUtf32) {
  EXPECT_EQ(Value(Array{"\U0001F600"}), parse("[\0\"\0\x3D\xD8\x00\xDE\"\0]\0"sv));
  for (const std::string_view text :
       {"[\0\"\0\x3D\xD8\"\0]\0"sv, "[\0\"\0\x00\xDE\"\0]\0"sv, "[\0\"\0a\0\"\0]"sv,
        "[\0\0\0\"\0\0\0\0\0\x11\0\"\0\0\0]\0\0\0"sv, "\xFF\xFE[\0]\0\x3D\xD8"sv}) {
    EXPECT_EQ(std::nullopt, parse(text)) << testing::PrintToString(text);
  }
}

TEST(JsonTest, RefusesWhatIsNoJson) {
  constexpr std::string_view kBad[] = {
      ""sv,         " "sv,         "success"sv,  "[1,,]"sv,  "[,]"sv,     "[,1]"sv,   "[1 2]"sv,
      "{,}"sv,      "{\"a\":,}"sv, "{\"a\",}"sv, "{1:2}"sv,  "{'a':1}"sv, "[1]x"sv,   "[1][2]"sv,
      "[1],"sv,     "[1]\0"sv,     "[1\0]"sv,    "[1"sv,     "[1,"sv,     "[1}"sv,    "{\"a\":1]"sv,
      "[\"open]"sv, "[\"open\\"sv, "[tru]"sv,    "[nul,]"sv, "[True]"sv,  "[01]"sv,   "[+1]"sv,
      "[.5]"sv,     "[1.]"sv,      "[1e]"sv,     "[-]"sv,    "[0x10]"sv,  "[1,5.]"sv, "[NaN]"sv,
      "[1e999]"sv,  "[-1e999]"sv,  "[1e-999]"sv};
  constexpr std::string_view kLongerBad[] = {"\xEF\xBB\xBF"sv,       "\xEF\xBB\xBF\xEF\xBB\xBF[]"sv,
                                             "{\"a\":1,,}"sv,        "[1]\0garbage"sv,
                                             "[Infinity]"sv,         "[-Infinity]"sv,
                                             "[1] // comment"sv,     "/* comment */ [1]"sv,
                                             "[\"\\ud83d\"]"sv,      "[\"\\ude00\\ud83d\"]"sv,
                                             "[\"\\ud83dx\"]"sv,     "[\"\\x41\"]"sv,
                                             "[\"\\u12\"]"sv,        "[\"raw\nline\"]"sv,
                                             "[\"raw\0zero\"]"sv,    "[\"\x1F\"]"sv,
                                             "[\"\xFF\"]"sv,         "[\"\xC0\xAF\"]"sv,
                                             "[\"\xED\xA0\x80\"]"sv, "[\"\xE2\x82\"]"sv,
                                             "[\xC2\xA0]"sv};
  for (const std::string_view text : kBad) EXPECT_EQ(std::nullopt, parse(text)) << text;
  for (const std::string_view text : kLongerBad) EXPECT_EQ(std::nullopt, parse(text)) << text;
  // An integer beyond the range of double.
  EXPECT_EQ(std::nullopt, parse("[1" + std::string(400, '0') + "]"));
  // A top level that is no container.
  for (const std::string_view text : {"1", "\"text\"", "true", "null", " 1.5 "}) {
    EXPECT_EQ(std::nullopt, parse(text)) << text;
  }
}

TEST(JsonTest, ReadsAtMost512Levels) {
  const std::string deepest = std::string(512, '[') + std::string(512, ']');

  EXPECT_EQ(nestedArrayValue(512), parse(deepest));
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

TEST(JsonTest, ExplainsWhyNothingWasReadAndSaysNothingWhenItReads) {
  Error error{"untouched", 1, std::nullopt, {}};
  json::parse("[]", &error);
  EXPECT_EQ((Error{"untouched", 1, std::nullopt, {}}), error);

  json::parse("", &error);
  EXPECT_EQ(
      "Error Domain=NSCocoaErrorDomain Code=3840 \"The data couldn’t be read because it isn’t in "
      "the correct format.\" UserInfo={NSDebugDescription=Unable to parse empty data.}",
      error.description());

  json::parse("{\"a\":1 \"b\":2}", &error);
  EXPECT_EQ(std::nullopt, error.localizedDescription);
  EXPECT_EQ("Badly formed text around character 10.", error.userInfo.at(0).second);
}

TEST(JsonTest, WritesCompactTextInTheOrderOfKeys) {
  EXPECT_EQ("{}", json::serialize({}, nullptr));
  const Dictionary object{{"z", "text"},
                          {"a", Array{Number::int64(1), Null{}, Dictionary{}, Array{}}},
                          {"m", Dictionary{{"t", Number::boolean(true)}}}};

  EXPECT_EQ(R"({"z":"text","a":[1,null,{},[]],"m":{"t":true}})", json::serialize(object, nullptr));
}

TEST(JsonTest, EscapesStringsAndKeys) {
  const Dictionary object{
      {"k\"", std::string("\"\\/\b\f\n\r\t\x01\x1F\x7F\0 \u20AC\U0001F600", 20)}};

  EXPECT_EQ("{\"k\\\"\":\"\\\"\\\\\\/\\b\\f\\n\\r\\t\\u0001\\u001f\x7F\\u0000 \u20AC\U0001F600\"}",
            json::serialize(object, nullptr));
}

TEST(JsonTest, MendsStringsThatAreNotUtf8) {
  EXPECT_EQ("{\"a\uFFFD\":\"\uFFFDz\"}", json::serialize({{"a\xFF", "\xE2\x82z"}}, nullptr));
}

TEST(JsonTest, WritesNumbersAsTheShortestTextThatReadsBack) {
  const std::pair<Number, const char*> rows[] = {
      {Number::int64(INT64_MIN), "-9223372036854775808"},
      {Number::int32(86400), "86400"},
      {Number::boolean(false), "false"},
      {Number::float64(1700000050.123456), "1700000050.123456"},
      {Number::float64(0.1), "0.1"},
      {Number::float64(0.1 + 0.2), "0.30000000000000004"},
      {Number::float64(4.1752050594835e+78), "4.1752050594835e+78"},
      {Number::float64(5e-324), "5e-324"},
      // Whole doubles have no fraction.
      {Number::float64(600), "600"},
      {Number::float64(300000), "300000"},
      {Number::float64(-1700000000), "-1700000000"},
      {Number::float64(1e21), "1e+21"},
      // Floats are written as the double that they widen to.
      {Number::float32(0.1f), "0.10000000149011612"},
      {Number::float32(30), "30"},
  };
  for (const auto& [number, text] : rows) {
    EXPECT_EQ("{\"k\":" + std::string(text) + "}", textOf(number));
  }
}

TEST(JsonTest, IsAValidObjectWithEveryKindThatJsonHas) {
  EXPECT_TRUE(json::isValidObject({{"s", "text"},
                                   {"n", Number::float32(0.5f)},
                                   {"b", Number::boolean(true)},
                                   {"z", Null{}},
                                   {"a", Array{Dictionary{}}}}));
  EXPECT_TRUE(json::isValidObject({{"k", nestedArrayValue(511)}}));
}

TEST(JsonTest, NeitherCallsValidNorWritesWhatJsonCannotHold) {
  const Value values[] = {Date{0},
                          Array{Dictionary{{"d", Data{}}}},
                          Number::float64(std::numeric_limits<double>::quiet_NaN()),
                          Number::float64(std::numeric_limits<double>::infinity()),
                          Number::float32(std::numeric_limits<float>::infinity()),
                          nestedArrayValue(512)};
  for (const Value& value : values) {
    EXPECT_FALSE(json::isValidObject({{"k", value}})) << value.className();
    EXPECT_EQ("unwritable", textOf(value)) << value.className();
  }
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

TEST(JsonTest, FollowsNoLocale) {
  if (!DecimalCommaLocale::canBeMade()) GTEST_SKIP() << "localedef is not installed";
  // A comma, and a decimal point of two bytes.
  for (const char* point : {"<U002C>", "<U066B>"}) {
    const DecimalCommaLocale locale(point);
    ASSERT_TRUE(locale.isActive()) << point;

    EXPECT_EQ(Value(Number::float64(1234.5)), parsedElement("1234.5")) << point;
    EXPECT_EQ(Value(Number::float64(-1.25e-3)), parsedElement("-1.25e-3")) << point;
    EXPECT_EQ("unreadable", parsedElement("1,5.5,").description()) << point;
    EXPECT_EQ("{\"k\":1234.5}", textOf(Number::float64(1234.5))) << point;
  }
}

}  // namespace
}  // namespace zln
