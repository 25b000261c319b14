#include "platform/date.h"

#include <gtest/gtest.h>

#include <limits>

namespace zln {
namespace {

constexpr char kUnavailable[] = "<description unavailable>";

TEST(DateTest, IsDescribedInUtcWithWholeSeconds) {
  EXPECT_EQ("2023-11-14 22:13:20 +0000", Date{1700000000}.description());
  EXPECT_EQ("1970-01-01 00:00:00 +0000", Date{0}.description());
  EXPECT_EQ("2024-02-29 12:00:00 +0000", Date{1709208000}.description());
}

TEST(DateTest, IsCutTowardZeroInItsDescription) {
  EXPECT_EQ("2023-11-14 22:13:20 +0000", Date{1700000000.999}.description());
  EXPECT_EQ("1970-01-01 00:00:00 +0000", Date{-0.9}.description());
  EXPECT_EQ("1969-12-31 23:59:59 +0000", Date{-1.9}.description());
}

TEST(DateTest, ShowsTheYearWithFourDigits) {
  EXPECT_EQ("0001-01-01 00:00:00 +0000", Date{-62135596800}.description());
  EXPECT_EQ("4001-12-31 23:59:59 +0000", Date{64123747199}.description());
}

TEST(DateTest, HasNoDescriptionOutsideTheYears1To4001) {
  EXPECT_EQ(kUnavailable, Date{-62135596801}.description());
  EXPECT_EQ(kUnavailable, Date{64123747200}.description());
}

TEST(DateTest, HasNoDescriptionWhenItIsNoMoment) {
  EXPECT_EQ(kUnavailable, Date{std::numeric_limits<double>::quiet_NaN()}.description());
  EXPECT_EQ(kUnavailable, Date{std::numeric_limits<double>::infinity()}.description());
  EXPECT_EQ(kUnavailable, Date{-1e300}.description());
  EXPECT_EQ(kUnavailable, Date{1e300}.description());
}

TEST(DateTest, DifferenceIsInSeconds) { EXPECT_EQ(-2.5, Date{10} - Date{12.5}); }

TEST(DateTest, FromAStoredNumberIsAMultipleOf128Seconds) {
  EXPECT_EQ(Date{1700000128}, Date::fromStored(Number::float64(1700000100)));
}

}  // namespace
}  // namespace zln
