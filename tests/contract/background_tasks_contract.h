#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cfloat>
#include <string>
#include <vector>

#include "platform/background_tasks.h"

namespace zln {

// What holds for every system. A machine has `BackgroundTasks& tasks()`, in which nothing limits
// the time yet, and `void expire(BackgroundTaskId)`, which returns when the task has been told.
template <typename Machine>
class BackgroundTasksContract : public testing::Test {
 protected:
  BackgroundTasks& tasks() { return machine_.tasks(); }
  void expire(BackgroundTaskId id) { machine_.expire(id); }

  // Begins a task that notes its expiry under this name.
  BackgroundTaskId begin(const std::string& name) {
    return tasks().begin([this, name] { told_.push_back(name); });
  }
  const std::vector<std::string>& told() const { return told_; }

 private:
  std::vector<std::string> told_;
  Machine machine_;
};

TYPED_TEST_SUITE_P(BackgroundTasksContract);

TYPED_TEST_P(BackgroundTasksContract, AllOperationsAreOffered) {
  EXPECT_TRUE(this->tasks().offersMultitaskingSupport());
  EXPECT_TRUE(this->tasks().offersBegin());
  EXPECT_TRUE(this->tasks().offersEnd());
}

TYPED_TEST_P(BackgroundTasksContract, IdentifiersCountUpFromOne) {
  EXPECT_EQ(1u, this->begin("first"));
  EXPECT_EQ(2u, this->begin("second"));
  EXPECT_EQ(3u, this->begin("third"));
}

TYPED_TEST_P(BackgroundTasksContract, AnEndedIdentifierIsNotGivenAgain) {
  this->tasks().end(this->begin("first"));

  EXPECT_EQ(2u, this->begin("second"));
}

TYPED_TEST_P(BackgroundTasksContract, TheTimeIsUnlimitedWhileNothingLimitsIt) {
  EXPECT_EQ(DBL_MAX, this->tasks().remaining());
}

TYPED_TEST_P(BackgroundTasksContract, ATaskThatRunsIsToldOfItsExpiry) {
  this->begin("first");
  const auto second = this->begin("second");

  this->expire(second);

  EXPECT_THAT(this->told(), testing::ElementsAre("second"));
}

TYPED_TEST_P(BackgroundTasksContract, AnEndedTaskIsNotTold) {
  const auto id = this->begin("ended");
  this->tasks().end(id);

  this->expire(id);

  EXPECT_THAT(this->told(), testing::IsEmpty());
}

TYPED_TEST_P(BackgroundTasksContract, AnUnknownTaskIsNotTold) {
  this->begin("first");

  this->expire(7);
  this->expire(kBackgroundTaskInvalid);

  EXPECT_THAT(this->told(), testing::IsEmpty());
}

TYPED_TEST_P(BackgroundTasksContract, ATaskMayEndItselfWhenItIsTold) {
  BackgroundTaskId id = kBackgroundTaskInvalid;
  int count = 0;
  id = this->tasks().begin([&] {
    ++count;
    this->tasks().end(id);
  });

  this->expire(id);
  this->expire(id);

  EXPECT_EQ(1, count);
}

TYPED_TEST_P(BackgroundTasksContract, EndingWhatDoesNotRunIsIgnored) {
  const auto id = this->begin("first");
  this->tasks().end(kBackgroundTaskInvalid);
  this->tasks().end(7);

  this->expire(id);

  EXPECT_THAT(this->told(), testing::ElementsAre("first"));
}

REGISTER_TYPED_TEST_SUITE_P(BackgroundTasksContract, AllOperationsAreOffered,
                            IdentifiersCountUpFromOne, AnEndedIdentifierIsNotGivenAgain,
                            TheTimeIsUnlimitedWhileNothingLimitsIt, ATaskThatRunsIsToldOfItsExpiry,
                            AnEndedTaskIsNotTold, AnUnknownTaskIsNotTold,
                            ATaskMayEndItselfWhenItIsTold, EndingWhatDoesNotRunIsIgnored);

}  // namespace zln
