#include "platform/number.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <limits>

namespace zln {
namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

TEST(NumberTest, RemembersItsKind) {
  EXPECT_EQ(Number::Kind::boolean, Number::boolean(true).kind());
  EXPECT_EQ(Number::Kind::int32, Number::int32(1).kind());
  EXPECT_EQ(Number::Kind::int64, Number::int64(1).kind());
  EXPECT_EQ(Number::Kind::float32, Number::float32(1).kind());
  EXPECT_EQ(Number::Kind::float64, Number::float64(1).kind());
}

TEST(NumberTest, DiffersFromTheSameValueOfAnotherKind) {
  EXPECT_EQ(Number::int64(1), Number::int64(1));
  EXPECT_NE(Number::int64(1), Number::int32(1));
  EXPECT_NE(Number::int64(1), Number::boolean(true));
  EXPECT_NE(Number::float32(0.5f), Number::float64(0.5));
}

TEST(NumberTest, IsTrueWhenItIsNotZero) {
  EXPECT_TRUE(Number::boolean(true).boolValue());
  EXPECT_TRUE(Number::int64(-1).boolValue());
  EXPECT_TRUE(Number::int64(4294967296).boolValue());
  EXPECT_TRUE(Number::float64(0.5).boolValue());
  EXPECT_TRUE(Number::float64(kNan).boolValue());
}

TEST(NumberTest, IsFalseWhenItIsZero) {
  EXPECT_FALSE(Number::boolean(false).boolValue());
  EXPECT_FALSE(Number::int32(0).boolValue());
  EXPECT_FALSE(Number::float64(-0.0).boolValue());
}

TEST(NumberTest, IntValueOfARealIsCutTowardZero) {
  EXPECT_EQ(2, Number::float64(2.9).intValue());
  EXPECT_EQ(-2, Number::float64(-2.9).intValue());
  EXPECT_EQ(2147483647, Number::float64(2147483647.5).intValue());
  EXPECT_EQ(INT32_MIN, Number::float64(-2147483648.9).intValue());
}

TEST(NumberTest, IntValueOfARealStopsAtTheEnds) {
  EXPECT_EQ(2147483647, Number::float64(2147483648.0).intValue());
  EXPECT_EQ(INT32_MIN, Number::float64(-2147483649.0).intValue());
  EXPECT_EQ(2147483647, Number::float64(1e300).intValue());
  EXPECT_EQ(2147483647, Number::float32(3e9f).intValue());
  EXPECT_EQ(INT32_MIN, Number::float64(-kInfinity).intValue());
}

TEST(NumberTest, IntValueOfNotANumberIsZero) {
  EXPECT_EQ(0, Number::float64(kNan).intValue());
  EXPECT_EQ(0, Number::float32(std::numeric_limits<float>::quiet_NaN()).intValue());
}

TEST(NumberTest, IntValueOfALongIntegerIsItsLow32Bits) {
  EXPECT_EQ(0, Number::int64(4294967296).intValue());
  EXPECT_EQ(INT32_MIN, Number::int64(2147483648).intValue());
  EXPECT_EQ(-1, Number::int64(INT64_MAX).intValue());
}

TEST(NumberTest, IntValueOfABooleanIsOneOrZero) {
  EXPECT_EQ(1, Number::boolean(true).intValue());
  EXPECT_EQ(0, Number::boolean(false).intValue());
}

TEST(NumberTest, LongValueOfARealIsCutAndStopsAtTheEnds) {
  EXPECT_EQ(-3000000000, Number::float64(-3000000000.7).longValue());
  EXPECT_EQ(INT64_MAX, Number::float64(9223372036854775808.0).longValue());
  EXPECT_EQ(INT64_MIN, Number::float64(-9223372036854775808.0).longValue());
  EXPECT_EQ(INT64_MIN, Number::float64(-1e19).longValue());
  EXPECT_EQ(0, Number::float64(kNan).longValue());
}

TEST(NumberTest, LongValueOfAnIntegerIsTheInteger) {
  EXPECT_EQ(INT64_MIN, Number::int64(INT64_MIN).longValue());
  EXPECT_EQ(-5, Number::int32(-5).longValue());
}

TEST(NumberTest, FloatValueIsTheNearestFloat) {
  EXPECT_EQ(1700000128.0f, Number::int64(1700000100).floatValue());
  EXPECT_EQ(0.1f, Number::float64(0.1).floatValue());
  EXPECT_EQ(1.0f, Number::boolean(true).floatValue());
}

TEST(NumberTest, FloatValueBeyondTheRangeOfFloatIsInfinite) {
  EXPECT_EQ(std::numeric_limits<float>::infinity(), Number::float64(1e300).floatValue());
  EXPECT_TRUE(std::isnan(Number::float64(kNan).floatValue()));
}

TEST(NumberTest, DoubleValueWidensAFloat) {
  EXPECT_EQ(0.10000000149011612, Number::float32(0.1f).doubleValue());
  EXPECT_EQ(1.0, Number::boolean(true).doubleValue());
}

TEST(NumberTest, DescribesIntegersInDecimal) {
  EXPECT_EQ("-9223372036854775808", Number::int64(INT64_MIN).description());
  EXPECT_EQ("30", Number::int32(30).description());
}

TEST(NumberTest, DescribesBooleansAsOneAndZero) {
  EXPECT_EQ("1", Number::boolean(true).description());
  EXPECT_EQ("0", Number::boolean(false).description());
}

TEST(NumberTest, DescribesDoublesWithSixteenDigits) {
  EXPECT_EQ("1700000050.123456", Number::float64(1700000050.123456).description());
  EXPECT_EQ("0.3", Number::float64(0.1 + 0.2).description());
  EXPECT_EQ("600", Number::float64(600).description());
  EXPECT_EQ("1e+20", Number::float64(1e20).description());
  EXPECT_EQ("1.797693134862316e+308", Number::float64(DBL_MAX).description());
}

TEST(NumberTest, DescribesFloatsWithSevenDigits) {
  EXPECT_EQ("0.1", Number::float32(0.1f).description());
  EXPECT_EQ("30", Number::float32(30).description());
  EXPECT_EQ("1.7e+09", Number::float32(1700000000).description());
}

TEST(NumberTest, DescribesWhatIsNotFinite) {
  EXPECT_EQ("nan", Number::float64(kNan).description());
  EXPECT_EQ("nan", Number::float64(-kNan).description());
  EXPECT_EQ("inf", Number::float64(kInfinity).description());
  EXPECT_EQ("-inf", Number::float32(-std::numeric_limits<float>::infinity()).description());
}

}  // namespace
}  // namespace zln
