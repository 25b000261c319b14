#include "platform/barrier_queue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <thread>
#include <vector>

namespace zln {
namespace {

TEST(BarrierQueueTest, ABlockHasRunOnTheCallingThreadWhenTheCallReturns) {
  BarrierQueue queue("label");
  std::vector<std::thread::id> ranOn;
  const auto note = [&] { ranOn.push_back(std::this_thread::get_id()); };

  queue.barrier(note);
  queue.read(note);
  queue.barrier(note);

  EXPECT_EQ(std::vector(3, std::this_thread::get_id()), ranOn);
}

TEST(BarrierQueueTest, IsFreeAgainAfterABlockThatThrows) {
  BarrierQueue queue("label");
  bool ran = false;

  EXPECT_THROW(queue.barrier([] { throw 1; }), int);
  EXPECT_THROW(queue.read([] { throw 1; }), int);
  queue.barrier([&] { ran = true; });

  EXPECT_TRUE(ran);
}

TEST(BarrierQueueTest, ReadsRunConcurrently) {
  BarrierQueue queue("label");
  std::latch bothInside(2);
  const auto readAndMeet = [&] { queue.read([&] { bothInside.arrive_and_wait(); }); };

  std::thread other(readAndMeet);
  readAndMeet();
  other.join();

  EXPECT_TRUE(bothInside.try_wait());
}

// Counts as slowly as it can: other threads get a turn between reading and writing. On a loaded
// machine such a turn takes a whole time slice, so tests do this some hundred times only.
void countInTwoSteps(int& count) {
  const int before = count;
  std::this_thread::yield();
  count = before + 1;
}

TEST(BarrierQueueTest, BarriersRunOneByOne) {
  BarrierQueue queue("label");
  std::latch ready(4);
  int count = 0;
  std::vector<std::thread> threads;

  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&] {
      ready.arrive_and_wait();
      for (int round = 0; round < 50; ++round) queue.barrier([&] { countInTwoSteps(count); });
    });
  }
  for (std::thread& thread : threads) thread.join();

  EXPECT_EQ(200, count);
}

TEST(BarrierQueueTest, NoReadRunsBesideABarrier) {
  BarrierQueue queue("label");
  std::latch writing(2);
  std::atomic<bool> allRead{false};
  std::atomic<int> barriers{0};
  int first = 0;
  int second = 0;
  int tornReads = 0;

  std::thread writer([&] {
    writing.arrive_and_wait();
    while (!allRead) {
      queue.barrier([&] {
        countInTwoSteps(first);
        countInTwoSteps(second);
      });
      ++barriers;
    }
  });
  writing.arrive_and_wait();
  for (int round = 0; round < 100 || barriers < 100; ++round) {
    queue.read([&] {
      const int seen = first;
      if (seen != second) ++tornReads;
      std::this_thread::yield();
      if (seen != second) ++tornReads;
    });
  }
  allRead = true;
  writer.join();

  EXPECT_EQ(0, tornReads);
}

}  // namespace
}  // namespace zln
