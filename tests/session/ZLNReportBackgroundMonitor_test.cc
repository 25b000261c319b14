#include "session/ZLNReportBackgroundMonitor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "config/ZLNReportingConfig.h"
#include "platform/identity.h"
#include "support/ZLNDirectories.h"
#include "tests/support/hooked_process.h"
#include "tests/support/host_fixture.h"

namespace zln {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Counts how often it is told, and by whom.
class Delegate : public ZLNSessionBackgroundMonitorDelegate {
 public:
  void reportBackgroundMonitorTimerExpired(
      const std::shared_ptr<ZLNReportBackgroundMonitor>& monitor) override {
    told.push_back(monitor.get());
    if (whenTold) whenTold();
  }

  std::vector<const ZLNReportBackgroundMonitor*> told;
  std::function<void()> whenTold;
};

class ZLNReportBackgroundMonitorTest : public HostTest {
 protected:
  void SetUp() override { beginMonitoring(); }

  // The settings stand before the monitor reads them, so that the log holds its lines only.
  void beginMonitoring() {
    ZLNDirectories::makeDirectories();
    ZLNReportingConfig::sharedConfig();
    setLevel(5);
  }

  void setLimit(float seconds) {
    ZLNReportingConfig::sharedConfig()->setUserSessionBackgroundTimeoutSeconds(seconds);
  }

  void makeMonitor() { monitor = ZLNReportBackgroundMonitor::initWithDelegate(delegate); }

  // Sends the application to the background and lets the worker run to its end.
  void goToBackground() {
    env.app.enterBackground();
    env.dispatch.runGlobal();
  }

  std::shared_ptr<Delegate> delegate = std::make_shared<Delegate>();
  std::shared_ptr<ZLNReportBackgroundMonitor> monitor;
};

TEST_F(ZLNReportBackgroundMonitorTest, ANewMonitorIsArmed) {
  makeMonitor();

  EXPECT_EQ(kBackgroundTaskInvalid, monitor->uploadTask());
  EXPECT_EQ(delegate, monitor->delegate());
  EXPECT_EQ(0u, env.dispatch.globalCount());
  EXPECT_EQ(0u, env.backgroundTasks.begun());
  EXPECT_THAT(log().lines(), IsEmpty());
}

TEST_F(ZLNReportBackgroundMonitorTest, OnlyTheBackgroundStartsTheWorker) {
  makeMonitor();

  env.app.resignActive();
  env.app.becomeActive();
  env.app.enterForeground();
  env.app.terminate();
  EXPECT_EQ(0u, env.dispatch.globalCount());

  env.app.enterBackground();
  EXPECT_EQ(1u, env.dispatch.globalCount());
}

TEST_F(ZLNReportBackgroundMonitorTest, TheNotificationDoesNotWaitForTheWorker) {
  makeMonitor();

  env.app.enterBackground();

  EXPECT_THAT(log().lines(), IsEmpty());
  EXPECT_EQ(0u, env.backgroundTasks.begun());
}

TEST_F(ZLNReportBackgroundMonitorTest, WithTheDefaultLimitTheDelegateIsToldAfterSixtySteps) {
  env.backgroundTasks.remainingTime = 180.5;
  makeMonitor();

  goToBackground();

  std::vector<std::string> expected = {"ZLN Session: Starting background task",
                                       "ZLN Session: Started background task 1",
                                       "ZLN Session: Time left: 999.000000"};
  expected.insert(expected.end(), 59, "ZLN Session: Time left: 180.500000");
  expected.push_back("ZLN Session: Sending stop report from background task 1");
  expected.push_back("ZLN Session: Stopped background task 1");
  EXPECT_EQ(expected, log().lines());
  EXPECT_EQ(60.0, env.clock.slept());
  EXPECT_THAT(delegate->told, ElementsAre(monitor.get()));
  EXPECT_EQ(kBackgroundTaskInvalid, monitor->uploadTask());
  EXPECT_THAT(env.backgroundTasks.ended(), ElementsAre(1));
}

TEST_F(ZLNReportBackgroundMonitorTest, TheTimeLeftIsAskedForAfterEachStep) {
  setLimit(3);
  env.backgroundTasks.remainingTime = 500;
  env.clock.at(1.5, [&] { env.backgroundTasks.remainingTime = 30.25; });
  makeMonitor();

  goToBackground();

  EXPECT_THAT(
      log().lines(),
      ElementsAre("ZLN Session: Starting background task", "ZLN Session: Started background task 1",
                  "ZLN Session: Time left: 999.000000", "ZLN Session: Time left: 500.000000",
                  "ZLN Session: Time left: 30.250000",
                  "ZLN Session: Sending stop report from background task 1",
                  "ZLN Session: Stopped background task 1"));
}

TEST_F(ZLNReportBackgroundMonitorTest, StepsAreSuperVerboseAndTheRestIsDebug) {
  setLimit(1);
  setLevel(4);
  makeMonitor();

  goToBackground();

  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: Starting background task",
                                         "ZLN Session: Started background task 1",
                                         "ZLN Session: Stopped background task 1"));
}

