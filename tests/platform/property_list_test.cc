#include "platform/property_list.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/platform/reals.h"
#include "tests/support/decimal_comma_locale.h"

namespace zln {
namespace {

using namespace std::string_view_literals;

std::string elementOf(const Value& value) {
  std::string out;
  return property_list::appendElement(out, value, 0) ? out : "unwritable";
}

std::string documentOf(std::string_view root) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
         "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
         "<plist version=\"1.0\">\n" +
         std::string(root) + "</plist>\n";
}

std::optional<Value> readRoot(std::string_view root) {
  return property_list::read(documentOf(root));
}

std::string nestedArrays(int levels) {
  std::string text;
  for (int level = 0; level < levels; ++level) text += "<array>";
  for (int level = 0; level < levels; ++level) text += "</array>";
  return text;
}

// The binary form of a list of objects, each given by its bytes, with one-byte references; the
// first object is the root.
class BinaryList {
 public:
  explicit BinaryList(std::vector<std::string> objects) {
    bytes = "bplist00";
    std::string table;
    for (const std::string& object : objects) {
      append(table, bytes.size(), 4);
      bytes += object;
    }
    const std::size_t tableOffset = bytes.size();
    bytes += table + std::string(6, '\0') + "\x04\x01";
    append(bytes, objects.size(), 8);
    append(bytes, 0, 8);
    append(bytes, tableOffset, 8);
  }

  // Puts `value` over the eight bytes that lie `fromEnd` before the end.
  BinaryList& patch(std::size_t fromEnd, std::uint64_t value) {
    std::string field;
    append(field, value, 8);
    bytes.replace(bytes.size() - fromEnd, 8, field);
    return *this;
  }

  std::optional<Value> read() const { return property_list::read(bytes); }

  std::string bytes;

