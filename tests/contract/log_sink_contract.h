#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "platform/log_sink.h"

namespace zln {

// What holds for every sink. A machine has `LogSink& sink()` and
// `std::vector<std::string> lines()`, the lines that came out at its other end.
template <typename Machine>
class LogSinkContract : public testing::Test {
 protected:
  LogSink& sink() { return machine_.sink(); }
  std::vector<std::string> lines() { return machine_.lines(); }

 private:
  Machine machine_;
};

TYPED_TEST_SUITE_P(LogSinkContract);

TYPED_TEST_P(LogSinkContract, LinesComeOutInTheOrderOfWriting) {
  this->sink().write("one");
  this->sink().write("two");

  EXPECT_THAT(this->lines(), testing::ElementsAre("one", "two"));
}

TYPED_TEST_P(LogSinkContract, ALineKeepsItsLineFeeds) {
  this->sink().write("{\n    a = 1;\n}");

  EXPECT_THAT(this->lines(), testing::ElementsAre("{\n    a = 1;\n}"));
}

TYPED_TEST_P(LogSinkContract, AnEmptyLineIsALine) {
  this->sink().write("");

  EXPECT_THAT(this->lines(), testing::ElementsAre(""));
}

TYPED_TEST_P(LogSinkContract, ALineIsNotReadBeyondItsEnd) {
  const std::string text = "line and what follows";

  this->sink().write(std::string_view(text).substr(0, 4));

  EXPECT_THAT(this->lines(), testing::ElementsAre("line"));
}

TYPED_TEST_P(LogSinkContract, LinesOfSeveralThreadsAllComeOut) {
  std::thread one([this] { this->sink().write("one"); });
  std::thread two([this] { this->sink().write("two"); });
  one.join();
  two.join();

  EXPECT_THAT(this->lines(), testing::UnorderedElementsAre("one", "two"));
}

REGISTER_TYPED_TEST_SUITE_P(LogSinkContract, LinesComeOutInTheOrderOfWriting,
                            ALineKeepsItsLineFeeds, AnEmptyLineIsALine, ALineIsNotReadBeyondItsEnd,
                            LinesOfSeveralThreadsAllComeOut);

}  // namespace zln
