#pragma once

#include <gtest/gtest.h>

#include "platform/clock.h"

namespace zln {

// What holds for every clock. A machine has `Clock& clock()` and `double elapsed()`, the seconds
// that have passed since some moment, however the wall clock is set.
template <typename Machine>
class ClockContract : public testing::Test {
 protected:
  Clock& clock() { return machine_.clock(); }
  double elapsed() { return machine_.elapsed(); }

 private:
  Machine machine_;
};

TYPED_TEST_SUITE_P(ClockContract);

TYPED_TEST_P(ClockContract, TheTimeIsNotBeforeThisCodeWasWritten) {
  EXPECT_GE(this->clock().now().secondsSince1970, 1700000000.0);
}

TYPED_TEST_P(ClockContract, SleepHoldsTheThreadForWholeSeconds) {
  const double before = this->elapsed();

  this->clock().sleep(1);

  EXPECT_GE(this->elapsed() - before, 1.0);
}

REGISTER_TYPED_TEST_SUITE_P(ClockContract, TheTimeIsNotBeforeThisCodeWasWritten,
                            SleepHoldsTheThreadForWholeSeconds);

}  // namespace zln
