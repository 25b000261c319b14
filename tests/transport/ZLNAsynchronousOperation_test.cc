#include "transport/ZLNAsynchronousOperation.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "testkit/fake_dispatch.h"

namespace zln {
namespace {

using Lines = std::vector<std::string>;

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

// Notes every announcement with the flags that are set at that moment.
class RecordingObserver : public OperationObserver {
 public:
  void valueChanged(Operation& operation, ValueChange change, std::string_view key) override {
    std::string line = change == ValueChange::will ? "will " : "did ";
    line += key;
    if (operation.isExecuting()) line += ", executing";
    if (operation.isFinished()) line += ", finished";
    lines.push_back(line);
    if (onChange) onChange();
  }

  Lines lines;
  std::function<void()> onChange;
};

class ZLNAsynchronousOperationTest : public testing::Test {
 protected:
  ZLNAsynchronousOperationTest() { operation->addObserver(observer); }

  Lines newLines() { return std::exchange(observer->lines, {}); }

  void expectState(bool executing, bool finished) const {
    EXPECT_EQ(executing, operation->isExecuting());
    EXPECT_EQ(finished, operation->isFinished());
  }

  const std::shared_ptr<ScriptedOperation> operation = std::make_shared<ScriptedOperation>();
  const std::shared_ptr<RecordingObserver> observer = std::make_shared<RecordingObserver>();
};

TEST_F(ZLNAsynchronousOperationTest, IsAsynchronousAndNeitherExecutingNorFinishedAtFirst) {
  EXPECT_TRUE(operation->isAsynchronous());
  expectState(false, false);
  EXPECT_FALSE(operation->isCancelled());
  EXPECT_EQ(0, operation->queuePriority());
}

TEST_F(ZLNAsynchronousOperationTest, IsExecutingBeforeMainRunsAndAfterItHasReturned) {
  bool wasExecuting = false;
  operation->onMain = [&] { wasExecuting = operation->isExecuting(); };

  operation->start();

  EXPECT_TRUE(wasExecuting);
  EXPECT_EQ(1, operation->mainCount);
  expectState(true, false);
  EXPECT_EQ((Lines{"will isExecuting", "did isExecuting, executing"}), newLines());
}

TEST_F(ZLNAsynchronousOperationTest, CompletionEndsExecutingAndThenFinishes) {
  operation->start();
  newLines();

  operation->completeOperation();

  expectState(false, true);
  EXPECT_EQ((Lines{"will isExecuting, executing", "did isExecuting", "will isFinished",
                   "did isFinished, finished"}),
            newLines());
}

TEST_F(ZLNAsynchronousOperationTest, CompletionInsideMainFinishesItAtOnce) {
  operation->onMain = [&] { operation->completeOperation(); };

  operation->start();

  expectState(false, true);
}

TEST_F(ZLNAsynchronousOperationTest, ACancelledOneFinishesWithoutExecuting) {
  operation->cancel();

  operation->start();

  EXPECT_EQ(0, operation->mainCount);
  expectState(false, true);
  EXPECT_EQ((Lines{"will isFinished", "did isFinished, finished"}), newLines());
}

TEST_F(ZLNAsynchronousOperationTest, CancellingARunningOneDoesNotEndIt) {
  operation->start();

  operation->cancel();

  expectState(true, false);
}

TEST_F(ZLNAsynchronousOperationTest, SettingExecutingToWhatItIsIsSilent) {
  operation->setExecuting(false);

  EXPECT_EQ(Lines{}, newLines());

  operation->setExecuting(true);
  operation->setExecuting(true);

  EXPECT_EQ((Lines{"will isExecuting", "did isExecuting, executing"}), newLines());
}

TEST_F(ZLNAsynchronousOperationTest, SettingFinishedToWhatItIsIsAnnounced) {
  operation->setFinished(false);

  EXPECT_EQ((Lines{"will isFinished", "did isFinished"}), newLines());

  operation->setFinished(true);
  operation->setFinished(true);

  EXPECT_EQ((Lines{"will isFinished", "did isFinished, finished", "will isFinished, finished",
                   "did isFinished, finished"}),
            newLines());
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
