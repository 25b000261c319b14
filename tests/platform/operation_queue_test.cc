#include "platform/operation_queue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "testkit/fake_dispatch.h"

namespace zln {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// An operation that a test starts, finishes and lets announce as it likes.
class ScriptedOperation : public Operation {
 public:
  ScriptedOperation(std::string name, std::vector<std::string>& started)
      : name_(std::move(name)), started_(started) {}

  void start() override {
    executing_ = true;
    started_.push_back(name_);
    if (onStart) onStart();
  }

  bool isExecuting() const override { return executing_; }

  bool isFinished() const override {
    if (onAskedWhetherFinished) onAskedWhetherFinished();
    return finished_;
  }

  std::string description() const override { return name_; }

  void finish() {
    willChangeValueForKey(kIsFinishedKey);
    finished_ = true;
    executing_ = false;
    didChangeValueForKey(kIsFinishedKey);
  }

  void announceWill(std::string_view key) { willChangeValueForKey(key); }
  void announceDid(std::string_view key) { didChangeValueForKey(key); }
  void setFinishedSilently() { finished_ = true; }

  std::function<void()> onStart;
  std::function<void()> onAskedWhetherFinished;

 private:
  std::string name_;
  std::vector<std::string>& started_;
  bool executing_ = false;
  bool finished_ = false;
};

// Notes every announcement and calls back at each.
class RecordingObserver : public OperationObserver {
 public:
  void valueChanged(Operation& operation, ValueChange change, std::string_view key) override {
    const std::string when = change == ValueChange::will ? "will " : "did ";
    seen.push_back(operation.description() + " " + when + std::string(key));
    if (onChange) onChange(change);
  }

  std::vector<std::string> seen;
  std::function<void(ValueChange)> onChange;
};

class OperationQueueTest : public testing::Test {
 protected:
  std::shared_ptr<ScriptedOperation> make(const std::string& name) {
    return std::make_shared<ScriptedOperation>(name, started);
  }

  std::shared_ptr<ScriptedOperation> add(const std::string& name) {
    auto operation = make(name);
    queue->addOperation(operation);
    return operation;
  }

  std::shared_ptr<ScriptedOperation> addWithPriority(const std::string& name,
                                                     std::int64_t priority) {
    auto operation = make(name);
    operation->setQueuePriority(priority);
    queue->addOperation(operation);
    return operation;
  }

  std::vector<std::string> queuedNames() const {
    std::vector<std::string> names;
    for (const auto& operation : queue->operations()) names.push_back(operation->description());
    return names;
  }

