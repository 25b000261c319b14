#pragma once

#include <gtest/gtest.h>

#include <cstdint>

#include "support/process_state.h"
#include "testkit/fake_environment.h"

namespace zln {

// A fresh process on a fresh installation for each test, on a machine of fakes.
class HostTest : public testing::Test {
 protected:
  HostTest();
  ~HostTest() override;

  // Ends the process and begins the next one on the same installation.
  void restart();

  // The process-wide threshold of log lines.
  void setLevel(std::uint64_t level);
  FakeLog& log() { return env.log; }

  FakeEnvironment env;

 private:
  void beginProcess();
  void endProcess();

  ProcessState* state_ = nullptr;
};

}  // namespace zln
