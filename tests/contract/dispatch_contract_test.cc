#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/contract/contracts.h"

namespace zln {
namespace {

using testing::ElementsAre;

TEST_P(DispatchContract, MainTasksRunInTheOrderOfPosting) {
  std::vector<int> order;
  std::promise<void> ran;

  dispatch.mainAsync([&] { order.push_back(1); });
  dispatch.mainAsync([&] { order.push_back(2); });
  dispatch.mainAsync([&] {
    order.push_back(3);
    ran.set_value();
  });
  machine->await(ran.get_future());

  EXPECT_THAT(order, ElementsAre(1, 2, 3));
}

TEST_P(DispatchContract, AMainTaskPostedOnTheMainThreadRunsLater) {
  std::vector<std::string> order;
  std::promise<void> ran;

  dispatch.mainSync([&] {
    dispatch.mainAsync([&] {
      order.push_back("inner");
      ran.set_value();
    });
    order.push_back("outer");
  });
  machine->await(ran.get_future());

  EXPECT_THAT(order, ElementsAre("outer", "inner"));
}

TEST_P(DispatchContract, MainSyncReturnsWhenTheTaskHasRunAfterWhatWasPostedBefore) {
  std::vector<int> order;

  dispatch.mainAsync([&] { order.push_back(1); });
  dispatch.mainSync([&] { order.push_back(2); });

  EXPECT_THAT(order, ElementsAre(1, 2));
}

TEST_P(DispatchContract, MainSyncOnTheMainThreadRunsTheTaskAtOnce) {
  std::vector<std::string> order;

  dispatch.mainSync([&] {
    order.push_back("before");
    dispatch.mainSync([&] { order.push_back("inside"); });
    order.push_back("after");
  });

  EXPECT_THAT(order, ElementsAre("before", "inside", "after"));
}

TEST_P(DispatchContract, MainSyncReleasesTheTaskBeforeItReturns) {
  auto held = std::make_shared<int>(1);
  const std::weak_ptr<int> watched = held;

  dispatch.mainSync([held = std::move(held)] {});

  EXPECT_TRUE(watched.expired());
}

TEST_P(DispatchContract, AGlobalTaskRunsAndReachesTheMainThread) {
  std::promise<void> ran;
  bool ranOnMain = false;

  dispatch.globalAsync([&] {
    dispatch.mainSync([&] { ranOnMain = true; });
    ran.set_value();
  });
  machine->await(ran.get_future());

  EXPECT_TRUE(ranOnMain);
}

}  // namespace
}  // namespace zln
