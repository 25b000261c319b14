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

  using Names = std::vector<std::string>;

  // Follows the queue and expects to be shown these operations; `numbers` are theirs.
  void expectShown(Mark& follower, Shown kind, const Names& expected) {
    Names names;
    numbers.clear();
    EXPECT_EQ(kind, queue.follow(follower, [&](std::uint64_t number, const auto& operation) {
      names.push_back(operation->description());
      numbers.push_back(number);
    }));
    EXPECT_EQ(expected, names);
  }

  FakeDispatch dispatch;
  OperationQueue queue{dispatch};
  Mark mark;
  std::vector<std::uint64_t> numbers;
};

TEST_F(OperationQueueFollowTest, ShowsWhatWasAddedSinceInTheOrderOfAdding) {
  expectShown(mark, Shown::additions, {});
  add("a");
  dispatch.runGlobal();
  add("b")->setQueuePriority(8);
  expectShown(mark, Shown::additions, {"a", "b"});
  expectShown(mark, Shown::additions, {});
  add("c");

  expectShown(mark, Shown::additions, {"c"});
}

TEST_F(OperationQueueFollowTest, ShowsAllThatAreThereOnceOneHasLeft) {
  add("a");
  const auto b = add("b");
  add("c");
  expectShown(mark, Shown::additions, {"a", "b", "c"});

  b->finish();
  add("d");

  expectShown(mark, Shown::all, {"a", "c", "d"});
  expectShown(mark, Shown::additions, {});
  add("e");
  expectShown(mark, Shown::additions, {"e"});
}

TEST_F(OperationQueueFollowTest, ShowsAllWhenOnlyWhatItHasNotSeenHasLeft) {
  const auto a = add("a");
  expectShown(mark, Shown::additions, {"a"});
  add("b")->finish();
  expectShown(mark, Shown::all, {"a"});

  a->finish();

  expectShown(mark, Shown::all, {});
}

TEST_F(OperationQueueFollowTest, NumbersRiseAndAreNotGivenAgain) {
  const auto a = add("a");
  add("b");
  const auto c = add("c");
  expectShown(mark, Shown::additions, {"a", "b", "c"});
  const std::vector<std::uint64_t> before = numbers;
  EXPECT_LT(before[0], before[1]);
  EXPECT_LT(before[1], before[2]);

  a->finish();
  c->finish();
  add("d");

  expectShown(mark, Shown::all, {"b", "d"});
  EXPECT_EQ(before[1], numbers[0]);
  EXPECT_LT(before[2], numbers[1]);
}

TEST_F(OperationQueueFollowTest, EachFollowerHasAMarkOfItsOwn) {
  Mark late;
  Mark latest;
  const auto a = add("a");
  expectShown(mark, Shown::additions, {"a"});
  add("b");
  expectShown(late, Shown::additions, {"a", "b"});
  expectShown(mark, Shown::additions, {"b"});

  a->finish();

  for (Mark* const follower : {&mark, &late, &latest}) expectShown(*follower, Shown::all, {"b"});
  expectShown(mark, Shown::additions, {});
}

}  // namespace
}  // namespace zln
