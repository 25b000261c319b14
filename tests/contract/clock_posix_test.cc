#include "platform/posix/clock_posix.h"

#include <chrono>

#include "tests/contract/clock_contract.h"

namespace zln {
namespace {

class PosixClock {
 public:
  Clock& clock() { return clock_; }
  double elapsed() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
  }

 private:
  ClockPosix clock_;
};

INSTANTIATE_TYPED_TEST_SUITE_P(Posix, ClockContract, PosixClock);

}  // namespace
}  // namespace zln
