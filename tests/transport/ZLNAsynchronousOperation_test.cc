#include "transport/ZLNAsynchronousOperation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "testkit/fake_dispatch.h"

namespace zln {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Does what a test says, then returns with its work not over.
class ScriptedOperation : public ZLNAsynchronousOperation {
 public:
  void main() override {
    ++mainCount;
    if (onMain) onMain();
  }
  std::string description() const override { return "scripted operation"; }

  int mainCount = 0;
  std::function<void()> onMain;
};

// Leaves the work out.
class IdleOperation : public ZLNAsynchronousOperation {
 public:
  std::string description() const override { return "idle operation"; }
};

// Notes every announcement with the flags as they are at that moment.
class RecordingObserver : public OperationObserver {
 public:
  void valueChanged(Operation& operation, ValueChange change, std::string_view key) override {
    std::string line = change == ValueChange::will ? "will " : "did ";
    line += key;
    line += operation.isExecuting() ? ", executing" : ", not executing";
    line += operation.isFinished() ? ", finished" : ", not finished";
    lines.push_back(line);
    if (onChange) onChange();
  }

  std::vector<std::string> lines;
  std::function<void()> onChange;
};

class ZLNAsynchronousOperationTest : public testing::Test {
 protected:
  ZLNAsynchronousOperationTest() { operation->addObserver(observer); }

  const std::shared_ptr<ScriptedOperation> operation = std::make_shared<ScriptedOperation>();
  const std::shared_ptr<RecordingObserver> observer = std::make_shared<RecordingObserver>();
};

TEST_F(ZLNAsynchronousOperationTest, IsNeitherExecutingNorFinishedAtFirst) {
  EXPECT_FALSE(operation->isExecuting());
  EXPECT_FALSE(operation->isFinished());
  EXPECT_FALSE(operation->isCancelled());
  EXPECT_EQ(0, operation->queuePriority());
}

TEST_F(ZLNAsynchronousOperationTest, IsAsynchronous) { EXPECT_TRUE(operation->isAsynchronous()); }

TEST_F(ZLNAsynchronousOperationTest, GoesOnExecutingAfterMainHasReturned) {
  operation->start();

  EXPECT_EQ(1, operation->mainCount);
  EXPECT_TRUE(operation->isExecuting());
  EXPECT_FALSE(operation->isFinished());
}

TEST_F(ZLNAsynchronousOperationTest, IsExecutingBeforeMainRuns) {
  bool wasExecuting = false;
  operation->onMain = [&] { wasExecuting = operation->isExecuting(); };

  operation->start();

  EXPECT_TRUE(wasExecuting);
  EXPECT_THAT(observer->lines, ElementsAre("will isExecuting, not executing, not finished",
                                           "did isExecuting, executing, not finished"));
}

TEST_F(ZLNAsynchronousOperationTest, MainOfTheBaseDoesNothing) {
  IdleOperation idle;

  idle.start();

  EXPECT_TRUE(idle.isExecuting());
  EXPECT_FALSE(idle.isFinished());
}

TEST_F(ZLNAsynchronousOperationTest, CompletionEndsExecutingAndThenFinishes) {
  operation->start();
  observer->lines.clear();

  operation->completeOperation();

  EXPECT_FALSE(operation->isExecuting());
  EXPECT_TRUE(operation->isFinished());
  EXPECT_THAT(observer->lines, ElementsAre("will isExecuting, executing, not finished",
                                           "did isExecuting, not executing, not finished",
                                           "will isFinished, not executing, not finished",
                                           "did isFinished, not executing, finished"));
}

TEST_F(ZLNAsynchronousOperationTest, CompletionInsideMainFinishesItAtOnce) {
  operation->onMain = [&] { operation->completeOperation(); };

  operation->start();

  EXPECT_FALSE(operation->isExecuting());
  EXPECT_TRUE(operation->isFinished());
}

TEST_F(ZLNAsynchronousOperationTest, ACancelledOneFinishesWithoutExecuting) {
  operation->cancel();

  operation->start();

  EXPECT_EQ(0, operation->mainCount);
  EXPECT_FALSE(operation->isExecuting());
  EXPECT_TRUE(operation->isFinished());
  EXPECT_THAT(observer->lines, ElementsAre("will isFinished, not executing, not finished",
                                           "did isFinished, not executing, finished"));
}

TEST_F(ZLNAsynchronousOperationTest, CancellingARunningOneDoesNotEndIt) {
  operation->start();

  operation->cancel();

  EXPECT_TRUE(operation->isExecuting());
  EXPECT_FALSE(operation->isFinished());
}

TEST_F(ZLNAsynchronousOperationTest, SettingTheSameExecutingTwiceIsAnnouncedOnce) {
  operation->setExecuting(true);
  operation->setExecuting(true);

  EXPECT_THAT(observer->lines, ElementsAre("will isExecuting, not executing, not finished",
                                           "did isExecuting, executing, not finished"));
}

TEST_F(ZLNAsynchronousOperationTest, SettingExecutingToItsFirstValueIsSilent) {
  operation->setExecuting(false);

  EXPECT_THAT(observer->lines, IsEmpty());
}

TEST_F(ZLNAsynchronousOperationTest, SettingTheSameFinishedTwiceIsAnnouncedTwice) {
  operation->setFinished(true);
  operation->setFinished(true);

  EXPECT_THAT(observer->lines, ElementsAre("will isFinished, not executing, not finished",
                                           "did isFinished, not executing, finished",
                                           "will isFinished, not executing, finished",
                                           "did isFinished, not executing, finished"));
}

TEST_F(ZLNAsynchronousOperationTest, SettingFinishedToItsFirstValueIsAnnounced) {
  operation->setFinished(false);

  EXPECT_THAT(observer->lines, ElementsAre("will isFinished, not executing, not finished",
                                           "did isFinished, not executing, not finished"));
}

// An announcement inside the lock would keep the other thread waiting for ever.
TEST_F(ZLNAsynchronousOperationTest, AnotherThreadMayReadTheFlagsDuringAnAnnouncement) {
  int readings = 0;
  observer->onChange = [&] {
    std::thread([&] {
      operation->isExecuting();
      operation->isFinished();
      ++readings;
    }).join();
  };

  operation->start();
  operation->completeOperation();

  EXPECT_EQ(6, readings);
}

TEST_F(ZLNAsynchronousOperationTest, AQueueKeepsItUntilItCompletes) {
  FakeDispatch dispatch;
  OperationQueue queue(dispatch);
  queue.addOperation(operation);

  dispatch.runGlobal();

  EXPECT_EQ(1, operation->mainCount);
  EXPECT_EQ(1u, queue.operationCount());

  operation->completeOperation();

  EXPECT_EQ(0u, queue.operationCount());
}

TEST_F(ZLNAsynchronousOperationTest, AQueueRetiresACancelledOne) {
  FakeDispatch dispatch;
  OperationQueue queue(dispatch);
  queue.addOperation(operation);
  operation->cancel();

  dispatch.runGlobal();

  EXPECT_EQ(0, operation->mainCount);
  EXPECT_EQ(0u, queue.operationCount());
}

}  // namespace
}  // namespace zln