TEST_F(ZLNReportBackgroundMonitorTest, TheMonitorIsSilentBelowDebug) {
  setLimit(1);
  setLevel(2);
  makeMonitor();

  goToBackground();

  EXPECT_THAT(log().lines(), IsEmpty());
  EXPECT_EQ(1u, delegate->told.size());
}

struct Limit {
  const char* name;
  float seconds;
  double steps;
};

class ZLNReportBackgroundMonitorLimitTest : public ZLNReportBackgroundMonitorTest,
                                            public testing::WithParamInterface<Limit> {};

TEST_P(ZLNReportBackgroundMonitorLimitTest, DecidesHowManyStepsAreWaited) {
  setLimit(GetParam().seconds);
  makeMonitor();

  goToBackground();

  EXPECT_EQ(GetParam().steps, env.clock.slept());
  EXPECT_THAT(delegate->told, ElementsAre(monitor.get()));
}

INSTANTIATE_TEST_SUITE_P(
    Limits, ZLNReportBackgroundMonitorLimitTest,
    testing::Values(Limit{"Negative", -1.0f, 0}, Limit{"Zero", 0.0f, 0},
                    Limit{"AMillisecond", 0.001f, 1}, Limit{"One", 1.0f, 1}, Limit{"Two", 2.0f, 2},
                    Limit{"TwoAndAHalf", 2.5f, 3}, Limit{"SixtyOne", 61.0f, 61},
                    Limit{"NoNumber", std::numeric_limits<float>::quiet_NaN(), 0}),
    [](const auto& parameter) { return std::string(parameter.param.name); });

TEST_F(ZLNReportBackgroundMonitorTest, WithoutALimitTheDelegateIsToldAtOnce) {
  setLimit(0);
  makeMonitor();

  goToBackground();

  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: Starting background task",
                                         "ZLN Session: Started background task 1",
                                         "ZLN Session: Sending stop report from background task 1",
                                         "ZLN Session: Stopped background task 1"));
  EXPECT_EQ(0.0, env.clock.slept());
  EXPECT_THAT(delegate->told, ElementsAre(monitor.get()));
}

TEST_F(ZLNReportBackgroundMonitorTest, EightSecondsLeftEndTheWaitAfterTheFirstStep) {
  env.backgroundTasks.remainingTime = 8;
  makeMonitor();

  goToBackground();

  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: Starting background task",
                                         "ZLN Session: Started background task 1",
                                         "ZLN Session: Time left: 999.000000",
                                         "ZLN Session: Sending stop report from background task 1",
                                         "ZLN Session: Stopped background task 1"));
  EXPECT_EQ(1.0, env.clock.slept());
  EXPECT_THAT(delegate->told, ElementsAre(monitor.get()));
}

struct TimeLeft {
  const char* name;
  double seconds;
  double steps;
};

class ZLNReportBackgroundMonitorTimeLeftTest : public ZLNReportBackgroundMonitorTest,
                                               public testing::WithParamInterface<TimeLeft> {};

