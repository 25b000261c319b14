#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cfloat>

#include "tests/contract/contracts.h"

namespace zln {
namespace {

using testing::ElementsAre;

TEST_P(BackgroundTasksContract, AllOperationsAreOffered) {
  EXPECT_TRUE(tasks.offersMultitaskingSupport());
  EXPECT_TRUE(tasks.offersBegin());
  EXPECT_TRUE(tasks.offersEnd());
}

TEST_P(BackgroundTasksContract, IdentifiersCountUpFromOneAndAreNotGivenAgain) {
  EXPECT_EQ(1u, begin("first"));
  EXPECT_EQ(2u, begin("second"));

  tasks.end(2);

  EXPECT_EQ(3u, begin("third"));
}

TEST_P(BackgroundTasksContract, TheTimeIsUnlimitedWhileNothingLimitsIt) {
  EXPECT_EQ(DBL_MAX, tasks.remaining());
}

TEST_P(BackgroundTasksContract, OnlyARunningTaskIsToldOfItsExpiry) {
  begin("first");
  const auto second = begin("second");
  const auto ended = begin("ended");
  tasks.end(ended);

  for (const BackgroundTaskId id : {second, ended, BackgroundTaskId{7}, kBackgroundTaskInvalid}) {
    machine->expire(id);
  }

  EXPECT_THAT(told, ElementsAre("second"));
}

TEST_P(BackgroundTasksContract, ATaskMayEndItselfWhenItIsTold) {
  BackgroundTaskId id = kBackgroundTaskInvalid;
  int count = 0;
  id = tasks.begin([&] {
    ++count;
    tasks.end(id);
  });

  machine->expire(id);
  machine->expire(id);

  EXPECT_EQ(1, count);
}

TEST_P(BackgroundTasksContract, EndingWhatDoesNotRunIsIgnored) {
  const auto id = begin("first");
  tasks.end(kBackgroundTaskInvalid);
  tasks.end(7);

  machine->expire(id);

  EXPECT_THAT(told, ElementsAre("first"));
}

}  // namespace
}  // namespace zln
