#include "testkit/fake_clock.h"

#include <algorithm>
#include <string>
#include <utility>

namespace zln {

Date FakeClock::now() { return Date{wallBase_ + (passed_ - passedAtBase_)}; }

void FakeClock::sleep(unsigned seconds) {
  note(journal_, "sleep ", std::to_string(seconds));
  slept_ += seconds;
  advance(seconds);
}

void FakeClock::advance(double seconds) {
  const double end = passed_ + seconds;
  while (!scheduled_.empty() && scheduled_.begin()->first <= end) {
    const auto due = scheduled_.extract(scheduled_.begin());
    passed_ = due.key();
    due.mapped()();
  }
  passed_ = std::max(passed_, end);
}

void FakeClock::set(double secondsSince1970) {
  wallBase_ = secondsSince1970;
  passedAtBase_ = passed_;
}

void FakeClock::at(double secondsFromNow, std::function<void()> call) {
  scheduled_.emplace(passed_ + secondsFromNow, std::move(call));
}

}  // namespace zln
