#include "platform/utf8.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace zln {
namespace {

using namespace std::string_view_literals;

constexpr std::string_view kWellFormed[] = {
    ""sv,
    "plain"sv,
    "zero \0 inside"sv,
    "\x7F"sv,
    "\xC2\x80 \xDF\xBF"sv,
    "\xE0\xA0\x80 \xED\x9F\xBF \xEE\x80\x80 \xEF\xBF\xBF"sv,
    "\xF0\x90\x80\x80 \xF4\x8F\xBF\xBF"sv,
};

struct IllFormed {
  std::string_view bytes;
  std::string_view mended;
};

constexpr IllFormed kIllFormed[] = {
    {"a\x80z"sv, "a\uFFFDz"sv},
    {"\xC0\xAF"sv, "\uFFFD\uFFFD"sv},
    {"\xC1\xBF"sv, "\uFFFD\uFFFD"sv},
    {"\xE0\x9F\xBF"sv, "\uFFFD\uFFFD\uFFFD"sv},
    {"\xED\xA0\x80"sv, "\uFFFD\uFFFD\uFFFD"sv},
    {"\xF0\x8F\xBF\xBF"sv, "\uFFFD\uFFFD\uFFFD\uFFFD"sv},
    {"\xF4\x90\x80\x80"sv, "\uFFFD\uFFFD\uFFFD\uFFFD"sv},
    {"\xF5\x80"sv, "\uFFFD\uFFFD"sv},
    {"\xFF"sv, "\uFFFD"sv},
    {"cut \xE2\x82"sv, "cut \uFFFD"sv},
    {"cut \xF0\x9F\x98"sv, "cut \uFFFD"sv},
    {"\xE2\x82z"sv, "\uFFFDz"sv},
    {"\xF0\x9F\xE2\x82\xAC"sv, "\uFFFD€"sv},
};

TEST(Utf8Test, WellFormedTextIsValidAndKept) {
  for (const std::string_view text : kWellFormed) {
    EXPECT_TRUE(isValidUtf8(text)) << text;
    EXPECT_EQ(text, sanitizedUtf8(text));
  }
}

TEST(Utf8Test, IllFormedTextIsNotValidAndReplaced) {
  for (const IllFormed& text : kIllFormed) {
    EXPECT_FALSE(isValidUtf8(text.bytes)) << text.mended;
    EXPECT_EQ(text.mended, sanitizedUtf8(text.bytes));
  }
}

TEST(Utf8Test, AppendsCodePointsAndAReplacementForWhatIsNoCharacter) {
  std::string text = "<";

  for (const unsigned codePoint :
       {0x61u, 0xE9u, 0x20ACu, 0x1F600u, 0x10FFFFu, 0xD800u, 0xDFFFu, 0x110000u, 0xFFFFFFFFu}) {
    appendUtf8(text, static_cast<char32_t>(codePoint));
  }

  EXPECT_EQ("<a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF\uFFFD\uFFFD\uFFFD\uFFFD", text);
}

TEST(Utf8Test, FirstCharacterTellsCodePointAndLengthOrIsAReplacement) {
  const Utf8Character euro = firstCharacter("\u20ACx");
  const Utf8Character cut = firstCharacter("\xE2\x82z");

  EXPECT_EQ(U'\u20AC', euro.codePoint);
  EXPECT_EQ(3u, euro.length);
  EXPECT_TRUE(euro.wellFormed);
  EXPECT_EQ(U'\uFFFD', cut.codePoint);
  EXPECT_EQ(2u, cut.length);
  EXPECT_FALSE(cut.wellFormed);
}

TEST(Utf8Test, OrderIsThatOfCodeUnits) {
  const std::string_view ascending[] = {"",           "A",      "B",      "a",
                                        "aa",         "\u00e9", "\uD7FF", "\U00010000",
                                        "\U0010FFFF", "\uE000", "\uF900", "\uFFFD"};
  for (std::size_t at = 1; at < std::size(ascending); ++at) {
    EXPECT_TRUE(lessByCodeUnit(ascending[at - 1], ascending[at])) << at;
    EXPECT_FALSE(lessByCodeUnit(ascending[at], ascending[at - 1])) << at;
  }
}

TEST(Utf8Test, NoTextIsLessThanItself) { EXPECT_FALSE(lessByCodeUnit("same", "same")); }

}  // namespace
}  // namespace zln
