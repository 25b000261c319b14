#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "support/process_state.h"
#include "testkit/fake_environment.h"

namespace zln {

// A fresh process on a fresh installation for each test, on a machine of fakes.
class HostTest : public testing::Test {
 protected:
  HostTest();
  ~HostTest() override;
  // Fails the test if something planned in the journal never happened.
  void TearDown() override;

  // Ends the process and begins the next one on the same installation.
  void restart();

  // The process-wide threshold of log lines.
  void setLevel(std::uint64_t level);
  FakeLog& log() { return env.log; }

  // The lines logged since the last call, without the prefix that each must have, and with "0x*"
  // for the address at the end of an object's text: "<ZLNReportAdAttempt: 0x*>".
  std::vector<std::string> newLines();
  // Compares newLines() to the letter.
  void expectLines(std::initializer_list<std::string_view> expected, int line = __builtin_LINE());

  // Compares the calls that the journal has recorded, with log lines as newLines() has them.
  void expectCalls(std::initializer_list<std::string_view> expected, int line = __builtin_LINE());
  // Calls `act` once, as soon as the next line that begins like this has been written.
  void whenLogged(const std::string& beginning, std::function<void()> act);

  FakeEnvironment env;

 private:
  void beginProcess();
  void endProcess();

  ProcessState* state_ = nullptr;
};

}  // namespace zln
