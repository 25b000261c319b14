#include "platform/calendar.h"

#include <gtest/gtest.h>

namespace zln {
namespace {

TEST(CalendarTimeTest, FollowsTheGregorianCalendar) {
  EXPECT_EQ((CalendarTime{2023, 11, 14, 22, 13, 20}), CalendarTime::fromSeconds(1700000000));
  EXPECT_EQ((CalendarTime{1969, 12, 31, 23, 59, 59}), CalendarTime::fromSeconds(-1));
  EXPECT_EQ((CalendarTime{1, 1, 1, 0, 0, 0}), CalendarTime::fromSeconds(kStartOfYear1));
  EXPECT_EQ((CalendarTime{9999, 12, 31, 23, 59, 59}),
            CalendarTime::fromSeconds(kStartOfYear10000 - 1));
}

TEST(CalendarTimeTest, GivesTheSecondsBack) {
  EXPECT_EQ(1700000000, (CalendarTime{2023, 11, 14, 22, 13, 20}).secondsSince1970());
  EXPECT_EQ(-1, (CalendarTime{1969, 12, 31, 23, 59, 59}).secondsSince1970());
  EXPECT_EQ(1709208000, (CalendarTime{2024, 2, 29, 12, 0, 0}).secondsSince1970());
}

TEST(CalendarTimeTest, HasNoSecondsWhenThereIsNoSuchMoment) {
  const CalendarTime impossible[] = {
      {2023, 2, 29, 0, 0, 0},  {2023, 2, 30, 0, 0, 0}, {2023, 13, 1, 0, 0, 0},
      {2023, 0, 1, 0, 0, 0},   {2023, 1, 0, 0, 0, 0},  {2023, 1, 32, 0, 0, 0},
      {2023, 1, 1, 24, 0, 0},  {2023, 1, 1, 0, 60, 0}, {2023, 1, 1, 0, 0, 60},
      {2023, 1, 1, -1, 0, 0},  {0, 1, 1, 0, 0, 0},     {10000, 1, 1, 0, 0, 0},
      {2023, 257, 1, 0, 0, 0},
  };
  for (const CalendarTime& time : impossible) {
    EXPECT_FALSE(time.secondsSince1970()) << time.year << '-' << time.month << '-' << time.day;
  }
}

TEST(CalendarTimeTest, IsWrittenWithTheSeparatorAskedFor) {
  std::string text = "at ";

  CalendarTime{123, 4, 5, 6, 7, 8}.appendTo(text, 'T');

  EXPECT_EQ("at 0123-04-05T06:07:08", text);
}

}  // namespace
}  // namespace zln
