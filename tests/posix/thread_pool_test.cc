#include "platform/posix/thread_pool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <future>
#include <latch>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/counted_threads.h"

namespace zln {
namespace {

using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::SizeIs;

using Clock = std::chrono::steady_clock;

// A pool whose threads the test plays itself: each waits in `bodies` until the test runs it, and
// comes back when it finds no task.
class ThreadPoolTest : public testing::Test {
 protected:
  void note(int number) {
    pool.run([this, number] { ran.push_back(number); });
  }

  std::vector<std::function<void()>> bodies;
  bool threadsRefused = false;
  std::vector<int> ran;
  const ThreadPool::ThreadStarter starter = [this](std::function<void()> body) {
    if (!threadsRefused) bodies.push_back(std::move(body));
    return !threadsRefused;
  };
  ThreadPool pool{starter, std::chrono::milliseconds(0)};
};

TEST_F(ThreadPoolTest, EachTaskThatWaitsHasAThreadComingWhichTakesThemInTheirOrder) {
  EXPECT_THAT(bodies, IsEmpty());
  note(1);
  note(2);
  note(3);
  EXPECT_THAT(bodies, SizeIs(3));
  EXPECT_THAT(ran, IsEmpty());

  bodies.at(0)();

  EXPECT_THAT(ran, ElementsAre(1, 2, 3));
}

TEST_F(ThreadPoolTest, TheLastTaskThatATaskBringsRunsOnItsThreadRightAfterIt) {
  pool.run([&] {
    pool.run([&] { note(1); });
    EXPECT_THAT(ran, IsEmpty());
  });
  note(2);

  bodies.at(0)();

  EXPECT_THAT(bodies, SizeIs(2));
  EXPECT_THAT(ran, ElementsAre(1, 2));
}

// The reports that a start finds need not wait until all of them are loaded.
TEST_F(ThreadPoolTest, TheTasksThatATaskBringsBeforeItsLastDoNotWaitForItsEnd) {
  std::vector<int> ranInside;
  pool.run([&] {
    note(1);
    note(2);
    note(3);
    for (std::size_t body = 1; body < bodies.size(); ++body) bodies[body]();
    ranInside = ran;
  });

  bodies.at(0)();

  EXPECT_THAT(ranInside, ElementsAre(1, 2));
  EXPECT_THAT(ran, ElementsAre(1, 2, 3));
}

TEST_F(ThreadPoolTest, ATaskThatComesFromElsewhereWhileAnotherRunsGetsAThreadOfItsOwn) {
  std::size_t bodiesInside = 0;
  pool.run([&] { std::thread([&] { note(1); }).join(); });
  pool.run([&] { bodiesInside = bodies.size(); });

  bodies.at(0)();

  EXPECT_EQ(3u, bodiesInside);
}

TEST_F(ThreadPoolTest, ALaterTaskComesAfterAllOthersOnAThreadThatIsComing) {
  note(1);
  pool.runLater([this] { ran.push_back(9); });
  EXPECT_THAT(bodies, SizeIs(1));
  note(2);

  bodies.at(0)();

  EXPECT_THAT(ran, ElementsAre(1, 2, 9));
}

TEST_F(ThreadPoolTest, ATaskNeedsNoThreadForALaterTaskOfItsOwn) {
  pool.run([this] { pool.runLater([this] { ran.push_back(1); }); });

  bodies.at(0)();

  EXPECT_THAT(bodies, SizeIs(1));
  EXPECT_THAT(ran, ElementsAre(1));
}

TEST_F(ThreadPoolTest, ALaterTaskRunsBetweenTwoTasksOfAChain) {
  pool.run([this] {
    pool.runLater([this] { ran.push_back(9); });
    pool.run([this] {
      ran.push_back(1);
      note(2);
    });
  });

  bodies.at(0)();

  EXPECT_THAT(ran, ElementsAre(9, 1, 2));
}

// The chain ends when both tasks have run, of which the second is asked for while the first waits.
TEST_F(ThreadPoolTest, InAChainEachLaterTaskIsDueAfterTheIdleTime) {
  constexpr std::chrono::milliseconds kIdle{20};
  ThreadPool patient(starter, kIdle);
  std::vector<Clock::time_point> asked;
  std::vector<Clock::duration> waited;
  const auto askForOne = [&] {
    asked.push_back(Clock::now());
    patient.runLater([&] { waited.push_back(Clock::now() - asked[waited.size()]); });
  };
  const std::function<void()> step = [&] {
    if (asked.empty()) askForOne();
    if (asked.size() == 1 && Clock::now() - asked[0] > kIdle / 2) askForOne();
    if (waited.size() < 2) patient.run(step);
  };
  patient.run(step);

  bodies.at(0)();

  EXPECT_THAT(waited, ElementsAre(Ge(kIdle), Ge(kIdle)));
}

TEST_F(ThreadPoolTest, AThreadThatHasYetToBeginIsEnough) {
  note(1);
  note(2);
  bodies.at(0)();

  note(3);

  EXPECT_THAT(bodies, SizeIs(2));
}

TEST_F(ThreadPoolTest, ThreadsThatHaveEndedMakeRoomForOthers) {
  for (int number = 0; number < 70; ++number) {
    note(number);
    bodies.back()();
  }

  EXPECT_THAT(bodies, SizeIs(70));
  EXPECT_THAT(ran, SizeIs(70));
}

// A pool whose threads someone else is to start, which the test does.
class HelpedThreadPoolTest : public ThreadPoolTest {
 protected:
  std::vector<std::function<void()>> asked;
  ThreadPool helped{starter, std::chrono::milliseconds(0),
                    [this](std::function<void()> work) { asked.push_back(std::move(work)); }};
};

TEST_F(HelpedThreadPoolTest, TheHelperIsAskedOnceAndStartsAllThatAreMissing) {
  for (int i = 0; i < 3; ++i) helped.run([] {});
  EXPECT_THAT(bodies, IsEmpty());

  ASSERT_THAT(asked, SizeIs(1));
  asked.at(0)();
  EXPECT_THAT(bodies, SizeIs(3));
  helped.run([] {});

  ASSERT_THAT(asked, SizeIs(2));
  asked.at(1)();
  EXPECT_THAT(bodies, SizeIs(4));
}

TEST_F(HelpedThreadPoolTest, TheHelperStartsOneForALaterTask) {
  helped.runLater([this] { ran.push_back(1); });

  ASSERT_THAT(asked, SizeIs(1));
  EXPECT_THAT(bodies, IsEmpty());
  asked.at(0)();
  ASSERT_THAT(bodies, SizeIs(1));
  bodies.at(0)();
  EXPECT_THAT(ran, ElementsAre(1));
}

TEST_F(HelpedThreadPoolTest, AfterARefusalTheNextTaskAsksAgain) {
  threadsRefused = true;
  helped.run([this] { ran.push_back(1); });
  asked.at(0)();
  threadsRefused = false;

  helped.run([this] { ran.push_back(2); });

  ASSERT_THAT(asked, SizeIs(2));
  asked.at(1)();
  ASSERT_THAT(bodies, SizeIs(1));
  bodies.at(0)();
  EXPECT_THAT(ran, ElementsAre(1, 2));
}

TEST_F(HelpedThreadPoolTest, AThreadThatTakesATaskNeedsNoHelperToStartAnother) {
  helped.run([this] { ran.push_back(1); });
  helped.run([this] { ran.push_back(2); });
  threadsRefused = true;
  asked.at(0)();
  threadsRefused = false;
  helped.run([this] { ran.push_back(3); });
  asked.at(1)();
  ASSERT_THAT(bodies, SizeIs(1));

  bodies.at(0)();

  EXPECT_THAT(asked, SizeIs(2));
  EXPECT_THAT(bodies, SizeIs(2));
  EXPECT_THAT(ran, ElementsAre(1, 2, 3));
}

TEST_F(ThreadPoolTest, TasksBeyond64ThreadsWait) {
  for (int number = 0; number < 70; ++number) note(number);

  EXPECT_THAT(bodies, SizeIs(64));
  bodies.at(0)();
  EXPECT_THAT(ran, SizeIs(70));
}

TEST_F(ThreadPoolTest, ARefusedThreadDoesNotCount) {
  threadsRefused = true;
  for (int number = 0; number < 100; ++number) note(number);
  threadsRefused = false;
  note(100);

  ASSERT_THAT(bodies, SizeIs(1));
  bodies.at(0)();

  EXPECT_THAT(ran, SizeIs(101));
}

TEST_F(ThreadPoolTest, ATaskIsReleasedBeforeTheNextRunsAndMayBringAnotherAsItGoes) {
  std::shared_ptr<int> held(new int(1), [this](const int* number) {
    delete number;
    note(7);
  });
  const std::weak_ptr<int> watched = held;
  bool wasReleased = false;
  pool.run([held = std::move(held)] {});
  pool.run([&] { wasReleased = watched.expired(); });

  bodies.at(0)();

  EXPECT_TRUE(wasReleased);
  EXPECT_THAT(ran, ElementsAre(7));
}

TEST_F(ThreadPoolTest, TasksOutliveThePool) {
  bool hasRun = false;
  {
    ThreadPool passing(starter, std::chrono::milliseconds(0));
    passing.run([&] { hasRun = true; });
  }

  bodies.at(0)();

  EXPECT_TRUE(hasRun);
}

// Pools with threads of their own.
class ThreadPoolThreadsTest : public testing::Test {
 protected:
  CountedThreads threads;
};

// A thread may not wait yet when the next task comes: then that task gets another one.
TEST_F(ThreadPoolThreadsTest, AThreadThatWaitsIsUsedAgain) {
  ThreadPool pool(threads.starter(), std::chrono::milliseconds(100));
  std::size_t usedAgain = 0;

  for (std::size_t tasks = 1; usedAgain < 100 && tasks <= 2000; ++tasks) {
    std::promise<void> done;
    pool.run([&] { done.set_value(); });
    done.get_future().wait();
    usedAgain = tasks - threads.started();
  }

  EXPECT_EQ(100u, usedAgain);
}

// Two threads: one is busy with a chain of tasks, the other has been without work for half of the
// idle time when the task is asked for.
TEST_F(ThreadPoolThreadsTest, ALaterTaskIsNotEarlyOnAThreadThatHasBeenWithoutWork) {
  constexpr std::chrono::milliseconds kIdle{40};
  ThreadPool pool(threads.starter(), kIdle);
  std::latch both(2);
  for (int count = 0; count < 2; ++count) pool.run([&] { both.arrive_and_wait(); });
  both.wait();
  const auto start = Clock::now();
  Clock::time_point asked;
  std::promise<Clock::duration> waited;
  const std::function<void()> step = [&] {
    if (Clock::now() - start < kIdle / 2) return pool.run(step);
    asked = Clock::now();
    pool.runLater([&] { waited.set_value(Clock::now() - asked); });
  };

  pool.run(step);

  EXPECT_GE(waited.get_future().get(), kIdle);
  EXPECT_TRUE(threads.waitUntilNoneRuns());
}

TEST_F(ThreadPoolThreadsTest, EveryTaskOfManyThreadsRunsOnce) {
  constexpr int kTasks = 4000;
  std::array<std::atomic<int>, kTasks> runs{};
  std::latch allDone(kTasks);
  ThreadPool pool(threads.starter(), std::chrono::milliseconds(1));
  const auto runQuarter = [&](int first) {
    for (int task = first; task < kTasks; task += 4) {
      pool.run([&, task] {
        ++runs[static_cast<std::size_t>(task)];
        allDone.count_down();
      });
    }
  };

  std::vector<std::thread> callers;
  for (int first = 0; first < 4; ++first) callers.emplace_back(runQuarter, first);
  for (auto& caller : callers) caller.join();
  allDone.wait();

  EXPECT_THAT(runs, testing::Each(testing::Eq(1)));
  EXPECT_TRUE(threads.waitUntilNoneRuns());
}

// The threads that the library's own pool makes.
class ThreadPoolOwnThreadsTest : public testing::Test {
 protected:
  // Runs it on a thread of the pool and returns when it has run.
  void onPool(const std::function<void()>& task) {
    std::promise<void> done;
    pool.run([&] {
      task();
      done.set_value();
    });
    done.get_future().wait();
  }

