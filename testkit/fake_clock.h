#pragma once

#include <functional>
#include <map>

#include "platform/clock.h"
#include "testkit/journal.h"

namespace zln {

// A clock that stands still until a test moves it. It keeps two times: the wall clock, which `set`
// may put anywhere, and the time that has passed, by which scheduled calls fall due.
class FakeClock : public Clock {
 public:
  explicit FakeClock(Journal* journal = nullptr) : journal_(journal) {}

  Date now() override;
  // Moves on by that many seconds and runs on the way what falls due.
  void sleep(unsigned seconds) override;

  // Moves on and runs what falls due, in order of time and then of scheduling. While a call runs
  // the clock shows the call's own time.
  void advance(double seconds);
  // Sets the wall clock, also back. Runs nothing and moves nothing that is scheduled.
  void set(double secondsSince1970);
  // Schedules a call for when that many seconds have passed from now, by moving the clock on.
  void at(double secondsFromNow, std::function<void()> call);

  // The seconds spent in all calls of sleep() together.
  double slept() const { return slept_; }

 private:
  Journal* const journal_;
  double wallBase_ = 1700000000;
  double passedAtBase_ = 0;
  double passed_ = 0;
  double slept_ = 0;
  std::multimap<double, std::function<void()>> scheduled_;
};

}  // namespace zln
