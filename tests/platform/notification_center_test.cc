#include "platform/notification_center.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace zln {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class NotificationCenterTest : public testing::Test {
 protected:
  // Notes that it was told, under its name, and does what the test wants it to do then.
  class Listener {
   public:
    Listener(std::string name, std::vector<std::string>& told)
        : name_(std::move(name)), told_(told) {}

    void hear() {
      told_.push_back(name_);
      if (onHear) onHear();
    }

    void hearOther() { told_.push_back(name_ + " other"); }

    std::function<void()> onHear;

   private:
    std::string name_;
    std::vector<std::string>& told_;
  };

  std::shared_ptr<Listener> make(const std::string& name) {
    return std::make_shared<Listener>(name, told);
  }

  std::shared_ptr<Listener> add(const std::string& name) {
    auto listener = make(name);
    center.addObserver(listener, Notification::applicationDidBecomeActive, &Listener::hear);
    return listener;
  }

  void post() { center.post(Notification::applicationDidBecomeActive); }

  NotificationCenter center;
  std::vector<std::string> told;
};

TEST_F(NotificationCenterTest, EveryPostTellsAllObserversInTheOrderOfAddingOnThePostingThread) {
  post();
  EXPECT_THAT(told, IsEmpty());
  const auto a = add("a");
  const auto b = add("b");
  std::thread::id heardOn;
  a->onHear = [&] { heardOn = std::this_thread::get_id(); };

  post();
  EXPECT_THAT(told, ElementsAre("a", "b"));
  EXPECT_EQ(std::this_thread::get_id(), heardOn);
  post();

  EXPECT_THAT(told, ElementsAre("a", "b", "a", "b"));
}

TEST_F(NotificationCenterTest, CallsEachHandlerThatWasGivenForTheNotification) {
  const auto a = add("a");
  center.addObserver(a, Notification::applicationDidBecomeActive, &Listener::hear);
  center.addObserver(a, Notification::applicationWillTerminate, &Listener::hearOther);

  post();
  EXPECT_THAT(told, ElementsAre("a", "a"));
  center.post(Notification::applicationWillTerminate);

  EXPECT_THAT(told, ElementsAre("a", "a", "a other"));
}

TEST_F(NotificationCenterTest, KeepsNoObserverAliveAndTellsTheOthers) {
  auto a = add("a");
  const auto b = add("b");
  const std::weak_ptr<Listener> weak = a;

  a.reset();
  EXPECT_TRUE(weak.expired());
  post();

  EXPECT_THAT(told, ElementsAre("b"));
}

TEST_F(NotificationCenterTest, AnObserverAddedDuringAPostHearsTheNextOne) {
  const auto a = add("a");
  std::shared_ptr<Listener> late;
  a->onHear = [&] {
    if (late == nullptr) late = add("late");
  };

  post();

  EXPECT_THAT(told, ElementsAre("a"));

  told.clear();
  post();

  EXPECT_THAT(told, ElementsAre("a", "late"));
}

TEST_F(NotificationCenterTest, LeavesOutAnObserverThatGoesBeforeItsTurn) {
  const auto a = add("a");
  auto gone = add("gone");
  const auto c = add("c");
  a->onHear = [&] { gone.reset(); };

  post();

  EXPECT_THAT(told, ElementsAre("a", "c"));
}

TEST_F(NotificationCenterTest, AnObserverLivesUntilItsHandlerReturns) {
  auto a = add("a");
  const std::weak_ptr<Listener> weak = a;
  bool goneInside = true;
  a->onHear = [&] {
    a.reset();
    goneInside = weak.expired();
  };

  post();

  EXPECT_FALSE(goneInside);
  EXPECT_TRUE(weak.expired());
}

TEST_F(NotificationCenterTest, AHandlerMayPost) {
  const auto a = add("a");
  const auto b = make("b");
  center.addObserver(b, Notification::applicationWillTerminate, &Listener::hear);
  const auto c = add("c");
  a->onHear = [&] { center.post(Notification::applicationWillTerminate); };

  post();

  EXPECT_THAT(told, ElementsAre("a", "b", "c"));
}

}  // namespace
}  // namespace zln
