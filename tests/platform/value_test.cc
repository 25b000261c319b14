#include "platform/value.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>

namespace zln {
namespace {

using testing::ElementsAre;

std::vector<std::string> keysOf(const Dictionary& dictionary) {
  std::vector<std::string> keys;
  for (const auto& entry : dictionary.entries()) keys.push_back(entry.first);
  return keys;
}

TEST(ValueTest, AnswersOnlyAsItsOwnKind) {
  const Value value = Number::int64(5);

  EXPECT_EQ(Number::int64(5), *value.number());
  EXPECT_EQ(nullptr, value.string());
  EXPECT_EQ(nullptr, value.date());
  EXPECT_EQ(nullptr, value.data());
  EXPECT_EQ(nullptr, value.array());
  EXPECT_EQ(nullptr, value.dictionary());
  EXPECT_FALSE(value.isNull());
  EXPECT_TRUE(Value(Null{}).isNull());
}

TEST(ValueTest, HasOneClassNameForEachKind) {
  const std::pair<Value, const char*> rows[] = {
      {"a", "__NSCFString"},
      {Number::int64(1), "__NSCFNumber"},
      {Number::float32(1), "__NSCFNumber"},
      {Number::boolean(true), "__NSCFBoolean"},
      {Date{0}, "__NSDate"},
      {Data{}, "NSConcreteData"},
      {Array{}, "__NSArrayM"},
      {Dictionary{}, "__NSDictionaryM"},
      {Null{}, "NSNull"},
  };
  for (const auto& [value, name] : rows) EXPECT_STREQ(name, value.className());
}

TEST(ValueTest, OutsideOfContainersIsShownUnquoted) {
  EXPECT_EQ("a \"b\"", Value("a \"b\"").description());
  EXPECT_EQ("0.1", Value(Number::float64(0.1)).description());
  EXPECT_EQ("1", Value(Number::boolean(true)).description());
  EXPECT_EQ("2023-11-14 22:13:20 +0000", Value(Date{1700000000}).description());
  EXPECT_EQ("<null>", Value(Null{}).description());
  EXPECT_EQ("{\n}", Value(Dictionary{}).description());
  EXPECT_EQ("(\n)", Value(Array{}).description());
}

TEST(ValueTest, QuotesInsideOfContainersWhatIsNoPlainWord) {
  const Array array{"plain_Word9",
                    "",
                    "a-b",
                    "application/json",
                    Number::int64(3),
                    Number::int64(-3),
                    Number::float64(0.1),
                    Number::boolean(false),
                    Date{1700000000},
                    Null{}};

  EXPECT_EQ(
      "(\n"
      "    plain_Word9,\n"
      "    \"\",\n"
      "    \"a-b\",\n"
      "    \"application/json\",\n"
      "    3,\n"
      "    \"-3\",\n"
      "    \"0.1\",\n"
      "    0,\n"
      "    \"2023-11-14 22:13:20 +0000\",\n"
      "    \"<null>\"\n"
      ")",
      description(array));
}

TEST(ValueTest, EscapesInsideOfQuotesAndShowsOtherThanAsciiAsCodeUnits) {
  const Array array{"say \"x\"", "back\\slash", "two\nlines", "tab\tcr\r", std::string("\0\x1F", 2),
                    "\u00e9",    "\U0001F600",  "\xFF"};

  EXPECT_EQ(
      "(\n"
      "    \"say \\\"x\\\"\",\n"
      "    \"back\\\\slash\",\n"
      "    \"two\\nlines\",\n"
      "    \"tab\\tcr\\r\",\n"
      "    \"\\U0000\\U001f\",\n"
      "    \"\\U00e9\",\n"
      "    \"\\Ud83d\\Ude00\",\n"
      "    \"\\Ufffd\"\n"
      ")",
      description(array));
}

TEST(ValueTest, IndentsNestedContainersByLevel) {
  const Dictionary nested{
      {"list", Array{"a", Array{"b"}, Dictionary{{"k", "v"}}}},
      {"empty", Dictionary{}},
      {"Content-Type", Array{"application/json"}},
  };

  EXPECT_EQ(
      "{\n"
      "    \"Content-Type\" =     (\n"
      "        \"application/json\"\n"
      "    );\n"
      "    empty =     {\n"
      "    };\n"
      "    list =     (\n"
      "        a,\n"
      "                (\n"
      "            b\n"
      "        ),\n"
      "                {\n"
      "            k = v;\n"
      "        }\n"
      "    );\n"
      "}",
      nested.description());
}

TEST(ValueTest, DoesNotIndentBeyondTheSixtyFourthLevel) {
  Value value("x");
  for (int level = 0; level < 512; ++level) value = Array{value};

  const std::string text = value.description();

  EXPECT_EQ(std::string(256, ' ') + "x", text.substr(text.find('x') - 256, 257));
  EXPECT_EQ('\n', text[text.find('x') - 257]);
}

TEST(DataTest, OfUpTo24BytesIsShownWholeAndElseWithItsEnds) {
  EXPECT_EQ("{length = 0, bytes = 0x}", Data{}.description());
  EXPECT_EQ("{length = 6, bytes = 0x615e084d23dc}", Data{"\x61\x5e\x08\x4d\x23\xdc"}.description());
  EXPECT_EQ("{length = 24, bytes = 0x414141414141414141414141414141414141414141414141}",
            Data{std::string(24, 'A')}.description());
  EXPECT_EQ("{length = 25, bytes = 0x41414141 41414141 41414141 41414141 ... 41414141 41414142 }",
            Data{std::string(24, 'A') + "B"}.description());
  EXPECT_EQ("(\n    {length = 1, bytes = 0x61}\n)", description(Array{Data{"a"}}));
}

TEST(DictionaryTest, FindsWhatWasSetLastUnderAKey) {
  Dictionary dictionary{{"z", "1"}, {"a", "text"}};

  dictionary.set("b", Number::int64(2));
  dictionary.set("z", "4");

  EXPECT_EQ("4", *dictionary.findString("z"));
  EXPECT_EQ(Number::int64(2), *dictionary.findNumber("b"));
  EXPECT_EQ(nullptr, dictionary.findNumber("a"));
  EXPECT_EQ(nullptr, dictionary.findString("c"));
  EXPECT_EQ(nullptr, dictionary.find("c"));
  EXPECT_EQ(3u, dictionary.size());
  EXPECT_THAT(keysOf(dictionary), ElementsAre("z", "a", "b"));
}

TEST(DictionaryTest, RemovesAndMergesEntries) {
  Dictionary dictionary{{"a", "1"}, {"b", "2"}};

  dictionary.merge(Dictionary{{"b", "3"}, {"c", "4"}});
  EXPECT_EQ((Dictionary{{"a", "1"}, {"b", "3"}, {"c", "4"}}), dictionary);
  dictionary.remove("a");
  dictionary.remove("absent");

  EXPECT_EQ((Dictionary{{"b", "3"}, {"c", "4"}}), dictionary);
}

TEST(DictionaryTest, LeavesOutAnAbsentValueAndThrowsWhenItIsRequired) {
  Dictionary dictionary;

  dictionary.setIfPresent("a", std::nullopt);
  dictionary.setIfPresent("b", "2");
  dictionary.require("c", "3");

  EXPECT_THROW(dictionary.require("d", std::nullopt), std::invalid_argument);
  EXPECT_EQ((Dictionary{{"b", "2"}, {"c", "3"}}), dictionary);
}

TEST(DictionaryTest, EqualityIgnoresTheOrder) {
  EXPECT_EQ((Dictionary{{"a", "1"}, {"b", "2"}}), (Dictionary{{"b", "2"}, {"a", "1"}}));
  EXPECT_NE((Dictionary{{"a", "1"}, {"b", "2"}}), (Dictionary{{"a", "1"}, {"b", "3"}}));
  EXPECT_NE((Dictionary{{"a", "1"}, {"b", "2"}}), (Dictionary{{"a", "1"}, {"c", "2"}}));
  EXPECT_NE((Dictionary{{"a", "1"}}), (Dictionary{{"a", "1"}, {"b", "2"}}));
}

TEST(DictionaryTest, MadeFromEntriesKeepsTheValueThatCounts) {
  const std::vector<Dictionary::Entry> entries{
      {"b", "1"}, {"a", "2"}, {"b", "3"}, {"c", "4"}, {"b", "5"}};

  const auto first = Dictionary::fromEntries(entries, Dictionary::Repeated::firstCounts);
  const auto last = Dictionary::fromEntries(entries, Dictionary::Repeated::lastCounts);

  EXPECT_EQ((Dictionary{{"b", "1"}, {"a", "2"}, {"c", "4"}}), first);
  EXPECT_EQ((Dictionary{{"b", "5"}, {"a", "2"}, {"c", "4"}}), last);
  EXPECT_THAT(keysOf(last), ElementsAre("b", "a", "c"));
}

TEST(DictionaryTest, MadeFromEntriesSortsOutManyRepetitions) {
  std::vector<Dictionary::Entry> entries;
  for (int at = 0; at < 1000; ++at)
    entries.emplace_back(at % 2 == 0 ? "a" : "b", Number::int64(at));

  const auto first = Dictionary::fromEntries(entries, Dictionary::Repeated::firstCounts);
  const auto last = Dictionary::fromEntries(entries, Dictionary::Repeated::lastCounts);

  EXPECT_EQ((Dictionary{{"a", Number::int64(0)}, {"b", Number::int64(1)}}), first);
  EXPECT_EQ((Dictionary{{"a", Number::int64(998)}, {"b", Number::int64(999)}}), last);
}

TEST(DictionaryTest, DescriptionIsSortedByKey) {
  const Dictionary dictionary{{"b", "2"}, {"a", "1"}, {"\uFF21", "4"}, {"\U00010000", "3"}};

  EXPECT_EQ(
      "{\n"
      "    a = 1;\n"
      "    b = 2;\n"
      "    \"\\Ud800\\Udc00\" = 3;\n"
      "    \"\\Uff21\" = 4;\n"
      "}",
      dictionary.description());
}

}  // namespace
}  // namespace zln
