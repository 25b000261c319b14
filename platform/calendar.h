#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace zln {

// The seconds from 1970 to the start of a year of the Gregorian calendar, in UTC.
inline constexpr std::int64_t kStartOfYear1 = -62135596800;
inline constexpr std::int64_t kStartOfYear4002 = 64123747200;
inline constexpr std::int64_t kStartOfYear10000 = 253402300800;

// A moment as people write it: Gregorian calendar, UTC. The C library's functions for this ask the
// locale and the environment, these do not.
struct CalendarTime {
  int year = 1970;
  int month = 1;
  int day = 1;
  int hour = 0;
  int minute = 0;
  int second = 0;

  // For the years 1 to 9999.
  static CalendarTime fromSeconds(std::int64_t secondsSince1970);

  // Absent when there is no such moment in the years 1 to 9999: the 30th of February, hour 24,
  // second 60.
  std::optional<std::int64_t> secondsSince1970() const;

  // "2023-11-14", `separator`, "22:13:20".
  void appendTo(std::string& out, char separator) const;

  friend bool operator==(const CalendarTime&, const CalendarTime&) = default;
};

}  // namespace zln