  FakeDispatch dispatch;
  std::vector<std::string> started;
  std::optional<OperationQueue> queue{std::in_place, dispatch};
};

TEST_F(OperationQueueTest, StartsAnyNumberAtATimeOnThePoolByDefault) {
  add("a");
  add("b");
  add("c");
  EXPECT_THAT(started, IsEmpty());
  EXPECT_EQ(0u, dispatch.mainCount());

  dispatch.runGlobal();

  EXPECT_THAT(started, ElementsAre("a", "b", "c"));
}

TEST_F(OperationQueueTest, StartsNoMoreThanItsLimitUntilOneHasFinished) {
  queue->setMaxConcurrentOperationCount(2);
  const auto a = add("a");
  add("b");
  add("c");
  // The slots are taken before the operations start.
  EXPECT_EQ(2u, dispatch.globalCount());
  dispatch.runGlobal();
  EXPECT_THAT(started, ElementsAre("a", "b"));
  EXPECT_EQ(3u, queue->operationCount());

  a->finish();
  dispatch.runGlobal();

  EXPECT_THAT(started, ElementsAre("a", "b", "c"));
}

TEST_F(OperationQueueTest, ALimitOfZeroStartsNothingAndARaisedOneWhatWaitsAtOnce) {
  queue->setMaxConcurrentOperationCount(0);
  for (const char* name : {"a", "b", "c"}) add(name);
  EXPECT_EQ(0u, dispatch.globalCount());
  EXPECT_EQ(3u, queue->operationCount());

  queue->setMaxConcurrentOperationCount(1);
  dispatch.runGlobal();
  EXPECT_THAT(started, ElementsAre("a"));
  queue->setMaxConcurrentOperationCount(2);
  dispatch.runGlobal();

  EXPECT_THAT(started, ElementsAre("a", "b"));
}

TEST_F(OperationQueueTest, ALoweredLimitLetsRunningOperationsGoOn) {
  const auto a = add("a");
  add("b");
  dispatch.runGlobal();

  queue->setMaxConcurrentOperationCount(1);
  add("c");
  a->finish();

  EXPECT_EQ(0u, dispatch.globalCount());
  EXPECT_THAT(queuedNames(), ElementsAre("b", "c"));
}

TEST_F(OperationQueueTest, ASuspendedQueueStartsNothingUntilItIsResumed) {
  EXPECT_FALSE(queue->isSuspended());
  queue->setSuspended(true);
  EXPECT_TRUE(queue->isSuspended());

  add("a");
  add("b");
  EXPECT_EQ(0u, dispatch.globalCount());
  EXPECT_EQ(2u, queue->operationCount());
  queue->setSuspended(false);
  EXPECT_FALSE(queue->isSuspended());
  EXPECT_EQ(2u, dispatch.globalCount());
  queue->setSuspended(false);
  dispatch.runGlobal();

  EXPECT_THAT(started, ElementsAre("a", "b"));
}

TEST_F(OperationQueueTest, WhatIsOnItsWayStartsAndFinishesInASuspendedQueue) {
  const auto a = add("a");
  queue->setSuspended(true);
  dispatch.runGlobal();
  EXPECT_THAT(started, ElementsAre("a"));
  add("b");

  a->finish();

  EXPECT_THAT(queuedNames(), ElementsAre("b"));
  EXPECT_EQ(0u, dispatch.globalCount());
}

TEST_F(OperationQueueTest, ResumingKeepsToTheLimit) {
  queue->setMaxConcurrentOperationCount(1);
  queue->setSuspended(true);
  add("a");
  add("b");

  queue->setSuspended(false);
  dispatch.runGlobal();

  EXPECT_THAT(started, ElementsAre("a"));
}

TEST_F(OperationQueueTest, TheHighestPriorityStartsFirstAndWithinItTheFirstAdded) {
  queue->setSuspended(true);
  addWithPriority("very low", -8);
  addWithPriority("low", -4);
  addWithPriority("normal 1", 0);
  addWithPriority("high", 4);
  addWithPriority("very high 1", 8);
  addWithPriority("normal 2", 0);
  addWithPriority("very high 2", 8);

  queue->setSuspended(false);
  dispatch.runGlobal();

  EXPECT_THAT(started, ElementsAre("very high 1", "very high 2", "high", "normal 1", "normal 2",
                                   "low", "very low"));
}

TEST_F(OperationQueueTest, APriorityCountsAsItIsWhenASlotIsFree) {
  queue->setMaxConcurrentOperationCount(1);
  const auto running = add("running");
  add("a");
  const auto b = add("b");
  dispatch.runGlobal();

  b->setQueuePriority(4);
  running->finish();
  dispatch.runGlobal();

  EXPECT_THAT(started, ElementsAre("running", "b"));
}

TEST_F(OperationQueueTest, ListsOperationsInTheOrderOfAddingRunningOnesIncluded) {
  queue->setMaxConcurrentOperationCount(1);
  addWithPriority("a", -4);
  addWithPriority("b", 0);
  dispatch.runGlobal();

  addWithPriority("urgent", 8);

  EXPECT_EQ(0u, dispatch.globalCount());
  EXPECT_THAT(started, ElementsAre("a"));
  EXPECT_THAT(queuedNames(), ElementsAre("a", "b", "urgent"));
  EXPECT_EQ(3u, queue->operationCount());
}

TEST_F(OperationQueueTest, AnOperationLeavesInsideItsAnnouncement) {
  queue->setMaxConcurrentOperationCount(1);
  const auto a = add("a");
  add("b");
  dispatch.runGlobal();
  std::vector<std::size_t> counts;
  std::vector<std::size_t> dispatched;
  const auto observer = std::make_shared<RecordingObserver>();
  observer->onChange = [&](ValueChange) {
    counts.push_back(queue->operationCount());
    dispatched.push_back(dispatch.globalCount());
  };
  a->addObserver(observer);

  a->finish();

  EXPECT_THAT(observer->seen, ElementsAre("a will isFinished", "a did isFinished"));
  EXPECT_THAT(counts, ElementsAre(2u, 1u));
  EXPECT_THAT(dispatched, ElementsAre(0u, 1u));
}

TEST_F(OperationQueueTest, OnlyTheAnnouncementThatFinishedDidChangeRetires) {
  const auto a = add("a");
  dispatch.runGlobal();

  a->setFinishedSilently();
  a->announceWill("isFinished");
  a->announceDid("isExecuting");
  EXPECT_EQ(1u, queue->operationCount());
  a->announceDid("isFinished");

  EXPECT_EQ(0u, queue->operationCount());
}

TEST_F(OperationQueueTest, AnAnnouncementWhileNotFinishedRetiresNothing) {
  queue->setMaxConcurrentOperationCount(1);
  const auto a = add("a");
  add("b");
  dispatch.runGlobal();

  a->announceDid("isFinished");

  EXPECT_THAT(queuedNames(), ElementsAre("a", "b"));
  EXPECT_EQ(0u, dispatch.globalCount());
}

TEST_F(OperationQueueTest, ASecondAnnouncementIsHeardButFreesNoSecondSlot) {
  queue->setMaxConcurrentOperationCount(1);
  const auto a = add("a");
  const auto observer = std::make_shared<RecordingObserver>();
  a->addObserver(observer);
  add("b");
  add("c");
  dispatch.runGlobal();

  a->finish();
  a->finish();
  dispatch.runGlobal();

  EXPECT_THAT(observer->seen, ElementsAre("a will isFinished", "a did isFinished",
                                          "a will isFinished", "a did isFinished"));
  EXPECT_THAT(started, ElementsAre("a", "b"));
  EXPECT_THAT(queuedNames(), ElementsAre("b", "c"));
}

TEST_F(OperationQueueTest, CancellingRetiresNothingAndACancelledOperationIsStartedToo) {
  queue->setMaxConcurrentOperationCount(1);
  const auto a = make("a");
  a->cancel();
  queue->addOperation(a);
  const auto b = add("b");
  dispatch.runGlobal();

  b->cancel();

  EXPECT_TRUE(b->isCancelled());
  EXPECT_EQ(0u, dispatch.globalCount());
  EXPECT_THAT(queuedNames(), ElementsAre("a", "b"));
  a->finish();
  dispatch.runGlobal();
  EXPECT_THAT(started, ElementsAre("a", "b"));
}

TEST_F(OperationQueueTest, AnOperationMayFinishInsideItsStart) {
  queue->setMaxConcurrentOperationCount(1);
  const auto a = make("a");
  a->onStart = [&] { a->finish(); };
  queue->addOperation(a);
  add("b");

  dispatch.runGlobal();

  EXPECT_THAT(started, ElementsAre("a", "b"));
  EXPECT_THAT(queuedNames(), ElementsAre("b"));
  a->onStart = nullptr;
}

TEST_F(OperationQueueTest, AnOperationMayBeAddedFromInsideAnAnnouncement) {
  queue->setMaxConcurrentOperationCount(1);
  const auto a = add("a");
  const auto observer = std::make_shared<RecordingObserver>();
  observer->onChange = [&](ValueChange change) {
    if (change == ValueChange::did) add("b");
  };
  a->addObserver(observer);
  dispatch.runGlobal();

  a->finish();
  dispatch.runGlobal();

  EXPECT_THAT(started, ElementsAre("a", "b"));
  EXPECT_THAT(queuedNames(), ElementsAre("b"));
}

TEST_F(OperationQueueTest, AnOperationThatFinishesWhileItWaitsIsNeverStartedAndFreesNoSlot) {
  queue->setMaxConcurrentOperationCount(1);
  const auto a = add("a");
  const auto b = add("b");
  add("c");
  dispatch.runGlobal();

  b->finish();
  EXPECT_EQ(0u, dispatch.globalCount());
  EXPECT_THAT(queuedNames(), ElementsAre("a", "c"));
  a->finish();
  dispatch.runGlobal();

  EXPECT_THAT(started, ElementsAre("a", "c"));
}

TEST_F(OperationQueueTest, OwnsAnOperationUntilItRetires) {
  std::weak_ptr<ScriptedOperation> a = add("a");
  dispatch.runGlobal();

  ASSERT_FALSE(a.expired());

  a.lock()->finish();

  EXPECT_TRUE(a.expired());
}

TEST_F(OperationQueueTest, ARunningOperationMayFinishAfterItsQueueIsGone) {
  queue->setMaxConcurrentOperationCount(1);
  const auto a = add("a");
  const std::weak_ptr<ScriptedOperation> b = add("b");
  dispatch.runGlobal();

  queue.reset();
  a->finish();
  dispatch.runGlobal();

  EXPECT_TRUE(a->isFinished());
  EXPECT_TRUE(b.expired());
  EXPECT_THAT(started, ElementsAre("a"));
}

TEST_F(OperationQueueTest, AQueueThatGoesDuringAnAnnouncementStartsNothingMore) {
  queue->setMaxConcurrentOperationCount(1);
  const auto a = add("a");
  const std::weak_ptr<ScriptedOperation> b = add("b");
  dispatch.runGlobal();
  bool dropped = false;
  a->onAskedWhetherFinished = [&] {
    queue.reset();
    dropped = b.expired();
  };

  a->finish();
  dispatch.runGlobal();

  EXPECT_TRUE(dropped);
  EXPECT_THAT(started, ElementsAre("a"));
}

TEST_F(OperationQueueTest, WhatIsOnItsWayToThePoolStartsAfterItsQueueIsGone) {
  add("a");

  queue.reset();
  dispatch.runGlobal();

  EXPECT_THAT(started, ElementsAre("a"));
}

class OperationTest : public testing::Test {
 protected:
  std::vector<std::string> started;
  ScriptedOperation operation{"a", started};
};

TEST_F(OperationTest, AnObserverThatIsGoneHearsNothing) {
  auto gone = std::make_shared<RecordingObserver>();
  const auto there = std::make_shared<RecordingObserver>();
  operation.addObserver(gone);
  operation.addObserver(there);
  const std::weak_ptr<RecordingObserver> weak = gone;

  gone.reset();
  operation.announceDid("isExecuting");

  EXPECT_TRUE(weak.expired());
  EXPECT_THAT(there->seen, ElementsAre("a did isExecuting"));
}

TEST_F(OperationTest, AnObserverAddedInsideAnAnnouncementHearsTheNext) {
  const auto later = std::make_shared<RecordingObserver>();
  const auto first = std::make_shared<RecordingObserver>();
  first->onChange = [&](ValueChange change) {
    if (change == ValueChange::will) operation.addObserver(later);
  };
  operation.addObserver(first);

  operation.announceWill("isExecuting");
  operation.announceDid("isExecuting");

  EXPECT_THAT(later->seen, ElementsAre("a did isExecuting"));
}

}  // namespace
}  // namespace zln
