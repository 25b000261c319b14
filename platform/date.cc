#include "platform/date.h"

#include <cmath>

#include "platform/calendar.h"

namespace zln {

std::string Date::description() const {
  const double seconds = std::trunc(secondsSince1970);
  // Not a number compares false and ends here too.
  const bool isAvailable = seconds >= static_cast<double>(kStartOfYear1) &&
                           seconds < static_cast<double>(kStartOfYear4002);
  if (!isAvailable) return "<description unavailable>";

  std::string text;
  CalendarTime::fromSeconds(static_cast<std::int64_t>(seconds)).appendTo(text, ' ');
  text += " +0000";
  return text;
}

}  // namespace zln
