#include "platform/posix/background_tasks_posix.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cfloat>
#include <future>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/posix/dispatch_posix.h"

namespace zln {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// A host that grants the identifiers and the time that a test sets.
class Host {
 public:
  ZLNHostBackgroundTaskHooks hooks() {
    return {[](void* self) { return static_cast<Host*>(self)->begin(); },
            [](uint64_t id, void* self) { static_cast<Host*>(self)->ended.push_back(id); },
            [](void* self) { return static_cast<Host*>(self)->remaining; }, this};
  }

  BackgroundTaskId nextId = 40;
  double remaining = 25.5;
  std::vector<BackgroundTaskId> ended;

 private:
  BackgroundTaskId begin() { return nextId; }
};

class BackgroundTasksPosixTest : public testing::Test {
 protected:
  BackgroundTaskId begin(const std::string& name) {
    return tasks.begin([this, name] { told.push_back(name); });
  }

  std::vector<std::string> told;
  Host host;
  Host otherHost;
  ThreadPool pool;
  DispatchPosix dispatch{pool};
  BackgroundTasksPosix tasks{dispatch};
};

TEST_F(BackgroundTasksPosixTest, TheHostGivesIdentifierAndTimeAndIsToldOnceOfTheEnd) {
  tasks.setHooks(host.hooks());

  EXPECT_EQ(40u, begin("task"));
  EXPECT_EQ(25.5, tasks.remaining());
  tasks.end(40);
  tasks.end(40);

  EXPECT_THAT(host.ended, ElementsAre(40));
}

TEST_F(BackgroundTasksPosixTest, TheHostMayRefuse) {
  tasks.setHooks(host.hooks());
  host.nextId = 0;

  EXPECT_EQ(kBackgroundTaskInvalid, begin("task"));

  tasks.end(kBackgroundTaskInvalid);
  tasks.willExpire(kBackgroundTaskInvalid);
  EXPECT_THAT(host.ended, IsEmpty());
  EXPECT_THAT(told, IsEmpty());
}

TEST_F(BackgroundTasksPosixTest, TheHostIsNotToldOfWhatItDidNotBegin) {
  const auto own = begin("own");
  tasks.setHooks(host.hooks());

  tasks.end(own);
  tasks.end(77);

  EXPECT_THAT(host.ended, IsEmpty());
}

TEST_F(BackgroundTasksPosixTest, WithoutHooksTheTimeIsUnlimitedAgain) {
  tasks.setHooks(host.hooks());
  tasks.setHooks(std::nullopt);

  EXPECT_EQ(DBL_MAX, tasks.remaining());
  EXPECT_EQ(1u, begin("task"));
}

TEST_F(BackgroundTasksPosixTest, ATaskEndsThroughTheHooksThatBeganIt) {
  for (const auto& hooksAfter : {std::optional(otherHost.hooks()), {}}) {
    host.ended.clear();
    tasks.setHooks(host.hooks());
    begin("task");
    tasks.setHooks(hooksAfter);

    tasks.end(40);

    EXPECT_THAT(host.ended, ElementsAre(40));
  }
  EXPECT_THAT(otherHost.ended, IsEmpty());
}

TEST_F(BackgroundTasksPosixTest, ATaskThatExpiresIsToldOnceAndThenForgotten) {
  tasks.setHooks(host.hooks());
  begin("task");

  tasks.willExpire(40);
  tasks.willExpire(40);
  tasks.end(40);

  EXPECT_THAT(told, ElementsAre("task"));
  EXPECT_THAT(host.ended, IsEmpty());
}

TEST_F(BackgroundTasksPosixTest, TheIdentifierOfAnExpiredTaskMayBeGivenAgainByOtherHooks) {
  tasks.setHooks(host.hooks());
  begin("expired");
  tasks.willExpire(40);
  tasks.setHooks(otherHost.hooks());
  begin("next");

  tasks.end(40);

  EXPECT_THAT(host.ended, IsEmpty());
  EXPECT_THAT(otherHost.ended, ElementsAre(40));
}

TEST_F(BackgroundTasksPosixTest, ATaskIsToldOnTheMainThread) {
  std::thread::id main;
  std::thread::id toldOn;
  dispatch.mainSync([&] { main = std::this_thread::get_id(); });
  const auto id = tasks.begin([&] { toldOn = std::this_thread::get_id(); });

  tasks.willExpire(id);

  EXPECT_EQ(main, toldOn);
}

TEST_F(BackgroundTasksPosixTest, ATaskThatEndsBeforeTheMainThreadComesToItIsNotTold) {
  const auto id = begin("task");
  std::promise<void> mayGoOn;
  dispatch.mainAsync([&] {
    mayGoOn.get_future().wait();
    tasks.end(id);
  });
  std::thread expiring([&] { tasks.willExpire(id); });

  mayGoOn.set_value();
  expiring.join();

  EXPECT_THAT(told, IsEmpty());
}

TEST_F(BackgroundTasksPosixTest, AHostMayGiveAnIdentifierTwice) {
  tasks.setHooks(host.hooks());
  begin("ended");
  begin("first");
  begin("second");

  tasks.end(40);
  tasks.willExpire(40);

  EXPECT_THAT(told, ElementsAre("first", "second"));
  EXPECT_THAT(host.ended, ElementsAre(40));
}

TEST_F(BackgroundTasksPosixTest, ATaskWithoutAHandlerExpiresQuietly) {
  const auto id = tasks.begin(nullptr);

  tasks.willExpire(id);

  EXPECT_EQ(1u, id);
}

TEST_F(BackgroundTasksPosixTest, ManyThreadsBeginExpireAndEndTheirTasks) {
  std::atomic<int> toldCount{0};
  std::vector<std::thread> threads;
  for (int count = 0; count < 4; ++count) {
    threads.emplace_back([&] {
      for (int round = 0; round < 100; ++round) {
        const auto id = tasks.begin([&] { ++toldCount; });
        tasks.willExpire(id);
        tasks.end(id);
      }
    });
  }
  for (auto& thread : threads) thread.join();

  EXPECT_EQ(400, toldCount.load());
  EXPECT_EQ(401u, begin("next"));
}

}  // namespace
}  // namespace zln
