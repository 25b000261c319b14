#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/log_sink.h"
#include "support/process_state.h"
#include "testkit/fake_environment.h"

namespace zln {

// A process in which a test acts at the very moment at which a line is logged, in the middle of
// what the library is doing. It stands in for the fixture's own as long as it lives.
class HookedProcess : private LogSink {
 public:
  explicit HookedProcess(FakeEnvironment& machine);
  HookedProcess(const HookedProcess&) = delete;
  HookedProcess& operator=(const HookedProcess&) = delete;
  ~HookedProcess() override;

  // Calls `act` once, right after the next line that begins like this.
  void when(std::string beginning, std::function<void()> act);

 private:
  void write(std::string_view line) override;

  FakeEnvironment& machine_;
  ProcessState& fixtureState_;
  Environment environment_;
  std::unique_ptr<ProcessState> state_;
  std::vector<std::pair<std::string, std::function<void()>>> hooks_;
};

}  // namespace zln