 private:
  static void append(std::string& out, std::uint64_t value, int size) {
    for (int shift = 8 * (size - 1); shift >= 0; shift -= 8) {
      out += static_cast<char>(value >> shift & 0xFF);
    }
  }
};

// The string "a" in the binary form.
const std::string kA = {'\x51', 'a'};

TEST(PropertyListTest, WritesAWholeDocument) {
  const Value root(Array{Dictionary{{"b", Number::boolean(true)}, {"a", "text"}}});

  EXPECT_EQ(
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
      "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
      "<plist version=\"1.0\">\n"
      "<array>\n"
      "\t<dict>\n"
      "\t\t<key>a</key>\n"
      "\t\t<string>text</string>\n"
      "\t\t<key>b</key>\n"
      "\t\t<true/>\n"
      "\t</dict>\n"
      "</array>\n"
      "</plist>\n",
      property_list::write(root));
}

TEST(PropertyListTest, WritesAnElementAtTheLevelAskedFor) {
  std::string out = "before\n";

  EXPECT_TRUE(property_list::appendElement(out, Dictionary{{"k", Array{"v"}}}, 2));

  EXPECT_EQ(
      "before\n"
      "\t\t<dict>\n"
      "\t\t\t<key>k</key>\n"
      "\t\t\t<array>\n"
      "\t\t\t\t<string>v</string>\n"
      "\t\t\t</array>\n"
      "\t\t</dict>\n",
      out);
}

TEST(PropertyListTest, WritesAValueInTheTagOfItsKind) {
  const std::pair<Value, const char*> rows[] = {
      {Array{}, "<array/>\n"},
      {Dictionary{}, "<dict/>\n"},
      {Number::boolean(true), "<true/>\n"},
      {Number::boolean(false), "<false/>\n"},
      {Number::int32(-5), "<integer>-5</integer>\n"},
      {Number::int64(INT64_MAX), "<integer>9223372036854775807</integer>\n"},
      {Number::float64(600), "<real>600</real>\n"},
      {Number::float32(30), "<real>30</real>\n"},
      // Seventeen digits of the double.
      {Number::float32(0.1f), "<real>0.10000000149011612</real>\n"},
      {Number::float64(0.1), "<real>0.10000000000000001</real>\n"},
      {Number::float64(1e20), "<real>1e+20</real>\n"},
      // Zero has a point.
      {Number::float64(0), "<real>0.0</real>\n"},
      {Number::float32(-0.0f), "<real>0.0</real>\n"},
      {Number::float64(kNan), "<real>nan</real>\n"},
      {Number::float64(-kNan), "<real>nan</real>\n"},
      {Number::float64(kInfinity), "<real>+infinity</real>\n"},
      {Number::float64(-kInfinity), "<real>-infinity</real>\n"},
      // Whole seconds, and the nearest date that can be read.
      {Date{1700000000.9}, "<date>2023-11-14T22:13:20Z</date>\n"},
      {Date{-0.5}, "<date>1969-12-31T23:59:59Z</date>\n"},
      {Date{-1e300}, "<date>0001-01-01T00:00:00Z</date>\n"},
      {Date{1e300}, "<date>9999-12-31T23:59:59Z</date>\n"},
      {Date{kNan}, "<date>0001-01-01T00:00:00Z</date>\n"},
  };
  for (const auto& [value, element] : rows) EXPECT_EQ(element, elementOf(value));
}

TEST(PropertyListTest, WritesDataInLines) {
  EXPECT_EQ("<data>\n</data>\n", elementOf(Data{}));
  EXPECT_EQ("<data>\nYQ==\n</data>\n", elementOf(Data{"a"}));
  EXPECT_EQ("<data>\nYWI=\n</data>\n", elementOf(Data{"ab"}));
  EXPECT_EQ("<data>\n+/8A\n</data>\n", elementOf(Data{std::string("\xFB\xFF\0", 3)}));
  EXPECT_EQ("<data>\n" + std::string(76, 'A') + "\nAA==\n</data>\n",
            elementOf(Data{std::string(58, '\0')}));
  // Nested data has shorter lines.
  EXPECT_EQ("<array>\n\t<data>\n\t" + std::string(68, 'A') + "\n\tAA==\n\t</data>\n</array>\n",
            elementOf(Array{Data{std::string(52, '\0')}}));
}

TEST(PropertyListTest, EscapesMarkupAndReplacesWhatXmlCannotHold) {
  EXPECT_EQ("<string>&lt;a&gt; &amp; \"b\" 'c'\t\n&#13;</string>\n",
            elementOf("<a> & \"b\" 'c'\t\n\r"));
  EXPECT_EQ("<string>\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD</string>\n",
            elementOf(std::string("\0\x1B\xFF\xEF\xBF\xBE\xEF\xBF\xBF", 9)));
  EXPECT_EQ("<string>\x7F \u20AC \U0001F600</string>\n", elementOf("\x7F \u20AC \U0001F600"));
}

TEST(PropertyListTest, SortsKeysByCodeUnit) {
  EXPECT_EQ(
      "<dict>\n"
      "\t<key>A&amp;</key>\n\t<true/>\n"
      "\t<key>a</key>\n\t<true/>\n"
      "\t<key>\U00010000</key>\n\t<true/>\n"
      "\t<key>\uFF21</key>\n\t<true/>\n"
      "</dict>\n",
      elementOf(Dictionary{{"\uFF21", Number::boolean(true)},
                           {"a", Number::boolean(true)},
                           {"\U00010000", Number::boolean(true)},
                           {"A&", Number::boolean(true)}}));
}

TEST(PropertyListTest, WritesNothingWhenThereIsANull) {
  std::string out = "kept";

  EXPECT_FALSE(property_list::appendElement(out, Array{"a", Dictionary{{"k", Null{}}}}, 0));

  EXPECT_EQ("kept", out);
  EXPECT_EQ(std::nullopt, property_list::write(Null{}));
}

TEST(PropertyListTest, ReadsWhatItWrites) {
  const Value root(Dictionary{
      {"text", "<&>\r\n\t\"' \u20AC \U0001F600"},
      {"", ""},
      {"integer", Number::int64(INT64_MIN)},
      {"real", Number::float64(0.1)},
      {"tiny", Number::float64(5e-324)},
      {"infinite", Number::float64(-kInfinity)},
      {"yes", Number::boolean(true)},
      {"no", Number::boolean(false)},
      {"date", Date{1700000000}},
      {"data", Data{std::string(100, '\xA5')}},
      {"list", Array{Array{}, Dictionary{}, Array{Dictionary{{"k", "v"}}}}},
  });

  EXPECT_EQ(root, property_list::read(property_list::write(root).value()));
}

TEST(PropertyListTest, ReadsADocumentWithoutDoctypeOrPlistElement) {
  EXPECT_EQ(Value(Array{"a"}), property_list::read("<array><string>a</string></array>"));
}

TEST(PropertyListTest, ReadsEntitiesCdataAndComments) {
  EXPECT_EQ(Value("<>&'\"A\u20AC<raw>&amp;end"),
            readRoot("<!-- one --><string>&lt;&gt;&amp;&apos;&quot;&#65;&#x20AC;"
                     "<![CDATA[<raw>&amp;]]><!-- two -->end</string>"));
}

TEST(PropertyListTest, ReadsUtf16AndMarks) {
  EXPECT_EQ(Value("a"), property_list::read("\xEF\xBB\xBF<string>a</string>"));
  EXPECT_EQ(
      Value("\u00E9"),
      property_list::read("\xFF\xFE<\0s\0t\0r\0i\0n\0g\0>\0\xE9\0<\0/\0s\0t\0r\0i\0n\0g\0>\0"sv));
}

TEST(PropertyListTest, ReadsTheValueOfAnElement) {
  const std::pair<std::string_view, Value> rows[] = {
      {"<integer>-12</integer>", Number::int64(-12)},
      {"<integer> + 007</integer>", Number::int64(7)},
      {"<integer>0xfF</integer>", Number::int64(255)},
      {"<integer>-0X10</integer>", Number::int64(-16)},
      {"<integer>-9223372036854775808</integer>", Number::int64(INT64_MIN)},
      // Integers above 63 bits become doubles.
      {"<integer>9223372036854775808</integer>", Number::float64(9223372036854775808.0)},
      {"<integer>18446744073709551615</integer>", Number::float64(18446744073709551615.0)},
      {"<real>1.5</real>", Number::float64(1.5)},
      {"<real> -25e-2</real>", Number::float64(-0.25)},
      {"<real>+600</real>", Number::float64(600)},
      {"<real>.5</real>", Number::float64(0.5)},
      {"<real>1700000100.0</real>", Number::float64(1700000100)},
      {"<real>+Infinity</real>", Number::float64(kInfinity)},
      {"<real>INF</real>", Number::float64(kInfinity)},
      {"<real>-inf</real>", Number::float64(-kInfinity)},
      {"<true/>", Number::boolean(true)},
      {"<false></false>", Number::boolean(false)},
      {"<date>2023-11-14T22:13:20Z</date>", Date{1700000000}},
      {"<data>\n\tYW\n\t Jj \n</data>", Data{"abc"}},
      {"<data>YQ==</data>", Data{"a"}},
      {"<data/>", Data{}},
  };
  for (const auto& [element, value] : rows) EXPECT_EQ(value, readRoot(element)) << element;
  EXPECT_TRUE(std::isnan(readRoot("<real>NaN</real>")->number()->doubleValue()));
}

TEST(PropertyListTest, OfRepeatedKeysTheLastCounts) {
  EXPECT_EQ(Value(Dictionary{{"a", "2"}}), readRoot("<dict><key>a</key><string>1</string>"
                                                    "<key>a</key><string>2</string></dict>"));
}

TEST(PropertyListTest, RefusesTheWholeFileForOneMalformedElement) {
  const std::pair<std::string, std::vector<std::string>> bad[] = {
      {"integer",
       {"", "1.5", "12a", "--1", "0x", "0x1g", "18446744073709551616", "-9223372036854775809"}},
      {"real", {"", "1,5", "1.5x", "+-1", "0x1p3", "nanny", "1e999"}},
      {"date",
       {"", "2023-11-14", "2023-11-14T22:13:20", "2023-11-14T22:13:20Zx", "2023-11-14 22:13:20Z",
        "2023-11-31T22:13:20Z", "2023-11-14T24:00:00Z", "+023-11-14T22:13:20Z"}},
      {"data", {"YQ", "YQ=", "Y===", "YQ==YQ==", "Y*=="}},
      {"true", {"x"}},
      {"false", {" "}},
      {"string", {"a<b/>", "&unknown;", "\xFF", "&#0;"}},
      {"key", {"a"}},
      {"unknown", {""}},
      {"set", {""}},
  };
  for (const auto& [tag, contents] : bad) {
    for (const std::string& content : contents) {
      const std::string element = "<" + tag + ">" + content + "</" + tag + ">";
      EXPECT_EQ(std::nullopt, readRoot("<array>" + element + "</array>")) << element;
    }
  }
}

TEST(PropertyListTest, RefusesAMalformedStructure) {
  constexpr std::string_view kBad[] = {"",
                                       "text",
                                       "<dict><key>a</key></dict>",
                                       "<dict><string>a</string></dict>",
                                       "<dict><key>a</key><key>b</key><true/></dict>",
                                       "<dict>junk<key>a</key><true/></dict>",
                                       "<array>junk</array>",
                                       "<array/><array/>",
                                       "<array/>junk",
                                       "<plist><array/></plist>",
                                       "<array><plist/></array>",
                                       "<array>",
                                       "<array></dict>",
                                       "<dict><key>a</key><array><key>b</key></array></dict>"};
  for (const std::string_view root : kBad) EXPECT_EQ(std::nullopt, readRoot(root)) << root;
}

TEST(PropertyListTest, RefusesWhatIsNoPropertyList) {
  constexpr std::string_view kBad[] = {
      ""sv,     " \n"sv,    "plain text"sv, "{}"sv,       "{ k = v; }"sv,
      "(a)"sv,  "[]"sv,     "<html/>"sv,    "<plist/>"sv, "<array/><array/>"sv,
      "\0\0"sv, "<key/>"sv, "bplist01"sv,   "bplist00"sv, "<array/>junk"sv,
      "<"sv,    "\xFF"sv,   "<?xml?>"sv,
  };
  for (const std::string_view text : kBad) {
    EXPECT_EQ(std::nullopt, property_list::read(text)) << text;
  }
}

TEST(PropertyListTest, RefusesDeclarationsOfTheDocumentsOwn) {
  for (const std::string declaration :
       {"<!ENTITY a \"b\">", "<!ENTITY a SYSTEM \"file:///etc/hostname\">",
        "<!ATTLIST string a CDATA \"b\">"}) {
    EXPECT_EQ(std::nullopt, property_list::read("<!DOCTYPE plist [" + declaration +
                                                "]><plist><string>a</string></plist>"));
  }
  EXPECT_EQ(std::nullopt, property_list::read("<!DOCTYPE plist [<!ENTITY a \"b\">]>"
                                              "<plist><string>&a;</string></plist>"));
}

TEST(PropertyListTest, ReadsAtMost128LevelsAndSaysSo) {
  std::string problem = "untouched";
  EXPECT_NE(std::nullopt, property_list::read(nestedArrays(128), &problem));
  EXPECT_EQ("untouched", problem);

  EXPECT_EQ(std::nullopt, property_list::read(nestedArrays(129), &problem));
  EXPECT_EQ("too many levels in line 1", problem);
}

// The bytes behind the first few are never looked at, and never even written.
TEST(PropertyListTest, ReadsAtMost256MegabytesAndSaysSo) {
  constexpr std::size_t kMost = std::size_t{256} << 20;
  constexpr std::string_view kStart = "plain text";
  const auto bytes = std::make_unique_for_overwrite<char[]>(kMost + 1);
  kStart.copy(bytes.get(), kStart.size());
  std::string problem;

  EXPECT_EQ(std::nullopt, property_list::read({bytes.get(), kMost}, &problem));
  EXPECT_EQ("syntax error in line 1", problem);
  EXPECT_EQ(std::nullopt, property_list::read({bytes.get(), kMost + 1}, &problem));
  EXPECT_EQ("more than 256 MB", problem);
}

// As many elements as are allowed are in the first line, with the array itself, and one is in the
// second.
std::string problemOfTooManyElements(std::size_t allowed, std::size_t size) {
  std::string document = "<array>";
  for (std::size_t element = 1; element < allowed; ++element) document += "<string/>";
  document += "\n<dict/></array>";
  document.resize(std::max(document.size(), size), ' ');
  std::string problem;
  EXPECT_EQ(std::nullopt, property_list::read(document, &problem));
  return problem;
}

TEST(PropertyListTest, ReadsAMillionElementsOrOneForEach24BytesAndSaysSo) {
  EXPECT_EQ("too many elements in line 2", problemOfTooManyElements(1'000'000, 0));
  EXPECT_EQ("too many elements in line 2", problemOfTooManyElements(1'000'001, 24'000'024));
}

TEST(PropertyListTest, SaysWhatIsWrong) {
  struct Row {
    std::string_view bytes;
    std::string_view problem;
  };
  constexpr Row kRows[] = {
      {"", "no element found in line 1"},
      {"\n\nplain text", "syntax error in line 3"},
      {"<array>\n", "no element found in line 2"},
      {"<array>\n</dict>", "mismatched tag in line 2"},
      {"<array/>\n<array/>", "junk after document element in line 2"},
      {"<array><string>\xFF</string></array>", "not well-formed (invalid token) in line 1"},
      {"<html/>", "an unknown element in line 1"},
      {"<plist>\n<key>a</key></plist>", "an element in a wrong place in line 2"},
      {"<dict>\n\n<true/></dict>", "an element in a wrong place in line 3"},
      {"<array>\nwords</array>", "text in a wrong place in line 2"},
      {"<dict><key>a</key>\n</dict>", "a key without a value in line 2"},
      {"<array>\n<real>1,5</real></array>", "a malformed value in line 2"},
      {"<plist/>", "a document without content in line 1"},
      {"<!DOCTYPE plist [<!ENTITY a \"b\">]>\n<array/>",
       "declarations of the document's own in line 1"},
      {"bplist00 and no more", "a damaged binary form"},
  };
  for (const auto& [bytes, expected] : kRows) {
    std::string problem;

    EXPECT_EQ(std::nullopt, property_list::read(bytes, &problem)) << bytes;

    EXPECT_EQ(expected, problem) << bytes;
  }
}

TEST(PropertyListTest, ReadsManyKeysInLittleTime) {
  std::string text = "<dict>";
  for (int key = 0; key < 200000; ++key) text += "<key>" + std::to_string(key) + "</key><true/>";
  text += "</dict>";

  const std::optional<Value> value = property_list::read(text);

  ASSERT_TRUE(value);
  EXPECT_EQ(200000u, value->dictionary()->size());
}

TEST(PropertyListTest, ReadsEveryKindOfTheBinaryForm) {
  const BinaryList list({
      "\xAC\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0A\x0B\x0C",
      "\x08",
      "\x09",
      "\x10\xFF",
      "\x11\x80\x01",
      std::string("\x13\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFE", 9),
      std::string("\x14\0\0\0\0\0\0\0\0\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF", 17),
      std::string("\x22\x3F\xC0\0\0", 5),
      std::string("\x23\x40\x04\0\0\0\0\0\0", 9),
      std::string("\x33\x41\xC5\x82\x14\x40\0\0\0", 9),
      "\x42zz",
      "\x53"
      "abc",
      std::string("\x63\0\xE9\xD8\x3D\xDE\0", 7),
  });

  EXPECT_EQ(
      Value(Array{Number::boolean(false), Number::boolean(true), Number::int64(255),
                  Number::int64(32769), Number::int64(-2), Number::float64(18446744073709551615.0),
                  Number::float64(1.5), Number::float64(2.5), Date{1700000000}, Data{"zz"}, "abc",
                  "\u00E9\U0001F600"}),
      list.read());
}

TEST(PropertyListTest, ReadsBinaryContainersAndLongStrings) {
  const std::string b = {'\x51', 'b'};
  const std::string one = "\x10\x01";
  const std::string two = "\x10\x02";
  const std::pair<std::vector<std::string>, Value> rows[] = {
      {{"\xD2\x01\x02\x03\x04", kA, b, one, two},
       Dictionary{{"a", Number::int64(1)}, {"b", Number::int64(2)}}},
      // Of repeated keys the last counts.
      {{"\xD2\x01\x01\x02\x03", kA, one, two}, Dictionary{{"a", Number::int64(2)}}},
      // Objects may be shared.
      {{"\xA3\x01\x01\x01", kA}, Array{"a", "a", "a"}},
      {{std::string("\x5F\x11\x01\x2C", 4) + std::string(300, 'x')}, std::string(300, 'x')},
  };
  for (const auto& [objects, value] : rows) EXPECT_EQ(value, BinaryList(objects).read());
}

TEST(PropertyListTest, RefusesMalformedBinaryObjects) {
  const std::string kBad[] = {
      std::string("\0", 1),                        // null
      "\x0F",                                      // filler
      "\x15" + std::string(32, '\0'),              // an integer of 32 bytes
      "\x14" + std::string(16, '\xFF'),            // a negative integer of 16 bytes
      "\x11\x01",                                  // cut short
      "\x21\x01\x02",                              // a real of two bytes
      std::string("\x32\0\0\0\0", 5),              // a date of four bytes
      std::string("\x33\x7F\xF8\0\0\0\0\0\0", 9),  // a date that is no number
      "\x52"
      "a",         // cut short
      "\x51\xFF",  // not ASCII
      "\x62"
      "abc",  // cut short
      "\x5F\x51"
      "a",                                                          // a count that is no integer
      std::string("\x5F\x13\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF", 10),  // a count beyond all
      std::string("\x6F\x13\x80\0\0\0\0\0\0\0", 10),                // a count whose double is 0
      std::string("\xDF\x13\x80\0\0\0\0\0\0\0", 10),                // the same
      "\x80\x01",                                                   // an identifier
      std::string("\xC1\0", 2),                                     // a set
      "\xB1\x01",                                                   // an ordered set
      "\x70",                                                       // unknown
      "\xA1\x05",                                                   // a reference to no object
      "\xA1",                                                       // cut short
      std::string("\xD1\0", 2),                                     // cut short
      std::string("\xD1\0\0", 3),                                   // a key that is no string
      std::string("\xA1\0", 2),                                     // an array that holds itself
  };
  for (const std::string& object : kBad) {
    EXPECT_EQ(std::nullopt, BinaryList({object}).read()) << testing::PrintToString(object);
  }
}

TEST(PropertyListTest, RefusesAMalformedBinaryTrailer) {
  const std::pair<std::size_t, std::uint64_t> patches[] = {
      {24, 2},   {24, UINT64_MAX}, {16, 1}, {16, UINT64_MAX}, {8, 7},
      {8, 1000}, {8, UINT64_MAX},  {32, 0}, {32, 0x0909}};
  EXPECT_EQ(Value("a"), BinaryList({kA}).read());
  for (const auto& [fromEnd, value] : patches) {
    EXPECT_EQ(std::nullopt, BinaryList({kA}).patch(fromEnd, value).read()) << fromEnd;
  }
}

TEST(PropertyListTest, RefusesEveryBinaryFileThatIsCutShort) {
  const std::string whole = BinaryList({"\xA2\x01\x02", kA, "\x10\x01"}).bytes;

  for (std::size_t length = 0; length < whole.size(); ++length) {
    EXPECT_EQ(std::nullopt, property_list::read(whole.substr(0, length))) << length;
  }
}

TEST(PropertyListTest, ReadsAtMost128LevelsOfTheBinaryForm) {
  std::vector<std::string> objects;
  for (int level = 1; level < 128; ++level) objects.push_back({'\xA1', static_cast<char>(level)});
  objects.push_back("\xA0");
  std::vector<std::string> deeper = objects;
  deeper.back() = "\xA1\x80";
  deeper.push_back("\xA0");

  EXPECT_NE(std::nullopt, BinaryList(objects).read());
  EXPECT_EQ(std::nullopt, BinaryList(deeper).read());
}

TEST(PropertyListTest, RefusesABinaryFileThatStandsForEndlessValues) {
  std::vector<std::string> objects;
  for (int level = 1; level <= 100; ++level) {
    const char next = static_cast<char>(level);
    objects.push_back({'\xA2', next, next});
  }
  objects.push_back(kA);

  EXPECT_EQ(std::nullopt, BinaryList(objects).read());
}

TEST(PropertyListTest, RefusesASmallBinaryFileThatStandsForMuch) {
  const auto listOf = [](char count, char object) {
    return std::string("\xAF\x10") + count + std::string(static_cast<unsigned char>(count), object);
  };
  const std::string yes = "\x09";

  const std::optional<Value> some = BinaryList({listOf(9, 1), listOf('\xFF', 2), yes}).read();

  ASSERT_TRUE(some);
  EXPECT_EQ(9u, some->array()->size());
  EXPECT_EQ(std::nullopt, BinaryList({listOf('\xFF', 1), listOf('\xFF', 2), yes}).read());
}

TEST(PropertyListTest, RefusesABinaryFileThatRepeatsALongStringEndlessly) {
  const std::string text = std::string("\x5F\x12\0\x10\0\0", 6) + std::string(1 << 20, 'x');
  const std::string list = std::string("\xAF\x11\x10\0", 4) + std::string(4096, '\x01');

  EXPECT_EQ(std::nullopt, BinaryList({list, text}).read());
}

TEST(PropertyListTest, FollowsNoLocale) {
  if (!DecimalCommaLocale::canBeMade()) GTEST_SKIP() << "localedef is not installed";
  const DecimalCommaLocale locale;
  ASSERT_TRUE(locale.isActive());

  EXPECT_EQ("<real>1234.5</real>\n", elementOf(Number::float64(1234.5)));
  EXPECT_EQ(Value(Number::float64(1234.5)), readRoot("<real>1234.5</real>"));
  EXPECT_EQ(std::nullopt, readRoot("<real>1234,5</real>"));
}

}  // namespace
}  // namespace zln
