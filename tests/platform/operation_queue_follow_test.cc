#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/operation_queue.h"
#include "testkit/fake_dispatch.h"

namespace zln {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Mark = OperationQueue::Mark;
using Shown = OperationQueue::Shown;

// An operation that is over when the test says so.
class NamedOperation : public Operation {
 public:
  explicit NamedOperation(std::string name) : name_(std::move(name)) {}

  void start() override { executing_ = true; }
  bool isExecuting() const override { return executing_; }
  bool isFinished() const override { return finished_; }
  std::string description() const override { return name_; }

  void finish() {
    finished_ = true;
    executing_ = false;
    didChangeValueForKey(kIsFinishedKey);
  }

 private:
  const std::string name_;
  bool executing_ = false;
  bool finished_ = false;
};

class OperationQueueFollowTest : public testing::Test {
 protected:
  std::shared_ptr<NamedOperation> add(const std::string& name) {
    auto operation = std::make_shared<NamedOperation>(name);
    queue.addOperation(operation);
    return operation;
  }

  // Follows the queue; names and numbers are those of the operations shown.
  Shown follow(Mark& follower) {
    names.clear();
    numbers.clear();
    return queue.follow(follower, [&](std::uint64_t number, const auto& operation) {
      names.push_back(operation->description());
      numbers.push_back(number);
    });
  }

  FakeDispatch dispatch;
  OperationQueue queue{dispatch};
  Mark mark;
  std::vector<std::string> names;
  std::vector<std::uint64_t> numbers;
};

TEST_F(OperationQueueFollowTest, AnEmptyQueueShowsNothing) {
  EXPECT_EQ(Shown::additions, follow(mark));

  EXPECT_THAT(names, IsEmpty());
}

TEST_F(OperationQueueFollowTest, ShowsEverythingInTheOrderOfAddingAtFirst) {
  add("a");
  add("b");
  add("c");

  EXPECT_EQ(Shown::additions, follow(mark));

  EXPECT_THAT(names, ElementsAre("a", "b", "c"));
}

TEST_F(OperationQueueFollowTest, PrioritiesDoNotChangeTheOrder) {
  queue.setSuspended(true);
  add("a");
  add("b")->setQueuePriority(8);

  follow(mark);

  EXPECT_THAT(names, ElementsAre("a", "b"));
}

TEST_F(OperationQueueFollowTest, ShowsRunningOperationsToo) {
  add("a");
  dispatch.runGlobal();

  follow(mark);

  EXPECT_THAT(names, ElementsAre("a"));
}

TEST_F(OperationQueueFollowTest, ShowsNothingTwice) {
  add("a");
  follow(mark);

  EXPECT_EQ(Shown::additions, follow(mark));

  EXPECT_THAT(names, IsEmpty());
}

TEST_F(OperationQueueFollowTest, ShowsWhatWasAddedSince) {
  add("a");
  follow(mark);
  add("b");
  add("c");

  EXPECT_EQ(Shown::additions, follow(mark));

  EXPECT_THAT(names, ElementsAre("b", "c"));
}

TEST_F(OperationQueueFollowTest, ShowsAllThatAreThereOnceOneHasLeft) {
  add("a");
  const auto b = add("b");
  add("c");
  follow(mark);

  b->finish();
  add("d");

  EXPECT_EQ(Shown::all, follow(mark));
  EXPECT_THAT(names, ElementsAre("a", "c", "d"));
}

TEST_F(OperationQueueFollowTest, ShowsAllWhenOnlyWhatItHasNotSeenHasLeft) {
  add("a");
  follow(mark);

  add("b")->finish();

  EXPECT_EQ(Shown::all, follow(mark));
  EXPECT_THAT(names, ElementsAre("a"));
}

TEST_F(OperationQueueFollowTest, ShowsAllOfAnEmptyQueueOnceTheLastHasLeft) {
  const auto a = add("a");
  follow(mark);

  a->finish();

  EXPECT_EQ(Shown::all, follow(mark));
  EXPECT_THAT(names, IsEmpty());
}

TEST_F(OperationQueueFollowTest, ShowsAdditionsAgainAfterItHasShownAll) {
  add("a")->finish();
  follow(mark);
  add("b");

  EXPECT_EQ(Shown::additions, follow(mark));

  EXPECT_THAT(names, ElementsAre("b"));
}

TEST_F(OperationQueueFollowTest, NumbersRiseInTheOrderOfAdding) {
  add("a");
  add("b");
  add("c");

  follow(mark);

  ASSERT_EQ(3u, numbers.size());
  EXPECT_LT(numbers[0], numbers[1]);
  EXPECT_LT(numbers[1], numbers[2]);
}

TEST_F(OperationQueueFollowTest, AnOperationKeepsItsNumber) {
  const auto a = add("a");
  add("b");
  follow(mark);
  const std::uint64_t numberOfB = numbers.at(1);

  a->finish();
  add("c");
  follow(mark);

  ASSERT_THAT(names, ElementsAre("b", "c"));
  EXPECT_EQ(numberOfB, numbers[0]);
  EXPECT_LT(numberOfB, numbers[1]);
}

TEST_F(OperationQueueFollowTest, TheNumberOfOneThatHasLeftIsNotGivenAgain) {
  const auto a = add("a");
  follow(mark);
  const std::uint64_t numberOfA = numbers.at(0);

  a->finish();
  add("b");
  follow(mark);

  ASSERT_THAT(names, ElementsAre("b"));
  EXPECT_LT(numberOfA, numbers[0]);
}

TEST_F(OperationQueueFollowTest, EachFollowerHasAMarkOfItsOwn) {
  Mark late;
  add("a");
  follow(mark);
  add("b");

  EXPECT_EQ(Shown::additions, follow(late));
  EXPECT_THAT(names, ElementsAre("a", "b"));
  EXPECT_EQ(Shown::additions, follow(mark));
  EXPECT_THAT(names, ElementsAre("b"));
}

TEST_F(OperationQueueFollowTest, EachFollowerIsShownAllAfterTheSameDeparture) {
  Mark other;
  const auto a = add("a");
  add("b");
  follow(mark);
  follow(other);

  a->finish();

  EXPECT_EQ(Shown::all, follow(mark));
  EXPECT_THAT(names, ElementsAre("b"));
  EXPECT_EQ(Shown::all, follow(other));
  EXPECT_THAT(names, ElementsAre("b"));
  EXPECT_EQ(Shown::additions, follow(mark));
  EXPECT_THAT(names, IsEmpty());
}

TEST_F(OperationQueueFollowTest, AFollowerThatComesAfterDeparturesIsShownAll) {
  add("a")->finish();
  add("b");

  EXPECT_EQ(Shown::all, follow(mark));

  EXPECT_THAT(names, ElementsAre("b"));
}

}  // namespace
}  // namespace zln