TEST_P(ZLNReportBackgroundMonitorTimeLeftTest, EndsTheWaitAtTenSecondsOrLess) {
  setLimit(5);
  env.backgroundTasks.remainingTime = GetParam().seconds;
  makeMonitor();

  goToBackground();

  EXPECT_EQ(GetParam().steps, env.clock.slept());
  EXPECT_THAT(delegate->told, ElementsAre(monitor.get()));
}

INSTANTIATE_TEST_SUITE_P(
    TimesLeft, ZLNReportBackgroundMonitorTimeLeftTest,
    testing::Values(TimeLeft{"MoreThanTen", 10.001, 5}, TimeLeft{"Ten", 10, 1},
                    TimeLeft{"Zero", 0, 1}, TimeLeft{"Negative", -1, 1},
                    TimeLeft{"Endless", std::numeric_limits<double>::infinity(), 5},
                    TimeLeft{"NoNumber", std::numeric_limits<double>::quiet_NaN(), 1}),
    [](const auto& parameter) { return std::string(parameter.param.name); });

TEST_F(ZLNReportBackgroundMonitorTest, TimeThatRunsLowOnTheWayEndsTheWait) {
  env.backgroundTasks.remainingTime = 25;
  env.clock.at(14.5, [&] { env.backgroundTasks.remainingTime = 10; });
  makeMonitor();

  goToBackground();

  EXPECT_EQ(15.0, env.clock.slept());
  EXPECT_THAT(delegate->told, ElementsAre(monitor.get()));
}

TEST_F(ZLNReportBackgroundMonitorTest, ALimitThatIsChangedDuringTheWaitHasNoEffect) {
  setLimit(20);
  env.clock.at(3.5, [&] { setLimit(5); });
  env.clock.at(10.5, [&] { setLimit(100); });
  makeMonitor();

  goToBackground();

  EXPECT_EQ(20.0, env.clock.slept());
}

TEST_F(ZLNReportBackgroundMonitorTest, TheLimitIsReadWhenTheWorkerBegins) {
  setLimit(20);
  makeMonitor();
  env.app.enterBackground();
  setLimit(2);

  env.dispatch.runGlobal();

  EXPECT_EQ(2.0, env.clock.slept());
}

TEST_F(ZLNReportBackgroundMonitorTest, TheTimeLeftIsAskedForOnTheMainThread) {
  env.clock.at(0.5,
               [&] { env.dispatch.mainAsync([&] { env.backgroundTasks.remainingTime = 8; }); });
  makeMonitor();

  goToBackground();

  // What waited on the main thread has run before the first answer.
  EXPECT_EQ(1.0, env.clock.slept());
}

TEST_F(ZLNReportBackgroundMonitorTest, TheDelegateIsToldOnTheWorkersThread) {
  setLimit(0);
  bool waitingMainTaskRan = false;
  delegate->whenTold = [&] {
    env.dispatch.mainAsync([&] { waitingMainTaskRan = true; });
    // On the main thread this would not wait for the task before it.
    env.dispatch.mainSync([] {});
  };
  makeMonitor();

  goToBackground();

  EXPECT_TRUE(waitingMainTaskRan);
}

TEST_F(ZLNReportBackgroundMonitorTest, TheTaskIsOpenWhileTheDelegateIsTold) {
  setLimit(0);
  std::vector<BackgroundTaskId> openWhenTold;
  BackgroundTaskId taskWhenTold = 0;
  delegate->whenTold = [&] {
    openWhenTold = env.backgroundTasks.open();
    taskWhenTold = monitor->uploadTask();
  };
  makeMonitor();

  goToBackground();

  EXPECT_THAT(openWhenTold, ElementsAre(1));
  EXPECT_EQ(1u, taskWhenTold);
  EXPECT_THAT(env.backgroundTasks.open(), IsEmpty());
}

