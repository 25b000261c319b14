#include "platform/number.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <limits>
#include <utility>

#include "tests/platform/reals.h"

namespace zln {
namespace {

TEST(NumberTest, DiffersFromTheSameValueOfAnotherKind) {
  EXPECT_EQ(Number::int64(1), Number::int64(1));
  EXPECT_NE(Number::int64(1), Number::int32(1));
  EXPECT_NE(Number::int64(1), Number::boolean(true));
  EXPECT_NE(Number::float32(0.5f), Number::float64(0.5));
}

TEST(NumberTest, IsTrueWhenItIsNotZero) {
  for (const Number& number : {Number::boolean(true), Number::int64(-1), Number::int64(4294967296),
                               Number::float64(0.5), Number::float64(kNan)}) {
    EXPECT_TRUE(number.boolValue()) << number.description();
  }
  for (const Number& number : {Number::boolean(false), Number::int32(0), Number::float64(-0.0)}) {
    EXPECT_FALSE(number.boolValue()) << number.description();
  }
}

TEST(NumberTest, IntValueCutsARealTowardZeroAndStopsAtTheEnds) {
  const std::pair<double, std::int32_t> rows[] = {{2.9, 2},
                                                  {-2.9, -2},
                                                  {2147483647.5, 2147483647},
                                                  {1e300, 2147483647},
                                                  {kNan, 0},
                                                  {2147483648.0, 2147483647},
                                                  {-2147483648.9, INT32_MIN},
                                                  {-2147483649.0, INT32_MIN},
                                                  {-kInfinity, INT32_MIN}};
  for (const auto& [real, integer] : rows) {
    EXPECT_EQ(integer, Number::float64(real).intValue()) << real;
  }
  EXPECT_EQ(2147483647, Number::float32(3e9f).intValue());
  EXPECT_EQ(0, Number::float32(std::numeric_limits<float>::quiet_NaN()).intValue());
}

TEST(NumberTest, IntValueOfALongIntegerIsItsLow32Bits) {
  EXPECT_EQ(0, Number::int64(4294967296).intValue());
  EXPECT_EQ(INT32_MIN, Number::int64(2147483648).intValue());
  EXPECT_EQ(-1, Number::int64(INT64_MAX).intValue());
  EXPECT_EQ(1, Number::boolean(true).intValue());
  EXPECT_EQ(0, Number::boolean(false).intValue());
}

TEST(NumberTest, LongValueOfARealIsCutAndStopsAtTheEnds) {
  EXPECT_EQ(-5, Number::int32(-5).longValue());
  EXPECT_EQ(INT64_MIN, Number::int64(INT64_MIN).longValue());
  EXPECT_EQ(-3000000000, Number::float64(-3000000000.7).longValue());
  EXPECT_EQ(INT64_MAX, Number::float64(9223372036854775808.0).longValue());
  EXPECT_EQ(INT64_MIN, Number::float64(-9223372036854775808.0).longValue());
  EXPECT_EQ(INT64_MIN, Number::float64(-1e19).longValue());
  EXPECT_EQ(0, Number::float64(kNan).longValue());
}

TEST(NumberTest, FloatValueIsTheNearestFloatAndDoubleValueWidensIt) {
  EXPECT_EQ(1700000128.0f, Number::int64(1700000100).floatValue());
  EXPECT_EQ(0.1f, Number::float64(0.1).floatValue());
  EXPECT_EQ(1.0f, Number::boolean(true).floatValue());
  EXPECT_EQ(std::numeric_limits<float>::infinity(), Number::float64(1e300).floatValue());
  EXPECT_TRUE(std::isnan(Number::float64(kNan).floatValue()));
  EXPECT_EQ(0.10000000149011612, Number::float32(0.1f).doubleValue());
  EXPECT_EQ(1.0, Number::boolean(true).doubleValue());
}

TEST(NumberTest, DescribesItsValueInAsManyDigitsAsItsKindHas) {
  const std::pair<Number, const char*> rows[] = {
      {Number::int64(INT64_MIN), "-9223372036854775808"},
      {Number::int32(30), "30"},
      {Number::boolean(true), "1"},
      {Number::boolean(false), "0"},
      {Number::float64(1700000050.123456), "1700000050.123456"},
      {Number::float64(0.1 + 0.2), "0.3"},
      {Number::float64(600), "600"},
      {Number::float64(1e20), "1e+20"},
      {Number::float64(DBL_MAX), "1.797693134862316e+308"},
      {Number::float32(0.1f), "0.1"},
      {Number::float32(30), "30"},
      {Number::float32(1700000000), "1.7e+09"},
      {Number::float64(kNan), "nan"},
      {Number::float64(-kNan), "nan"},
      {Number::float64(kInfinity), "inf"},
      {Number::float32(-std::numeric_limits<float>::infinity()), "-inf"},
  };
  for (const auto& [number, text] : rows) EXPECT_EQ(text, number.description());
}

}  // namespace
}  // namespace zln
