#include "platform/calendar.h"

#include <chrono>

#include "platform/number_text.h"

namespace zln {
namespace {

constexpr std::int64_t kSecondsPerDay = 86400;

std::int64_t daysBefore(std::int64_t seconds) {
  const std::int64_t days = seconds / kSecondsPerDay;
  return seconds % kSecondsPerDay < 0 ? days - 1 : days;
}

bool isWritable(const CalendarTime& time) {
  return time.year >= 1 && time.year <= 9999 && time.month >= 1 && time.month <= 12 &&
         time.day >= 1 && time.day <= 31;
}

bool isTimeOfDay(int hour, int minute, int second) {
  return hour >= 0 && hour < 24 && minute >= 0 && minute < 60 && second >= 0 && second < 60;
}

}  // namespace

CalendarTime CalendarTime::fromSeconds(std::int64_t secondsSince1970) {
  const std::int64_t days = daysBefore(secondsSince1970);
  const auto ofDay = static_cast<int>(secondsSince1970 - days * kSecondsPerDay);
  const std::chrono::year_month_day date{
      std::chrono::sys_days{std::chrono::days{static_cast<int>(days)}}};
  return CalendarTime{static_cast<int>(date.year()),
                      static_cast<int>(static_cast<unsigned>(date.month())),
                      static_cast<int>(static_cast<unsigned>(date.day())),
                      ofDay / 3600,
                      ofDay / 60 % 60,
                      ofDay % 60};
}

std::optional<std::int64_t> CalendarTime::secondsSince1970() const {
  if (!isWritable(*this) || !isTimeOfDay(hour, minute, second)) return std::nullopt;
  const std::chrono::year_month_day date{std::chrono::year{year},
                                         std::chrono::month{static_cast<unsigned>(month)},
                                         std::chrono::day{static_cast<unsigned>(day)}};
  if (!date.ok()) return std::nullopt;
  const std::int64_t days = std::chrono::sys_days{date}.time_since_epoch().count();
  const int secondOfDay = hour * 3600 + minute * 60 + second;
  return days * kSecondsPerDay + secondOfDay;
}

void CalendarTime::appendTo(std::string& out, char separator) const {
  appendPaddedNumber(out, year, 4);
  out += '-';
  appendPaddedNumber(out, month, 2);
  out += '-';
  appendPaddedNumber(out, day, 2);
  out += separator;
  appendPaddedNumber(out, hour, 2);
  out += ':';
  appendPaddedNumber(out, minute, 2);
  out += ':';
  appendPaddedNumber(out, second, 2);
}

}  // namespace zln
