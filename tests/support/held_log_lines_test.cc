#include "support/held_log_lines.h"

#include <gtest/gtest.h>

#include <thread>

#include "support/log.h"
#include "tests/support/host_fixture.h"

namespace zln {
namespace {

class HeldLogLinesTest : public HostTest {
 protected:
  HeldLogLinesTest() { setLevel(5); }
};

TEST_F(HeldLogLinesTest, LinesWaitWhileOneStandsAndComeInTheirOrderWhenItGoes) {
  logInfo("before");
  {
    const HeldLogLines held;
    logInfo("first");
    logError("second");
    logSuperVerbose("third");

    expectLines({"before"});
  }

  expectLines({"first", "second", "third"});

  logInfo("after");

  expectLines({"after"});
}

TEST_F(HeldLogLinesTest, TheThresholdOfTheMomentOfLoggingCounts) {
  {
    const HeldLogLines held;
    logInfo("line");
    setLevel(1);
    logInfo("too low");
    setLevel(5);
    logInfo("another line");
    setLevel(0);
  }

  expectLines({"line", "another line"});
}

TEST_F(HeldLogLinesTest, ThreadsHoldTheirOwnLines) {
  {
    const HeldLogLines held;
    logInfo("one");
    std::thread([] {
      logInfo("other");
      const HeldLogLines heldThere;
      logInfo("other, held");
    }).join();

    expectLines({"other", "other, held"});
  }

  expectLines({"one"});
}

TEST_F(HeldLogLinesTest, TakesNothingWhileNoneStands) {
  EXPECT_FALSE(HeldLogLines::take("line"));

  expectLines({});
}

// The sink.

TEST_F(HeldLogLinesTest, TheSinkMayLogAndHoldLinesItself) {
  whenLogged("first", [] { logInfo("from the sink"); });
  whenLogged("second", [] {
    const HeldLogLines heldBySink;
    logInfo("one, held");
    logInfo("another, held");
  });
  {
    const HeldLogLines held;
    logInfo("first");
    logInfo("second");
    logInfo("third");
  }

  expectLines({"first", "from the sink", "second", "one, held", "another, held", "third"});
}

TEST_F(HeldLogLinesTest, TheSinkRunsOnceAllIsDone) {
  bool isDone = false;
  bool wasDone = false;
  whenLogged("line", [&] { wasDone = isDone; });
  {
    const HeldLogLines held;
    logInfo("line");
    isDone = true;
  }

  EXPECT_TRUE(wasDone);
}

}  // namespace
}  // namespace zln
