#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <string>
#include <vector>

#include "platform/dispatch.h"

namespace zln {

// What holds for every pair of queues. A machine has `Dispatch& dispatch()` and
// `void await(std::future<void>&)`, which lets tasks run until the future is ready.
template <typename Machine>
class DispatchContract : public testing::Test {
 protected:
  Dispatch& dispatch() { return machine_.dispatch(); }
  void await(std::future<void> done) { machine_.await(done); }

 private:
  Machine machine_;
};

TYPED_TEST_SUITE_P(DispatchContract);

TYPED_TEST_P(DispatchContract, AMainTaskRuns) {
  std::promise<void> ran;

  this->dispatch().mainAsync([&] { ran.set_value(); });

  this->await(ran.get_future());
}

TYPED_TEST_P(DispatchContract, MainTasksRunInTheOrderOfPosting) {
  std::vector<int> order;
  std::promise<void> ran;

  this->dispatch().mainAsync([&] { order.push_back(1); });
  this->dispatch().mainAsync([&] { order.push_back(2); });
  this->dispatch().mainAsync([&] {
    order.push_back(3);
    ran.set_value();
  });
  this->await(ran.get_future());

  EXPECT_THAT(order, testing::ElementsAre(1, 2, 3));
}

TYPED_TEST_P(DispatchContract, AMainTaskPostedOnTheMainThreadRunsLater) {
  std::vector<std::string> order;
  std::promise<void> ran;

  this->dispatch().mainSync([&] {
    this->dispatch().mainAsync([&] {
      order.push_back("inner");
      ran.set_value();
    });
    order.push_back("outer");
  });
  this->await(ran.get_future());

  EXPECT_THAT(order, testing::ElementsAre("outer", "inner"));
}

TYPED_TEST_P(DispatchContract, MainSyncReturnsWhenTheTaskHasRun) {
  bool ran = false;

  this->dispatch().mainSync([&] { ran = true; });

  EXPECT_TRUE(ran);
}

TYPED_TEST_P(DispatchContract, MainSyncComesAfterWhatWasPostedBefore) {
  std::vector<int> order;

  this->dispatch().mainAsync([&] { order.push_back(1); });
  this->dispatch().mainSync([&] { order.push_back(2); });

  EXPECT_THAT(order, testing::ElementsAre(1, 2));
}

TYPED_TEST_P(DispatchContract, MainSyncOnTheMainThreadRunsTheTaskAtOnce) {
  std::vector<std::string> order;

  this->dispatch().mainSync([&] {
    order.push_back("before");
    this->dispatch().mainSync([&] { order.push_back("inside"); });
    order.push_back("after");
  });

  EXPECT_THAT(order, testing::ElementsAre("before", "inside", "after"));
}

TYPED_TEST_P(DispatchContract, MainSyncReleasesTheTaskBeforeItReturns) {
  auto held = std::make_shared<int>(1);
  const std::weak_ptr<int> watched = held;

  this->dispatch().mainSync([held = std::move(held)] {});

  EXPECT_TRUE(watched.expired());
}

TYPED_TEST_P(DispatchContract, AGlobalTaskRuns) {
  std::promise<void> ran;

  this->dispatch().globalAsync([&] { ran.set_value(); });

  this->await(ran.get_future());
}

TYPED_TEST_P(DispatchContract, AGlobalTaskReachesTheMainThread) {
  std::promise<void> ran;
  bool ranOnMain = false;

  this->dispatch().globalAsync([&] {
    this->dispatch().mainSync([&] { ranOnMain = true; });
    ran.set_value();
  });
  this->await(ran.get_future());

  EXPECT_TRUE(ranOnMain);
}

REGISTER_TYPED_TEST_SUITE_P(DispatchContract, AMainTaskRuns, MainTasksRunInTheOrderOfPosting,
                            AMainTaskPostedOnTheMainThreadRunsLater,
                            MainSyncReturnsWhenTheTaskHasRun, MainSyncComesAfterWhatWasPostedBefore,
                            MainSyncOnTheMainThreadRunsTheTaskAtOnce,
                            MainSyncReleasesTheTaskBeforeItReturns, AGlobalTaskRuns,
                            AGlobalTaskReachesTheMainThread);

}  // namespace zln