TEST_F(ZLNReportBackgroundMonitorTest, CancelDuringTheWaitEndsTheTaskAtOnceAndTellsNobody) {
  std::vector<BackgroundTaskId> openAfterCancel = {99};
  env.clock.at(1.5, [&] {
    monitor->cancel();
    openAfterCancel = env.backgroundTasks.open();
  });
  env.backgroundTasks.remainingTime = 500;
  makeMonitor();

  goToBackground();

  EXPECT_THAT(
      log().lines(),
      ElementsAre("ZLN Session: Starting background task", "ZLN Session: Started background task 1",
                  "ZLN Session: Time left: 999.000000", "ZLN Session: Time left: 500.000000",
                  "ZLN Session: end monitor background task 1"));
  EXPECT_THAT(openAfterCancel, IsEmpty());
  EXPECT_EQ(2.0, env.clock.slept());
  EXPECT_THAT(delegate->told, IsEmpty());
  EXPECT_THAT(env.backgroundTasks.ended(), ElementsAre(1));
  EXPECT_EQ(kBackgroundTaskInvalid, monitor->uploadTask());
}

TEST_F(ZLNReportBackgroundMonitorTest, CancelDuringTheLastStepTellsNobody) {
  setLimit(3);
  env.clock.at(2.5, [&] { monitor->cancel(); });
  makeMonitor();

  goToBackground();

  EXPECT_THAT(delegate->told, IsEmpty());
  EXPECT_EQ(0u, log().count("ZLN Session: Sending stop report from background task 1"));
}

TEST_F(ZLNReportBackgroundMonitorTest, CancelWithoutATaskIsSilent) {
  makeMonitor();

  monitor->cancel();
  monitor.reset();

  EXPECT_THAT(log().lines(), IsEmpty());
  EXPECT_THAT(env.backgroundTasks.ended(), IsEmpty());
}

TEST_F(ZLNReportBackgroundMonitorTest, CancelBeforeTheWorkerBeganLeavesItsTaskToTheDisposal) {
  makeMonitor();
  env.app.enterBackground();

  monitor->cancel();
  monitor.reset();
  env.dispatch.runGlobal();

  EXPECT_THAT(
      log().lines(),
      ElementsAre("ZLN Session: Starting background task", "ZLN Session: Started background task 1",
                  "ZLN Session: end monitor background task (on dealloc) 1"));
  EXPECT_EQ(0.0, env.clock.slept());
  EXPECT_THAT(delegate->told, IsEmpty());
  EXPECT_THAT(env.backgroundTasks.ended(), ElementsAre(1));
}

TEST_F(ZLNReportBackgroundMonitorTest, ATaskThatTheWorkerLeftOpenLivesAsLongAsTheMonitor) {
  makeMonitor();
  env.app.enterBackground();

  monitor->cancel();
  env.dispatch.runGlobal();

  EXPECT_EQ(1u, monitor->uploadTask());
  EXPECT_THAT(env.backgroundTasks.open(), ElementsAre(1));

  monitor.reset();

  EXPECT_THAT(env.backgroundTasks.open(), IsEmpty());
}

TEST_F(ZLNReportBackgroundMonitorTest, ATaskThatTheWorkerLeftOpenIsEndedByCancel) {
  makeMonitor();
  env.app.enterBackground();
  monitor->cancel();
  env.dispatch.runGlobal();

  monitor->cancel();

  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: Starting background task",
                                         "ZLN Session: Started background task 1",
                                         "ZLN Session: end monitor background task 1"));
  EXPECT_THAT(env.backgroundTasks.ended(), ElementsAre(1));
}

TEST_F(ZLNReportBackgroundMonitorTest, ACancelledMonitorTellsNobodyEvenWithoutALimit) {
  setLimit(0);
  makeMonitor();
  env.app.enterBackground();

  monitor->cancel();
  env.dispatch.runGlobal();

  EXPECT_THAT(delegate->told, IsEmpty());
}

TEST_F(ZLNReportBackgroundMonitorTest, CancelWhileTheDelegateIsToldLeavesNoTaskToStop) {
  setLimit(0);
  delegate->whenTold = [&] { monitor->cancel(); };
  makeMonitor();

  goToBackground();

  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: Starting background task",
                                         "ZLN Session: Started background task 1",
                                         "ZLN Session: Sending stop report from background task 1",
                                         "ZLN Session: end monitor background task 1",
                                         "ZLN Session: Stopped background task 0"));
  EXPECT_THAT(env.backgroundTasks.open(), IsEmpty());
}

