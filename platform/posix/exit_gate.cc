#include "platform/posix/exit_gate.h"

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>

#include "platform/forked_process.h"

namespace zln {

namespace {

constexpr std::chrono::milliseconds kLongestExit{500};

}  // namespace

struct ExitGate::State {
  std::mutex mutex;
  std::condition_variable changed;
  int visits = 0;
  bool isClosed = false;
};

void ExitGate::closeAtExit() { std::atexit(&ExitGate::close); }

ExitGate::State& ExitGate::state() {
  static State& state = *new State;
  return state;
}

void ExitGate::enter() {
  State& gate = state();
  std::unique_lock lock(gate.mutex);
  while (gate.isClosed) gate.changed.wait(lock);
  ++gate.visits;
}

void ExitGate::leave() {
  State& gate = state();
  std::lock_guard lock(gate.mutex);
  --gate.visits;
  if (gate.isClosed) gate.changed.notify_all();
}

void ExitGate::close() {
  // The visitors are threads of the parent.
  if (isForkedProcess()) return;
  State& gate = state();
  std::unique_lock lock(gate.mutex);
  gate.isClosed = true;
  gate.changed.wait_for(lock, kLongestExit, [&gate] { return gate.visits == 0; });
}

}  // namespace zln