  ThreadPool pool;
};

TEST_F(ThreadPoolOwnThreadsTest, TheyHaveAName) {
  std::array<char, 16> name{};

  onPool([&] { pthread_getname_np(pthread_self(), name.data(), name.size()); });

  EXPECT_STREQ("ZLN pool", name.data());
}

TEST_F(ThreadPoolOwnThreadsTest, TheyLeaveTheSignalsOfTheGameToItsThreadsAndReportTheirOwnFaults) {
  sigset_t blocked;
  sigemptyset(&blocked);

  onPool([&] { pthread_sigmask(SIG_SETMASK, nullptr, &blocked); });

  for (const int number : {SIGINT, SIGTERM, SIGALRM, SIGCHLD, SIGHUP, SIGPIPE, SIGUSR1, SIGUSR2,
                           SIGPROF, SIGRTMIN, SIGRTMAX}) {
    EXPECT_EQ(1, sigismember(&blocked, number)) << number;
  }
  for (const int number : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS}) {
    EXPECT_EQ(0, sigismember(&blocked, number)) << number;
  }
}

TEST_F(ThreadPoolOwnThreadsTest, TheCallerKeepsItsSignals) {
  sigset_t before;
  sigset_t after;
  pthread_sigmask(SIG_SETMASK, nullptr, &before);

  onPool([] {});

  pthread_sigmask(SIG_SETMASK, nullptr, &after);
  EXPECT_EQ(sigismember(&before, SIGTERM), sigismember(&after, SIGTERM));
  EXPECT_EQ(sigismember(&before, SIGUSR1), sigismember(&after, SIGUSR1));
}

}  // namespace
}  // namespace zln
