#pragma once

#include <string>

#include "platform/number.h"

namespace zln {

// A moment of the wall clock.
struct Date {
  double secondsSince1970 = 0;

  // The date that a stored number stands for. Stored dates are read as 32-bit floats, so a
  // present-day date comes back as a multiple of 128 seconds.
  static Date fromStored(const Number& seconds) {
    return Date{static_cast<double>(seconds.floatValue())};
  }

  // "2023-11-14 22:13:20 +0000": UTC, whole seconds, cut toward zero. Dates outside the years
  // 0001 to 4001 are "<description unavailable>".
  std::string description() const;

  friend bool operator==(const Date&, const Date&) = default;
};

// The seconds from `b` to `a`.
inline double operator-(Date a, Date b) { return a.secondsSince1970 - b.secondsSince1970; }

}  // namespace zln
