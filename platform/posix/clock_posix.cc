#include "platform/posix/clock_posix.h"

#include <time.h>

#include <cerrno>

namespace zln {

Date ClockPosix::now() {
  timespec time{};
  clock_gettime(CLOCK_REALTIME, &time);
  return Date{static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9};
}

void ClockPosix::sleep(unsigned seconds) {
  timespec end{};
  clock_gettime(CLOCK_MONOTONIC, &end);
  end.tv_sec += static_cast<time_t>(seconds);
  // A moment instead of a length: signals that interrupt the sleep do not prolong it.
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr) == EINTR) {
  }
}

}  // namespace zln
