#include "testkit/fake_clock.h"

#include "tests/contract/clock_contract.h"

namespace zln {
namespace {

class FakeClockMachine {
 public:
  Clock& clock() { return clock_; }
  // Nobody sets this clock, so it shows the time that has passed.
  double elapsed() { return clock_.now().secondsSince1970; }

 private:
  FakeClock clock_;
};

INSTANTIATE_TYPED_TEST_SUITE_P(Fake, ClockContract, FakeClockMachine);

}  // namespace
}  // namespace zln
