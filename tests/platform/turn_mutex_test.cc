#include "platform/turn_mutex.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <fstream>
#include <latch>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace zln {
namespace {

using testing::ElementsAre;

constexpr int kRounds = 2000;

TEST(TurnMutexTest, OneThreadAtATimeHasIt) {
  TurnMutex mutex;
  std::atomic<int> inside{0};
  std::atomic<int> together{0};
  // Guarded by the mutex alone.
  int turns = 0;
  std::latch ready(4);
  std::vector<std::thread> threads;

  for (int count = 0; count < 4; ++count) {
    threads.emplace_back([&] {
      ready.arrive_and_wait();
      for (int round = 0; round < kRounds; ++round) {
        std::lock_guard turn(mutex);
        if (inside.fetch_add(1) != 0) ++together;
        ++turns;
        inside.fetch_sub(1);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();

  EXPECT_EQ(0, together.load());
  EXPECT_EQ(4 * kRounds, turns);
}

// A thread that takes the mutex once and notes its name meanwhile.
class Asker {
 public:
  // Returns when the thread waits for its turn. The mutex is taken already.
  Asker(TurnMutex& mutex, std::vector<std::string>& names, std::string name)
      : thread_([this, &mutex, &names, name] {
          number_.store(gettid());
          std::lock_guard turn(mutex);
          names.push_back(name);
        }) {
    while (number_.load() == 0 || !sleeps(number_.load())) std::this_thread::yield();
  }
  ~Asker() { thread_.join(); }

 private:
  static bool sleeps(pid_t number) {
    std::ifstream file("/proc/self/task/" + std::to_string(number) + "/stat");
    std::string line;
    std::getline(file, line);
    const auto nameEnd = line.rfind(')');
    return nameEnd != std::string::npos && line.substr(nameEnd, 3) == ") S";
  }

  std::atomic<pid_t> number_{0};
  std::thread thread_;
};

TEST(TurnMutexTest, ThreadsHaveItInTheOrderOfTheirAsking) {
  TurnMutex mutex;
  std::vector<std::string> names;
  mutex.lock();
  {
    const Asker first(mutex, names, "first");
    const Asker second(mutex, names, "second");
    const Asker third(mutex, names, "third");

    names.push_back("holder");
    mutex.unlock();
  }

  EXPECT_THAT(names, ElementsAre("holder", "first", "second", "third"));
}

TEST(TurnMutexTest, AThreadThatTakesItAgainAtOnceLetsTheOneThatWaitsInBetween) {
  std::vector<std::string> names;

  for (int round = 0; round < 100; ++round) {
    TurnMutex mutex;
    mutex.lock();
    const Asker other(mutex, names, "other");
    mutex.unlock();
    mutex.lock();
    names.push_back("again");
    mutex.unlock();
  }

  ASSERT_EQ(200u, names.size());
  for (std::size_t at = 0; at < names.size(); at += 2) {
    EXPECT_EQ("other", names[at]) << at;
    EXPECT_EQ("again", names[at + 1]) << at;
  }
}

}  // namespace
}  // namespace zln
