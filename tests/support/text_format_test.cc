#include "support/text_format.h"

#include <gtest/gtest.h>

#include <array>
#include <cfloat>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/decimal_comma_locale.h"

namespace zln {
namespace {

// Through the front of the variadic C functions.
std::optional<std::string> listed(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  std::optional<std::string> text = renderFormatList(format, arguments);
  va_end(arguments);
  return text;
}

// Through the typed front.
template <typename... Arguments>
std::string typed(std::string_view format, const Arguments&... arguments) {
  const std::array<FormatArgument, sizeof...(Arguments)> list{formatArgument(arguments)...};
  return renderFormat(format, list);
}

template <typename... Arguments>
std::string printed(const char* format, Arguments... arguments) {
  std::vector<char> buffer(8192);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
  const int length = std::snprintf(buffer.data(), buffer.size(), format, arguments...);
#pragma GCC diagnostic pop
  return {buffer.data(), static_cast<std::size_t>(length)};
}

struct Described {
  std::string description() const { return "described"; }
};

// Every combination of flags, widths and precisions with the given lengths and letters.
std::vector<std::string> conversions(std::string_view flags,
                                     const std::vector<std::string>& lengths,
                                     std::string_view letters) {
  std::vector<std::string> formats;
  for (unsigned chosen = 0; chosen < 1u << flags.size(); ++chosen) {
    std::string start = "<%";
    for (std::size_t at = 0; at < flags.size(); ++at) {
      if (chosen >> at & 1) start += flags[at];
    }
    for (const char* width : {"", "1", "12", "40"}) {
      for (const char* precision : {"", ".", ".0", ".1", ".5", ".15", ".30"}) {
        for (const std::string& length : lengths) {
          for (const char letter : letters) {
            formats.push_back(start + width + precision + length + letter + ">");
          }
        }
      }
    }
  }
  return formats;
}

TEST(TextFormatTest, KeepsTextWithoutConversionsAndIsAbsentWhenTheFormatIs) {
  EXPECT_EQ("plain \u20AC text", typed("plain \u20AC text"));
  EXPECT_EQ("", typed(""));
  EXPECT_EQ("100%", typed("100%%"));
  EXPECT_EQ(std::nullopt, listed(nullptr));
}

TEST(TextFormatTest, InsertsObjectsByTheirDescriptionAndStringsAsThemselves) {
  EXPECT_EQ("got described.", typed("got %@.", Described{}));
  EXPECT_EQ("got described.", typed("got %@.", std::make_shared<Described>()));
  EXPECT_EQ("got described.", typed("got %@.", std::optional<Described>(Described{})));
  EXPECT_EQ("a b c d", typed("%@ %@ %@ %s", "a", std::string("b"), std::string_view("c"), "d"));
  EXPECT_EQ("a \u20AC", listed("%@ %@", "a", "\u20AC"));
}

TEST(TextFormatTest, ShowsAbsentObjects) {
  EXPECT_EQ("(null) (null) (null)", typed("%@ %@ %@", std::nullopt, std::shared_ptr<Described>(),
                                          static_cast<const char*>(nullptr)));
  EXPECT_EQ("(null) (null) (null)", listed("%@ %s %ls", nullptr, nullptr, nullptr));
}

TEST(TextFormatTest, ConvertsTypedNumbersToTheKindAskedForIntegersToTheirLow32Bits) {
  EXPECT_EQ("-1 18446744073709551615 1 30.500000", typed("%i %lu %d %f", std::uint64_t{UINT64_MAX},
                                                         std::uint64_t{UINT64_MAX}, true, 30.5f));
  EXPECT_EQ("7 -1 0", typed("%i %d %d", std::uint64_t{7}, std::uint64_t{UINT64_MAX},
                            std::int64_t{4294967296}));
  EXPECT_EQ("5.000000 -2 3 0.1", typed("%f %d %@ %@", 5, -2.9, 3, 0.1));
}

TEST(TextFormatTest, WritesSixDecimalsOfTheLargestDouble) {
  const std::string text = typed("%f", DBL_MAX);

  EXPECT_EQ(316u, text.size());
  EXPECT_EQ("17976931348623157081", text.substr(0, 20));
  EXPECT_EQ(".000000", text.substr(309));
  EXPECT_EQ(text, listed("%f", DBL_MAX));
}

TEST(TextFormatTest, WritesWhatIsNotFinite) {
  constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
  constexpr double kInfinity = std::numeric_limits<double>::infinity();

  EXPECT_EQ("nan nan inf -inf +inf",
            typed("%f %f %f %f %+f", kNan, -kNan, kInfinity, -kInfinity, kInfinity));
  EXPECT_EQ("NAN INF   inf   nan", typed("%F %E %05f %05g", kNan, kInfinity, kInfinity, kNan));
}

TEST(TextFormatTest, ShowsAConversionWithoutASuitableArgumentAsItStands) {
  EXPECT_EQ("1 %d %5.2f %@", typed("%d %d %5.2f %@", 1));
  EXPECT_EQ("%*d", typed("%*d", 3));
  EXPECT_EQ("%3$d 1", typed("%3$d %1$d", 1));
  EXPECT_EQ("%d %f %c %p", typed("%d %f %c %p", "a", "b", "c", "d"));
}

TEST(TextFormatTest, ShowsUnknownConversionsAsTheyStand) {
  EXPECT_EQ("%y %5.3k 7", listed("%y %5.3k %d", 7));
  EXPECT_EQ("%*y 7", listed("%*y %d", 7));
  EXPECT_EQ("50% of %", typed("50% of %"));
  EXPECT_EQ("100% ", typed("100% "));
  EXPECT_EQ("%5", typed("%5", 1));
  EXPECT_EQ("%.", typed("%.", 1));
  EXPECT_EQ("%l", typed("%l", 1));
  EXPECT_EQ("%\u20AC", typed("%\u20AC", 1));
}

TEST(TextFormatTest, TakesArgumentsByPosition) {
  EXPECT_EQ("b a b", listed("%2$s %1$s %2$s", "a", "b"));
  EXPECT_EQ("x 2.50 1", listed("%3$@ %2$.2f %1$d", 1, 2.5, "x"));
  EXPECT_EQ("[  7][7.1250]", listed("[%1$*2$d][%3$.*4$f]", 7, 3, 7.125, 4));
  EXPECT_EQ("b a", typed("%2$@ %1$@", "a", "b"));
  // The others, which no conversion names, are taken for ints.
  EXPECT_EQ("3", listed("%3$d", 1, 2, 3));
}

TEST(TextFormatTest, ShowsPositionsThatCannotBeAsTheyStand) {
  EXPECT_EQ("%0$d %65$d %99999999999999999999$d", listed("%0$d %65$d %99999999999999999999$d"));
  EXPECT_EQ("%*0$d", listed("%*0$d"));
}

TEST(TextFormatTest, TakesWidthsAndPrecisionsFromArguments) {
  EXPECT_EQ("[   7][7   ][3.14][ab]",
            listed("[%*d][%*d][%.*f][%.*s]", 4, 7, -4, 7, 2, 3.14159, 2, "abc"));
  EXPECT_EQ("[3.141590][abc]", listed("[%.*f][%.*s]", -1, 3.14159, -1, "abc"));
  EXPECT_EQ("[   7]", typed("[%*d]", 4, 7));
}

TEST(TextFormatTest, AppliesWidthAndPrecisionToObjectsAsToStrings) {
  EXPECT_EQ("[  abc][abc  ][ab][    a]",
            listed("[%5@][%-5@][%.2@][%5.1@]", "abc", "abc", "abc", "abc"));
  EXPECT_EQ("[  abc][ab]", typed("[%5@][%.2@]", "abc", "abc"));
}

TEST(TextFormatTest, ReadsNoStringBeyondItsPrecision) {
  // Exactly as long as the precision and not terminated: the sanitizer watches the byte after it.
  const auto text = std::make_unique<char[]>(3);
  std::memcpy(text.get(), "abc", 3);

  EXPECT_EQ("[abc][]", listed("[%.3s][%.0s]", text.get(), text.get()));
}

TEST(TextFormatTest, DoesNotCutStringsShorterThanALargePrecision) {
  const std::string text(10000, 'x');

  EXPECT_EQ(text, listed("%.*s", 10000, text.c_str()));
  EXPECT_EQ(text, listed("%.2147483647s", text.c_str()));
}

TEST(TextFormatTest, BoundsWidthsAndNumberPrecisions) {
  EXPECT_EQ(4096u, listed("%2147483647d", 1)->size());
  EXPECT_EQ(4096u, listed("%*d", INT32_MIN, 1)->size());
  EXPECT_EQ(4096u, listed("%.999999999d", 1)->size());
  EXPECT_EQ(4098u, listed("%.99999999999999999999f", 1.0)->size());
  EXPECT_EQ(4096u, listed("%5000s", "x")->size());
}

TEST(TextFormatTest, ConvertsWideStrings) {
  EXPECT_EQ("a\u20AC\U0001F600 b", listed("%ls %S", L"a\u20AC\U0001F600", L"b"));
  EXPECT_EQ("[ a\u20AC][a][a\u20AC]",
            listed("[%5ls][%.3ls][%.4ls]", L"a\u20AC", L"a\u20AC", L"a\u20AC"));
}

TEST(TextFormatTest, ReadsNoWideStringBeyondItsPrecision) {
  const auto text = std::make_unique<wchar_t[]>(2);
  text[0] = L'a';
  text[1] = L'b';

  EXPECT_EQ("ab", listed("%.2ls", text.get()));
}

TEST(TextFormatTest, ConvertsCharacters) {
  EXPECT_EQ("[a][  a][a  ]", listed("[%c][%3c][%-3c]", 'a', 'a', 'a'));
  EXPECT_EQ("\u20AC \u20AC \uFFFD", listed("%lc %C %lc", 0x20AC, 0x20AC, 0xD800));
  EXPECT_EQ(std::string("[\0]", 3), listed("[%c]", 0));
}

TEST(TextFormatTest, ShowsPointersAndStoresNothing) {
  const auto* address = reinterpret_cast<const void*>(0x600000C04050);
  int target = 5;

  EXPECT_EQ("0x600000c04050 0x0 [   0x0]", listed("%p %p [%6p]", address, nullptr, nullptr));
  EXPECT_EQ("ab 7", listed("a%nb %d", &target, 7));
  EXPECT_EQ(5, target);
}

TEST(TextFormatTest, MendsWhatIsNotUtf8) {
  EXPECT_EQ("\uFFFD \uFFFDz", listed("%s \xE2\x82z", "\xFF"));
  EXPECT_EQ("\uFFFD", listed("%c", 0xFF));
  EXPECT_EQ("\uFFFD", typed("%.2@", "\u20AC"));
}

TEST(TextFormatTest, KnowsEveryLengthOfNumbersAndIgnoresTheApostrophe) {
  EXPECT_EQ("-1 255 -1 65535", listed("%hhd %hhu %hd %hu", 0x1FF, 0x1FF, 0x1FFFF, 0x1FFFF));
  EXPECT_EQ("-2 -3 -4 -5 -6",
            listed("%ld %lld %qd %jd %td", -2L, -3LL, -4LL, std::intmax_t{-5}, std::ptrdiff_t{-6}));
  EXPECT_EQ("18446744073709551615 -7", listed("%zu %Ld", std::size_t{SIZE_MAX}, -7LL));
  EXPECT_EQ("4294967295", listed("%u", -1));
  EXPECT_EQ("1.500000 2.500e+00 8", listed("%Lf %.3Le %d", 1.5L, 2.5L, 8));
  EXPECT_EQ("1234567", listed("%'d", 1234567));
}

TEST(TextFormatTest, WritesSignedIntegersAsPrintfDoes) {
  for (const std::string& format : conversions("-+ 0", {"", "hh", "h", "l", "ll", "j"}, "di")) {
    for (const std::int64_t value : {std::int64_t{0}, std::int64_t{1}, std::int64_t{-42},
                                     std::int64_t{1234567890123}, INT64_MIN, INT64_MAX}) {
      ASSERT_EQ(printed(format.c_str(), value), listed(format.c_str(), value)) << format;
    }
  }
}

TEST(TextFormatTest, WritesUnsignedIntegersAsPrintfDoes) {
  for (const std::string& format : conversions("-#0", {"", "hh", "h", "l", "ll", "z"}, "uoxX")) {
    for (const std::uint64_t value : {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{0xBEEF},
                                      std::uint64_t{1234567890123}, UINT64_MAX}) {
      ASSERT_EQ(printed(format.c_str(), value), listed(format.c_str(), value)) << format;
    }
  }
}

TEST(TextFormatTest, WritesRealsAsPrintfDoes) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  constexpr double kValues[] = {0.0,
                                -0.0,
                                1.0,
                                -1.5,
                                0.1,
                                0.5,
                                2.5,
                                9.995,
                                1e-5,
                                0.0001,
                                123456.0,
                                1234567.0,
                                1700000050.123456,
                                1e15,
                                1e16,
                                1e17,
                                1e22,
                                1e100,
                                5e-324,
                                2.2250738585072014e-308,
                                DBL_MAX,
                                DBL_EPSILON,
                                1.0 / 3,
                                kInfinity,
                                -kInfinity};
  for (const std::string& format : conversions("-+ #0", {"", "l"}, "fFeEgGaA")) {
    for (const double value : kValues) {
      ASSERT_EQ(printed(format.c_str(), value), listed(format.c_str(), value))
          << format << " of " << value;
    }
  }
}

// The C library loses the zeros here.
TEST(TextFormatTest, KeepsTrailingZerosOfARealThatIsRoundedUp) {
  EXPECT_EQ("1.00000e+06 1e+06", listed("%#g %g", 999999.5, 999999.5));
  EXPECT_EQ("10. 0.000100000", listed("%#.2g %#g", 9.96, 0.0001));
}

TEST(TextFormatTest, WritesStringsAsPrintfDoes) {
  for (const std::string& format : conversions("-", {""}, "s")) {
    for (const char* value : {"", "a", "a text of some length, forty bytes or so"}) {
      ASSERT_EQ(printed(format.c_str(), value), listed(format.c_str(), value)) << format;
    }
  }
}

TEST(TextFormatTest, FollowsNoLocale) {
  if (!DecimalCommaLocale::canBeMade()) GTEST_SKIP() << "localedef is not installed";
  const DecimalCommaLocale locale;
  ASSERT_TRUE(locale.isActive());

  EXPECT_EQ("1234567.500000 1.5e+00 0x1.8p+0 1234.5 1.5 1234567",
            listed("%f %.1e %a %g %.1Lf %'d", 1234567.5, 1.5, 1.5, 1234.5, 1.5L, 1234567));
  EXPECT_EQ("1.500000 0.1", typed("%f %@", 1.5, 0.1));
}

}  // namespace
}  // namespace zln