TEST_F(ZLNReportBackgroundMonitorTest, EndingTheTaskEndsTheWaitToo) {
  env.clock.at(0.5, [&] { monitor->endTask(); });
  makeMonitor();

  goToBackground();

  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: Starting background task",
                                         "ZLN Session: Started background task 1",
                                         "ZLN Session: Time left: 999.000000",
                                         "ZLN Session: end monitor background task 1"));
  EXPECT_THAT(delegate->told, IsEmpty());
}

TEST_F(ZLNReportBackgroundMonitorTest, ATaskIsEndedOnce) {
  env.clock.at(0.5, [&] {
    monitor->endTask();
    monitor->endTask();
  });
  makeMonitor();

  goToBackground();

  EXPECT_THAT(env.backgroundTasks.ended(), ElementsAre(1));
  EXPECT_EQ(1u, log().count("ZLN Session: end monitor background task 1"));
}

TEST_F(ZLNReportBackgroundMonitorTest, AnExpiredTaskIsForgottenNotEndedAndNobodyIsTold) {
  env.backgroundTasks.remainingTime = 500;
  env.clock.at(1.5, [&] { env.backgroundTasks.expire(1); });
  makeMonitor();

  goToBackground();
  monitor.reset();

  EXPECT_THAT(
      log().lines(),
      ElementsAre("ZLN Session: Starting background task", "ZLN Session: Started background task 1",
                  "ZLN Session: Time left: 999.000000", "ZLN Session: Time left: 500.000000",
                  "ZLN Session: Background task is getting killed 1"));
  EXPECT_EQ(2.0, env.clock.slept());
  EXPECT_THAT(delegate->told, IsEmpty());
  EXPECT_THAT(env.backgroundTasks.ended(), IsEmpty());
}

TEST_F(ZLNReportBackgroundMonitorTest, ExpirationDuringTheLastStepTellsNobody) {
  setLimit(2);
  env.backgroundTasks.remainingTime = 500;
  env.clock.at(1.5, [&] { env.backgroundTasks.expire(1); });
  makeMonitor();

  goToBackground();

  EXPECT_THAT(delegate->told, IsEmpty());
  EXPECT_FALSE(log().contains("ZLN Session: Stopped background task 0"));
}

TEST_F(ZLNReportBackgroundMonitorTest, CancelAfterExpirationEndsNothing) {
  env.clock.at(0.25, [&] { env.backgroundTasks.expire(1); });
  env.clock.at(0.5, [&] { monitor->cancel(); });
  makeMonitor();

  goToBackground();

  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: Starting background task",
                                         "ZLN Session: Started background task 1",
                                         "ZLN Session: Time left: 999.000000",
                                         "ZLN Session: Background task is getting killed 1"));
  EXPECT_THAT(env.backgroundTasks.ended(), IsEmpty());
}

TEST_F(ZLNReportBackgroundMonitorTest, CancelBeforeTheTaskIsBegunLeavesItOpen) {
  HookedProcess process(env);
  beginMonitoring();
  process.when("ZLN Session: Starting background task", [&] { monitor->cancel(); });
  makeMonitor();
  log().clear();

  goToBackground();

  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: Starting background task",
                                         "ZLN Session: Started background task 1"));
  EXPECT_THAT(env.backgroundTasks.open(), ElementsAre(1));
  EXPECT_THAT(delegate->told, IsEmpty());
}

TEST_F(ZLNReportBackgroundMonitorTest, CancelOnceTheTaskIsBegunEndsIt) {
  HookedProcess process(env);
  beginMonitoring();
  process.when("ZLN Session: Started background task 1", [&] { monitor->cancel(); });
  makeMonitor();
  log().clear();

  goToBackground();

  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: Starting background task",
                                         "ZLN Session: Started background task 1",
                                         "ZLN Session: end monitor background task 1"));
  EXPECT_THAT(env.backgroundTasks.ended(), ElementsAre(1));
  EXPECT_THAT(delegate->told, IsEmpty());
}

TEST_F(ZLNReportBackgroundMonitorTest, ExpirationBeforeTheFirstStepEndsTheWait) {
  HookedProcess process(env);
  beginMonitoring();
  setLimit(0);
  process.when("ZLN Session: Started background task 1", [&] { env.backgroundTasks.expire(1); });
  makeMonitor();
  log().clear();

  goToBackground();

  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: Starting background task",
                                         "ZLN Session: Started background task 1",
                                         "ZLN Session: Background task is getting killed 1"));
  EXPECT_THAT(delegate->told, IsEmpty());
}

