#include "tests/support/host_fixture.h"

#include "tests/support/process_state_for_tests.h"

namespace zln {

HostTest::HostTest() { beginProcess(); }

HostTest::~HostTest() { endProcess(); }

void HostTest::restart() {
  endProcess();
  beginProcess();
}

void HostTest::setLevel(std::uint64_t level) { processState().currentLogLevel.set(level); }

void HostTest::beginProcess() {
  state_ = new ProcessState(env.environment());
  setProcessStateForTests(state_);
}

void HostTest::endProcess() {
  env.endProcess();
  // Still the current state while it is deleted: its objects log as they go.
  delete state_;
  setProcessStateForTests(nullptr);
  // What those objects posted as they went does not reach the next process.
  env.endProcess();
}

}  // namespace zln
