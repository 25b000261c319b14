#include "support/held_log_lines.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/log.h"
#include "tests/support/hooked_process.h"
#include "tests/support/host_fixture.h"

namespace zln {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class HeldLogLinesTest : public HostTest {
 protected:
  void SetUp() override { setLevel(5); }

  std::vector<std::string> lines() { return log().lines(); }
};

TEST_F(HeldLogLinesTest, LinesAreWrittenAtOnceWhileNothingHoldsThem) {
  logInfo("line");

  EXPECT_THAT(lines(), ElementsAre("ZLN Session: line"));
}

TEST_F(HeldLogLinesTest, LinesWaitWhileOneStands) {
  const HeldLogLines held;

  logInfo("line");

  EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(HeldLogLinesTest, LinesComeInTheirOrderWhenItGoes) {
  {
    const HeldLogLines held;
    logInfo("first");
    logError("second");
    logSuperVerbose("third");
  }

  EXPECT_THAT(lines(),
              ElementsAre("ZLN Session: first", "ZLN Session: second", "ZLN Session: third"));
}

TEST_F(HeldLogLinesTest, LinesThatComeAfterItAreWrittenAtOnce) {
  std::optional<HeldLogLines> held(std::in_place);
  logInfo("held");
  held.reset();

  logInfo("after");

  EXPECT_THAT(lines(), ElementsAre("ZLN Session: held", "ZLN Session: after"));
}

TEST_F(HeldLogLinesTest, LinesBelowTheThresholdAreNotHeld) {
  setLevel(1);
  {
    const HeldLogLines held;
    logInfo("too low");
    setLevel(5);
  }

  EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(HeldLogLinesTest, AHeldLineIsWrittenWhateverTheThresholdIsThen) {
  {
    const HeldLogLines held;
    logInfo("line");
    setLevel(0);
  }

  EXPECT_THAT(lines(), ElementsAre("ZLN Session: line"));
}

TEST_F(HeldLogLinesTest, LinesOfAnInnerOneWaitForTheOuterOne) {
  const HeldLogLines outer;
  {
    const HeldLogLines inner;
    logInfo("line");
  }

  EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(HeldLogLinesTest, NestedLinesKeepTheirOrder) {
  {
    const HeldLogLines outer;
    logInfo("before");
    {
      const HeldLogLines inner;
      logInfo("inside");
    }
    logInfo("behind");
  }

  EXPECT_THAT(lines(),
              ElementsAre("ZLN Session: before", "ZLN Session: inside", "ZLN Session: behind"));
}

TEST_F(HeldLogLinesTest, LinesOfOtherThreadsDoNotWait) {
  const HeldLogLines held;
  logInfo("held");

  std::thread([] { logInfo("other"); }).join();

  EXPECT_THAT(lines(), ElementsAre("ZLN Session: other"));
}

TEST_F(HeldLogLinesTest, ThreadsHoldTheirOwnLines) {
  {
    const HeldLogLines held;
    logInfo("one");
    std::thread([] {
      const HeldLogLines heldThere;
      logInfo("other");
    }).join();

    EXPECT_THAT(lines(), ElementsAre("ZLN Session: other"));
  }

  EXPECT_THAT(lines(), ElementsAre("ZLN Session: other", "ZLN Session: one"));
}

TEST_F(HeldLogLinesTest, TakesNothingWhileNoneStands) {
  EXPECT_FALSE(HeldLogLines::take("line"));

  EXPECT_THAT(lines(), IsEmpty());
}

// The sink.

TEST_F(HeldLogLinesTest, LinesThatTheSinkLogsMeanwhileAreWrittenToo) {
  HookedProcess process(env);
  setLevel(5);
  process.when("ZLN Session: first", [] { logInfo("from the sink"); });
  {
    const HeldLogLines held;
    logInfo("first");
    logInfo("second");
  }

  EXPECT_THAT(lines(), ElementsAre("ZLN Session: first", "ZLN Session: from the sink",
                                   "ZLN Session: second"));
}

TEST_F(HeldLogLinesTest, ASinkMayHoldLinesItself) {
  HookedProcess process(env);
  setLevel(5);
  process.when("ZLN Session: first", [] {
    const HeldLogLines heldBySink;
    logInfo("one from the sink");
    logInfo("another from the sink");
  });
  {
    const HeldLogLines held;
    logInfo("first");
    logInfo("second");
  }

  EXPECT_THAT(lines(), ElementsAre("ZLN Session: first", "ZLN Session: one from the sink",
                                   "ZLN Session: another from the sink", "ZLN Session: second"));
}

TEST_F(HeldLogLinesTest, TheSinkRunsOnceAllIsDone) {
  HookedProcess process(env);
  setLevel(5);
  bool isDone = false;
  bool wasDone = false;
  process.when("ZLN Session: line", [&] { wasDone = isDone; });
  {
    const HeldLogLines held;
    logInfo("line");
    isDone = true;
  }

  EXPECT_TRUE(wasDone);
}

}  // namespace
}  // namespace zln