TEST_F(ZLNReportBackgroundMonitorTest, ExpirationOnceTheTimeIsUpComesTooLate) {
  HookedProcess process(env);
  beginMonitoring();
  setLimit(0);
  process.when("ZLN Session: Sending stop report", [&] { env.backgroundTasks.expire(1); });
  makeMonitor();
  log().clear();

  goToBackground();

  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: Starting background task",
                                         "ZLN Session: Started background task 1",
                                         "ZLN Session: Sending stop report from background task 1",
                                         "ZLN Session: Background task is getting killed 1",
                                         "ZLN Session: Stopped background task 0"));
  EXPECT_THAT(delegate->told, ElementsAre(monitor.get()));
}

TEST_F(ZLNReportBackgroundMonitorTest, ExpirationWithoutATaskIsSilent) {
  env.clock.at(0.5, [&] {
    monitor->setUploadTask(kBackgroundTaskInvalid);
    env.backgroundTasks.expire(1);
  });
  makeMonitor();

  goToBackground();

  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: Starting background task",
                                         "ZLN Session: Started background task 1",
                                         "ZLN Session: Time left: 999.000000"));
}

TEST_F(ZLNReportBackgroundMonitorTest, ExpirationAfterTheMonitorIsGoneIsSilent) {
  setLimit(0);
  makeMonitor();
  env.app.enterBackground();
  monitor->cancel();
  env.dispatch.runGlobal();
  // Forgotten by the monitor, still open in the system.
  monitor->setUploadTask(kBackgroundTaskInvalid);
  monitor.reset();
  log().clear();

  env.backgroundTasks.expire(1);

  EXPECT_THAT(log().lines(), IsEmpty());
}

TEST_F(ZLNReportBackgroundMonitorTest, WhenTheSystemRefusesATaskNobodyIsTold) {
  setLimit(0);
  env.backgroundTasks.nextInvalid = true;
  makeMonitor();

  goToBackground();

  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: Starting background task",
                                         "ZLN Session: Started background task 0"));
  EXPECT_THAT(delegate->told, IsEmpty());
  EXPECT_THAT(env.backgroundTasks.ended(), IsEmpty());
}

TEST_F(ZLNReportBackgroundMonitorTest, WithoutMultitaskingSupportTheMonitorNeverStarts) {
  env.backgroundTasks.offersMultitasking = false;
  makeMonitor();

  goToBackground();

  EXPECT_THAT(log().lines(), IsEmpty());
  EXPECT_THAT(delegate->told, IsEmpty());
  EXPECT_EQ(0u, env.backgroundTasks.begun());
}

TEST_F(ZLNReportBackgroundMonitorTest, WithoutBeginTheBackgroundStartsNothing) {
  makeMonitor();
  env.backgroundTasks.offersBeginTask = false;

  env.app.enterBackground();

  EXPECT_EQ(0u, env.dispatch.globalCount());
  EXPECT_THAT(log().lines(), IsEmpty());
}

TEST_F(ZLNReportBackgroundMonitorTest, WithoutEndCancelLeavesTheTaskToTheDisposal) {
  env.backgroundTasks.offersEndTask = false;
  env.clock.at(0.5, [&] { monitor->cancel(); });
  makeMonitor();

  goToBackground();

  EXPECT_THAT(env.backgroundTasks.open(), ElementsAre(1));
  EXPECT_EQ(1u, monitor->uploadTask());
  EXPECT_THAT(delegate->told, IsEmpty());

  monitor.reset();

  EXPECT_THAT(
      log().lines(),
      ElementsAre("ZLN Session: Starting background task", "ZLN Session: Started background task 1",
                  "ZLN Session: Time left: 999.000000",
                  "ZLN Session: end monitor background task (on dealloc) 1"));
  EXPECT_THAT(env.backgroundTasks.ended(), ElementsAre(1));
}

