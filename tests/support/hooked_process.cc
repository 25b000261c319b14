#include "tests/support/hooked_process.h"

#include <algorithm>

#include "tests/support/process_state_for_tests.h"

namespace zln {

HookedProcess::HookedProcess(FakeEnvironment& machine)
    : machine_(machine),
      fixtureState_(processState()),
      environment_{machine.clock,
                   machine.dispatch,
                   machine.http,
                   machine.files,
                   machine.defaults,
                   machine.device,
                   machine.backgroundTasks,
                   machine.uuids,
                   *this,
                   machine.notificationCenter},
      state_(std::make_unique<ProcessState>(environment_)) {
  setProcessStateForTests(state_.get());
}

HookedProcess::~HookedProcess() {
  hooks_.clear();
  machine_.endProcess();
  // Still the current state while it goes: its objects log as they go.
  state_.reset();
  setProcessStateForTests(&fixtureState_);
}

void HookedProcess::when(std::string beginning, std::function<void()> act) {
  hooks_.emplace_back(std::move(beginning), std::move(act));
}

void HookedProcess::write(std::string_view line) {
  machine_.log.write(line);
  const auto hook = std::find_if(hooks_.begin(), hooks_.end(), [line](const auto& candidate) {
    return line.starts_with(candidate.first);
  });
  if (hook == hooks_.end()) return;
  // Taken off first: what it does may log such a line again.
  const std::function<void()> act = std::move(hook->second);
  hooks_.erase(hook);
  act();
}

}  // namespace zln
