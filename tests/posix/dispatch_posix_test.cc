#include "platform/posix/dispatch_posix.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <array>
#include <atomic>
#include <functional>
#include <future>
#include <latch>
#include <thread>
#include <utility>
#include <vector>

namespace zln {
namespace {

using testing::ElementsAre;

class DispatchPosixTest : public testing::Test {
 protected:
  std::thread::id mainThread() {
    std::promise<std::thread::id> id;
    dispatch.mainAsync([&] { id.set_value(std::this_thread::get_id()); });
    return id.get_future().get();
  }

  ThreadPool pool;
  DispatchPosix dispatch{pool};
};

TEST_F(DispatchPosixTest, TheMainThreadHasAName) {
  std::array<char, 16> name{};
  std::promise<void> done;

  dispatch.mainAsync([&] {
    pthread_getname_np(pthread_self(), name.data(), name.size());
    done.set_value();
  });

  done.get_future().wait();
  EXPECT_STREQ("ZLN main", name.data());
}

TEST_F(DispatchPosixTest, TheMainThreadIsTheSameForEveryCaller) {
  std::thread::id other;
  std::thread([&] { other = mainThread(); }).join();

  EXPECT_EQ(mainThread(), other);
  EXPECT_NE(std::this_thread::get_id(), other);
}

TEST_F(DispatchPosixTest, MainSyncNeedsNoOtherThreadWhenTheQueueIsFree) {
  std::thread::id thread;

  dispatch.mainSync([&] { thread = std::this_thread::get_id(); });

  EXPECT_EQ(std::this_thread::get_id(), thread);
}

TEST_F(DispatchPosixTest, AMainTaskWaitsForOneOnAnotherThreadWhileTheMainThreadWorksBesideIt) {
  std::vector<int> order;
  std::promise<void> done;
  std::thread::id beside;

  dispatch.mainSync([&] {
    dispatch.mainAsync([&] {
      order.push_back(2);
      done.set_value();
    });
    std::promise<std::thread::id> chore;
    dispatch.mainThreadBeside([&] { chore.set_value(std::this_thread::get_id()); });
    beside = chore.get_future().get();
    order.push_back(1);
  });
  done.get_future().wait();

  EXPECT_THAT(order, ElementsAre(1, 2));
  EXPECT_EQ(mainThread(), beside);
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

TEST_F(DispatchPosixTest, ATaskMayUseTheQueueOfAnotherDispatch) {
  DispatchPosix other(pool);
  std::vector<int> order;

  dispatch.mainSync([&] {
    other.mainSync([&] { order.push_back(1); });
    dispatch.mainSync([&] { order.push_back(2); });
  });

  EXPECT_THAT(order, ElementsAre(1, 2));
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

TEST_F(DispatchPosixRefusedTest, OneThreadIsMadeForAllTasksThatNeedOne) {
  EXPECT_EQ(0, started.load());
  dispatch.mainSync([] {});
  EXPECT_EQ(0, started.load());

  dispatch.mainAsync([] {});
  dispatch.mainAsync([] {});
  dispatch.mainThreadBeside([] {});

  EXPECT_EQ(1, started.load());
}

TEST_F(DispatchPosixRefusedTest, MainSyncAsksUntilItGetsAThread) {
  std::vector<int> order;
  refusals = 4;

  dispatch.mainAsync([&] { order.push_back(1); });
  dispatch.mainSync([&] { order.push_back(2); });

  EXPECT_THAT(order, ElementsAre(1, 2));
  EXPECT_EQ(0, refusals.load());
}

}  // namespace
}  // namespace zln