TEST_F(ZLNReportBackgroundMonitorTest, TheDelegateIsHeldWeakly) {
  makeMonitor();
  const std::weak_ptr<Delegate> weak = delegate;

  delegate.reset();

  EXPECT_TRUE(weak.expired());
  EXPECT_EQ(nullptr, monitor->delegate());
}

TEST_F(ZLNReportBackgroundMonitorTest, WithoutADelegateTheTaskIsEndedAllTheSame) {
  setLimit(1);
  env.clock.at(0.5, [&] { delegate.reset(); });
  makeMonitor();

  goToBackground();

  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: Starting background task",
                                         "ZLN Session: Started background task 1",
                                         "ZLN Session: Time left: 999.000000",
                                         "ZLN Session: Sending stop report from background task 1",
                                         "ZLN Session: Stopped background task 1"));
  EXPECT_THAT(env.backgroundTasks.ended(), ElementsAre(1));
}

TEST_F(ZLNReportBackgroundMonitorTest, ADelegateThatWasReplacedIsNotTold) {
  setLimit(0);
  makeMonitor();
  const auto other = std::make_shared<Delegate>();

  monitor->setDelegate(other);
  goToBackground();

  EXPECT_THAT(delegate->told, IsEmpty());
  EXPECT_THAT(other->told, ElementsAre(monitor.get()));
}

TEST_F(ZLNReportBackgroundMonitorTest, TheWorkerKeepsTheMonitorUntilItReturns) {
  setLimit(2);
  makeMonitor();
  const std::weak_ptr<ZLNReportBackgroundMonitor> weak = monitor;
  env.app.enterBackground();

  monitor.reset();

  EXPECT_FALSE(weak.expired());

  env.dispatch.runGlobal();

  EXPECT_EQ(1u, delegate->told.size());
  EXPECT_TRUE(weak.expired());
}

TEST_F(ZLNReportBackgroundMonitorTest, AMonitorThatIsGoneStartsNothing) {
  makeMonitor();
  monitor.reset();

  env.app.enterBackground();

  EXPECT_EQ(0u, env.dispatch.globalCount());
}

TEST_F(ZLNReportBackgroundMonitorTest, EachTimeInTheBackgroundHasAWorkerAndATaskOfItsOwn) {
  setLimit(1);
  makeMonitor();
  env.app.enterBackground();
  env.app.enterBackground();

  env.dispatch.runGlobal();

  EXPECT_EQ(2u, env.backgroundTasks.begun());
  EXPECT_THAT(env.backgroundTasks.ended(), ElementsAre(1, 2));
  EXPECT_THAT(delegate->told, ElementsAre(monitor.get(), monitor.get()));
}

TEST_F(ZLNReportBackgroundMonitorTest, ASecondWorkerTakesTheFirstOnesTaskAway) {
  setLimit(2);
  env.backgroundTasks.remainingTime = 500;
  makeMonitor();
  env.app.enterBackground();
  // The second worker runs as a whole during the first one's first step.
  env.clock.at(0.5, [&] { goToBackground(); });

  env.dispatch.runGlobal();

  // The first one finds no task and returns; its own stays open.
  EXPECT_EQ(1u, delegate->told.size());
  EXPECT_THAT(env.backgroundTasks.ended(), ElementsAre(2));
  EXPECT_THAT(env.backgroundTasks.open(), ElementsAre(1));
}

TEST_F(ZLNReportBackgroundMonitorTest, TheTextNamesTheMonitorAndItsTask) {
  makeMonitor();

  EXPECT_EQ("background task monitor " + addressText(monitor.get()) + " with task id 0",
            monitor->description());

  monitor->setUploadTask(7);

  EXPECT_EQ("background task monitor " + addressText(monitor.get()) + " with task id 7",
            monitor->description());
}

TEST_F(ZLNReportBackgroundMonitorTest, TheTextShowsTheTaskAsA32BitInteger) {
  makeMonitor();

  monitor->setUploadTask(std::numeric_limits<std::uint64_t>::max());

  EXPECT_EQ("background task monitor " + addressText(monitor.get()) + " with task id -1",
            monitor->description());
}

}  // namespace
}  // namespace zln
