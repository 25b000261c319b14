#include "platform/date.h"

#include <gtest/gtest.h>

#include <limits>
#include <utility>

namespace zln {
namespace {

constexpr char kUnavailable[] = "<description unavailable>";

TEST(DateTest, IsDescribedInUtcWithWholeSecondsCutTowardZero) {
  const std::pair<double, const char*> rows[] = {
      {1700000000, "2023-11-14 22:13:20 +0000"},
      {1700000000.999, "2023-11-14 22:13:20 +0000"},
      {1709208000, "2024-02-29 12:00:00 +0000"},
      {0, "1970-01-01 00:00:00 +0000"},
      {-0.9, "1970-01-01 00:00:00 +0000"},
      {-1.9, "1969-12-31 23:59:59 +0000"},
      // The first and the last moment that has a description.
      {-62135596800, "0001-01-01 00:00:00 +0000"},
      {64123747199, "4001-12-31 23:59:59 +0000"},
      {-62135596801, kUnavailable},
      {64123747200, kUnavailable},
      {std::numeric_limits<double>::quiet_NaN(), kUnavailable},
      {std::numeric_limits<double>::infinity(), kUnavailable},
      {-1e300, kUnavailable},
      {1e300, kUnavailable},
  };
  for (const auto& [seconds, text] : rows) EXPECT_EQ(text, Date{seconds}.description()) << seconds;
}

TEST(DateTest, DifferenceIsInSeconds) { EXPECT_EQ(-2.5, Date{10} - Date{12.5}); }

TEST(DateTest, FromAStoredNumberIsAMultipleOf128Seconds) {
  EXPECT_EQ(Date{1700000128}, Date::fromStored(Number::float64(1700000100)));
}

}  // namespace
}  // namespace zln
