#include "platform/posix/dispatch_posix.h"

#include <pthread.h>

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <latch>
#include <set>
#include <thread>
#include <utility>

#include "tests/contract/dispatch_contract.h"

namespace zln {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class PosixDispatch {
 public:
  Dispatch& dispatch() { return dispatch_; }
  void await(std::future<void>& done) { done.wait(); }

 private:
  ThreadPool pool_;
  DispatchPosix dispatch_{pool_};
};

INSTANTIATE_TYPED_TEST_SUITE_P(Posix, DispatchContract, PosixDispatch);

class DispatchPosixTest : public testing::Test {
 protected:
  std::thread::id mainThread() {
    std::thread::id id;
    dispatch.mainSync([&] { id = std::this_thread::get_id(); });
    return id;
  }

  ThreadPool pool;
  DispatchPosix dispatch{pool};
};

TEST_F(DispatchPosixTest, TheMainThreadHasAName) {
  std::array<char, 16> name{};

  dispatch.mainSync([&] { pthread_getname_np(pthread_self(), name.data(), name.size()); });

  EXPECT_STREQ("ZLN main", name.data());
}

TEST_F(DispatchPosixTest, TheMainThreadIsTheSameForEveryCaller) {
  std::thread::id other;
  std::thread([&] { other = mainThread(); }).join();

  EXPECT_EQ(mainThread(), other);
  EXPECT_NE(std::this_thread::get_id(), other);
}

TEST_F(DispatchPosixTest, AGlobalTaskRunsOnAnotherThreadThanMain) {
  std::promise<std::thread::id> thread;

  dispatch.globalAsync([&] { thread.set_value(std::this_thread::get_id()); });

  EXPECT_NE(mainThread(), thread.get_future().get());
}

TEST_F(DispatchPosixTest, GlobalTasksRunBesideEachOther) {
  std::latch bothRun(2);
  std::latch bothDone(2);
  const auto meet = [&] {
    bothRun.arrive_and_wait();
    bothDone.count_down();
  };

  dispatch.globalAsync(meet);
  dispatch.globalAsync(meet);

  bothDone.wait();
}

TEST_F(DispatchPosixTest, MainTasksOfManyThreadsNeverRunBesideEachOther) {
  int unguarded = 0;
  std::vector<std::thread> callers;
  for (int caller = 0; caller < 4; ++caller) {
    callers.emplace_back([&] {
      for (int round = 0; round < 250; ++round) {
        dispatch.mainAsync([&] { ++unguarded; });
        dispatch.mainSync([&] { ++unguarded; });
      }
    });
  }
  for (auto& caller : callers) caller.join();

  EXPECT_EQ(2000, unguarded);
}

TEST_F(DispatchPosixTest, TwoDispatchesHaveMainThreadsOfTheirOwn) {
  DispatchPosix other(pool);
  std::thread::id otherMain;

  dispatch.mainSync([&] { other.mainSync([&] { otherMain = std::this_thread::get_id(); }); });

  EXPECT_NE(mainThread(), otherMain);
}

// Where the system refuses the main thread so many times.
class DispatchPosixRefusedTest : public testing::Test {
 protected:
  std::atomic<int> refusals{0};
  std::atomic<int> started{0};
  ThreadPool pool;
  DispatchPosix dispatch{pool, [this](std::function<void()> body) {
                           if (refusals.load() > 0) {
                             --refusals;
                             return false;
                           }
                           ++started;
                           std::thread(std::move(body)).detach();
                           return true;
                         }};
};

TEST_F(DispatchPosixRefusedTest, NoThreadIsAskedForBeforeTheFirstTask) {
  EXPECT_EQ(0, started.load());
}

TEST_F(DispatchPosixRefusedTest, OneThreadIsMadeForAllTasks) {
  dispatch.mainSync([] {});
  dispatch.mainSync([] {});

  EXPECT_EQ(1, started.load());
}

TEST_F(DispatchPosixRefusedTest, ATaskWaitsForTheCallThatGetsAThread) {
  std::vector<int> order;
  refusals = 1;

  dispatch.mainAsync([&] { order.push_back(1); });
  dispatch.mainSync([&] { order.push_back(2); });

  EXPECT_THAT(order, ElementsAre(1, 2));
}

TEST_F(DispatchPosixRefusedTest, MainSyncAsksUntilItGetsAThread) {
  bool ran = false;
  refusals = 3;

  dispatch.mainSync([&] { ran = true; });

  EXPECT_TRUE(ran);
}

}  // namespace
}  // namespace zln
