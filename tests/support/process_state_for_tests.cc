#include "tests/support/process_state_for_tests.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace zln {
namespace {

std::atomic<ProcessState*> currentState{nullptr};

}  // namespace

void setProcessStateForTests(ProcessState* state) { currentState.store(state); }

ProcessState& processState() {
  ProcessState* state = currentState.load();
  if (state == nullptr) {
    std::fputs("The process state was asked for outside of a HostTest.\n", stderr);
    std::abort();
  }
  return *state;
}

}  // namespace zln
