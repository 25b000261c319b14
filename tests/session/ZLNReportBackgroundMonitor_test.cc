#include "session/ZLNReportBackgroundMonitor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "config/ZLNReportingConfig.h"
#include "platform/identity.h"
#include "support/ZLNDirectories.h"
#include "tests/support/host_fixture.h"

namespace zln {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr char kStarting[] = "Starting background task";
constexpr char kStarted[] = "Started background task 1";
constexpr char kFirstStep[] = "Time left: 999.000000";
constexpr char kSending[] = "Sending stop report from background task 1";
constexpr char kStopped[] = "Stopped background task 1";
constexpr char kEnded[] = "end monitor background task 1";
constexpr char kEndedOnDealloc[] = "end monitor background task (on dealloc) 1";
constexpr char kKilled[] = "Background task is getting killed 1";

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
  // The settings stand before the monitor reads them, so that the log holds its lines only.
  ZLNReportBackgroundMonitorTest() {
    ZLNDirectories::makeDirectories();
    ZLNReportingConfig::sharedConfig();
    newLines();
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

  void makeMonitorAndGoToBackground() {
    makeMonitor();
    goToBackground();
  }

  // The same without a limit, while something happens when that line is logged.
  void goToBackgroundActingAt(const std::string& beginning, std::function<void()> act) {
    setLimit(0);
    whenLogged(beginning, std::move(act));
    makeMonitorAndGoToBackground();
  }

  // How many steps a monitor made now waits.
  double steps() {
    const double before = env.clock.slept();
    makeMonitorAndGoToBackground();
    EXPECT_THAT(std::exchange(delegate->told, {}), ElementsAre(monitor.get()));
    return env.clock.slept() - before;
  }

  std::shared_ptr<Delegate> delegate = std::make_shared<Delegate>();
  std::shared_ptr<ZLNReportBackgroundMonitor> monitor;
};

TEST_F(ZLNReportBackgroundMonitorTest, OnlyTheBackgroundStartsTheWorkerWhichRunsByItself) {
  makeMonitor();

  EXPECT_EQ(kBackgroundTaskInvalid, monitor->uploadTask());
  EXPECT_EQ(delegate, monitor->delegate());

  env.app.resignActive();
  env.app.becomeActive();
  env.app.enterForeground();
  env.app.terminate();

  EXPECT_EQ(0u, env.dispatch.globalCount());
  expectLines({"Config is not stale. Update skipped."});

  env.app.enterBackground();

  EXPECT_EQ(1u, env.dispatch.globalCount());
  expectLines({});
  EXPECT_EQ(0u, env.backgroundTasks.begun());
}

TEST_F(ZLNReportBackgroundMonitorTest, WithTheDefaultLimitTheDelegateIsToldAfterSixtySteps) {
  env.backgroundTasks.remainingTime = 180.5;

  makeMonitorAndGoToBackground();

  std::vector<std::string> expected = {kStarting, kStarted, kFirstStep};
  expected.insert(expected.end(), 59, "Time left: 180.500000");
  expected.push_back(kSending);
  expected.push_back(kStopped);
  EXPECT_EQ(expected, newLines());
  EXPECT_EQ(60.0, env.clock.slept());
  EXPECT_THAT(delegate->told, ElementsAre(monitor.get()));
  EXPECT_EQ(kBackgroundTaskInvalid, monitor->uploadTask());
  EXPECT_THAT(env.backgroundTasks.ended(), ElementsAre(1));
}

TEST_F(ZLNReportBackgroundMonitorTest, TheWorkerTellsTheDelegateThenEndsItsTaskAndThenLogsIt) {
  setLimit(1);
  delegate->whenTold = [&] { env.journal.add("told"); };
  makeMonitor();
  env.journal.begin();

  goToBackground();

  expectCalls({"global async", "log: Starting background task", "begin 1",
               "log: Started background task 1", "log: Time left: 999.000000", "sleep 1",
               "main sync", "remaining", "log: Sending stop report from background task 1", "told",
               "end 1", "log: Stopped background task 1"});
}

TEST_F(ZLNReportBackgroundMonitorTest, TheTimeLeftIsAskedForAfterEachStep) {
  setLimit(3);
  env.backgroundTasks.remainingTime = 500;
  env.clock.at(1.5, [&] { env.backgroundTasks.remainingTime = 30.25; });

  makeMonitorAndGoToBackground();

  expectLines({kStarting, kStarted, kFirstStep, "Time left: 500.000000", "Time left: 30.250000",
               kSending, kStopped});
}

TEST_F(ZLNReportBackgroundMonitorTest, TheLimitDecidesHowManyStepsAreWaited) {
  struct Row {
    float limit;
    double steps;
  };
  for (const auto& [limit, expected] :
       std::vector<Row>{{-1.0f, 0},
                        {0.0f, 0},
                        {0.001f, 1},
                        {1.0f, 1},
                        {2.0f, 2},
                        {2.5f, 3},
                        {61.0f, 61},
                        {std::numeric_limits<float>::quiet_NaN(), 0}}) {
    setLimit(limit);

    EXPECT_EQ(expected, steps()) << limit;
  }
}

TEST_F(ZLNReportBackgroundMonitorTest, TenSecondsOrLessLeftEndTheWait) {
  struct Row {
    double left;
    double steps;
  };
  setLimit(5);
  for (const auto& [left, expected] :
       std::vector<Row>{{10.001, 5},
                        {10, 1},
                        {0, 1},
                        {-1, 1},
                        {std::numeric_limits<double>::infinity(), 5},
                        {std::numeric_limits<double>::quiet_NaN(), 1}}) {
    env.backgroundTasks.remainingTime = left;

    EXPECT_EQ(expected, steps()) << left;
  }
}

TEST_F(ZLNReportBackgroundMonitorTest, TimeThatRunsLowOnTheWayEndsTheWait) {
  env.backgroundTasks.remainingTime = 25;
  env.clock.at(14.5, [&] { env.backgroundTasks.remainingTime = 10; });

  EXPECT_EQ(15.0, steps());
}

TEST_F(ZLNReportBackgroundMonitorTest, TheLimitIsReadWhenTheWorkerBeginsAndNotAgain) {
  setLimit(5);
  makeMonitor();
  env.app.enterBackground();
  setLimit(20);
  env.clock.at(3.5, [&] { setLimit(5); });
  env.clock.at(10.5, [&] { setLimit(100); });

  env.dispatch.runGlobal();

  EXPECT_EQ(20.0, env.clock.slept());
}

TEST_F(ZLNReportBackgroundMonitorTest, TheTimeLeftIsAskedForOnTheMainThread) {
  env.clock.at(0.5,
               [&] { env.dispatch.mainAsync([&] { env.backgroundTasks.remainingTime = 8; }); });

  // What waited on the main thread has run before the first answer.
  EXPECT_EQ(1.0, steps());
}

TEST_F(ZLNReportBackgroundMonitorTest, TheDelegateIsToldOnTheWorkersThreadWhileTheTaskIsOpen) {
  setLimit(0);
  bool waitingMainTaskRan = false;
  std::vector<BackgroundTaskId> openWhenTold;
  BackgroundTaskId taskWhenTold = 0;
  delegate->whenTold = [&] {
    env.dispatch.mainAsync([&] { waitingMainTaskRan = true; });
    // On the main thread this would not wait for the task before it.
    env.dispatch.mainSync([] {});
    openWhenTold = env.backgroundTasks.open();
    taskWhenTold = monitor->uploadTask();
  };

  makeMonitorAndGoToBackground();

  expectLines({kStarting, kStarted, kSending, kStopped});
  EXPECT_TRUE(waitingMainTaskRan);
  EXPECT_THAT(openWhenTold, ElementsAre(1));
  EXPECT_EQ(1u, taskWhenTold);
  EXPECT_THAT(env.backgroundTasks.open(), IsEmpty());
}

// Cancellation.

TEST_F(ZLNReportBackgroundMonitorTest, CancelDuringTheWaitEndsTheTaskAtOnceAndTellsNobody) {
  std::vector<BackgroundTaskId> openAfterCancel = {99};
  env.clock.at(1.5, [&] {
    monitor->cancel();
    openAfterCancel = env.backgroundTasks.open();
  });
  env.backgroundTasks.remainingTime = 500;

  makeMonitorAndGoToBackground();

  expectLines({kStarting, kStarted, kFirstStep, "Time left: 500.000000", kEnded});
  EXPECT_THAT(openAfterCancel, IsEmpty());
  EXPECT_EQ(2.0, env.clock.slept());
  EXPECT_THAT(delegate->told, IsEmpty());
  EXPECT_THAT(env.backgroundTasks.ended(), ElementsAre(1));
  EXPECT_EQ(kBackgroundTaskInvalid, monitor->uploadTask());
}

TEST_F(ZLNReportBackgroundMonitorTest, CancelEndsTheWaitThenLogsAndThenEndsTheTask) {
  env.clock.at(0.5, [&] {
    // Another worker that begins at that moment finds the wait over.
    env.journal.when("end 1", [&] { goToBackground(); });
    env.journal.begin();
    monitor->cancel();
  });

  makeMonitorAndGoToBackground();

  expectCalls({"log: end monitor background task 1", "end 1", "global async",
               "log: Starting background task", "begin 2", "log: Started background task 2",
               "main sync", "remaining"});
}

TEST_F(ZLNReportBackgroundMonitorTest, CancelDuringTheLastStepTellsNobody) {
  setLimit(1);
  env.clock.at(0.5, [&] { monitor->cancel(); });

  makeMonitorAndGoToBackground();

  EXPECT_THAT(delegate->told, IsEmpty());
  expectLines({kStarting, kStarted, kFirstStep, kEnded});
}

TEST_F(ZLNReportBackgroundMonitorTest, CancelWithoutATaskIsSilent) {
  makeMonitor();

  monitor->cancel();
  monitor.reset();

  expectLines({});
  EXPECT_THAT(env.backgroundTasks.ended(), IsEmpty());
}

TEST_F(ZLNReportBackgroundMonitorTest, CancelBeforeTheWorkerBeganLeavesItsTaskToTheDisposal) {
  setLimit(0);
  makeMonitor();
  env.app.enterBackground();

  monitor->cancel();
  env.dispatch.runGlobal();

  EXPECT_EQ(1u, monitor->uploadTask());
  EXPECT_THAT(env.backgroundTasks.open(), ElementsAre(1));
  expectLines({kStarting, kStarted});

  env.journal.begin();
  monitor.reset();

  expectCalls({"log: end monitor background task (on dealloc) 1", "end 1"});
  EXPECT_EQ(0.0, env.clock.slept());
  EXPECT_THAT(delegate->told, IsEmpty());
  EXPECT_THAT(env.backgroundTasks.ended(), ElementsAre(1));
}

TEST_F(ZLNReportBackgroundMonitorTest, ATaskThatTheWorkerLeftOpenIsEndedByCancel) {
  makeMonitor();
  env.app.enterBackground();
  monitor->cancel();
  env.dispatch.runGlobal();

  monitor->cancel();

  expectLines({kStarting, kStarted, kEnded});
  EXPECT_EQ(0.0, env.clock.slept());
  EXPECT_THAT(env.backgroundTasks.ended(), ElementsAre(1));
}

TEST_F(ZLNReportBackgroundMonitorTest, CancelWhileTheDelegateIsToldLeavesNoTaskToStop) {
  setLimit(0);
  delegate->whenTold = [&] { monitor->cancel(); };

  makeMonitorAndGoToBackground();

  expectLines({kStarting, kStarted, kSending, kEnded, "Stopped background task 0"});
  EXPECT_THAT(env.backgroundTasks.open(), IsEmpty());
}

TEST_F(ZLNReportBackgroundMonitorTest, EndingTheTaskEndsTheWaitTooAndATaskIsEndedOnce) {
  env.clock.at(0.5, [&] {
    monitor->endTask();
    monitor->endTask();
  });

  makeMonitorAndGoToBackground();

  expectLines({kStarting, kStarted, kFirstStep, kEnded});
  EXPECT_THAT(delegate->told, IsEmpty());
  EXPECT_THAT(env.backgroundTasks.ended(), ElementsAre(1));
}

TEST_F(ZLNReportBackgroundMonitorTest, CancelBeforeTheTaskIsBegunLeavesItOpen) {
  goToBackgroundActingAt(kStarting, [&] { monitor->cancel(); });

  expectLines({kStarting, kStarted});
  EXPECT_THAT(env.backgroundTasks.open(), ElementsAre(1));
  EXPECT_THAT(delegate->told, IsEmpty());
}

TEST_F(ZLNReportBackgroundMonitorTest, CancelOnceTheTaskIsBegunEndsIt) {
  goToBackgroundActingAt(kStarted, [&] { monitor->cancel(); });

  expectLines({kStarting, kStarted, kEnded});
  EXPECT_THAT(env.backgroundTasks.ended(), ElementsAre(1));
  EXPECT_THAT(delegate->told, IsEmpty());
}

// Expiration.

TEST_F(ZLNReportBackgroundMonitorTest, AnExpiredTaskIsForgottenNotEndedAndNobodyIsTold) {
  for (const bool cancels : {false, true}) {
    SCOPED_TRACE(cancels);
    const std::string task = std::to_string(env.backgroundTasks.begun() + 1);
    env.clock.at(0.25, [&] { env.backgroundTasks.expire(monitor->uploadTask()); });
    env.clock.at(0.5, [&] {
      if (cancels) monitor->cancel();
    });

    makeMonitorAndGoToBackground();
    monitor.reset();

    expectLines({kStarting, "Started background task " + task, kFirstStep,
                 "Background task is getting killed " + task});
    EXPECT_THAT(delegate->told, IsEmpty());
    EXPECT_THAT(env.backgroundTasks.ended(), IsEmpty());
  }
  EXPECT_EQ(2.0, env.clock.slept());
}

TEST_F(ZLNReportBackgroundMonitorTest, ExpirationDuringTheLastStepTellsNobody) {
  setLimit(1);
  env.clock.at(0.5, [&] { env.backgroundTasks.expire(1); });

  makeMonitorAndGoToBackground();

  EXPECT_THAT(delegate->told, IsEmpty());
  expectLines({kStarting, kStarted, kFirstStep, kKilled});
}

TEST_F(ZLNReportBackgroundMonitorTest, ExpirationBeforeTheFirstStepEndsTheWait) {
  goToBackgroundActingAt(kStarted, [&] { env.backgroundTasks.expire(1); });

  expectLines({kStarting, kStarted, kKilled});
  EXPECT_THAT(delegate->told, IsEmpty());
}

TEST_F(ZLNReportBackgroundMonitorTest, ExpirationOnceTheTimeIsUpComesTooLate) {
  goToBackgroundActingAt(kSending, [&] { env.backgroundTasks.expire(1); });

  expectLines({kStarting, kStarted, kSending, kKilled, "Stopped background task 0"});
  EXPECT_THAT(delegate->told, ElementsAre(monitor.get()));
}

TEST_F(ZLNReportBackgroundMonitorTest, ExpirationWithoutATaskIsSilent) {
  env.clock.at(0.5, [&] {
    monitor->setUploadTask(kBackgroundTaskInvalid);
    env.backgroundTasks.expire(1);
  });

  makeMonitorAndGoToBackground();

  expectLines({kStarting, kStarted, kFirstStep});
}

TEST_F(ZLNReportBackgroundMonitorTest, ExpirationAfterTheMonitorIsGoneIsSilent) {
  makeMonitor();
  env.app.enterBackground();
  monitor->cancel();
  env.dispatch.runGlobal();
  // Forgotten by the monitor, still open in the system.
  monitor->setUploadTask(kBackgroundTaskInvalid);
  monitor.reset();
  newLines();

  env.backgroundTasks.expire(1);

  expectLines({});
}

// What the system offers.

TEST_F(ZLNReportBackgroundMonitorTest, WhenTheSystemRefusesATaskNobodyIsTold) {
  setLimit(0);
  env.backgroundTasks.nextInvalid = true;

  makeMonitorAndGoToBackground();

  expectLines({kStarting, "Started background task 0"});
  EXPECT_THAT(delegate->told, IsEmpty());
  EXPECT_THAT(env.backgroundTasks.ended(), IsEmpty());
}

TEST_F(ZLNReportBackgroundMonitorTest, WithoutMultitaskingBeginOrTheMonitorItselfNoWorkerStarts) {
  env.backgroundTasks.offersMultitasking = false;
  makeMonitor();
  env.app.enterBackground();

  env.backgroundTasks.offersMultitasking = true;
  makeMonitor();
  env.backgroundTasks.offersBeginTask = false;
  env.app.enterBackground();

  env.backgroundTasks.offersBeginTask = true;
  monitor.reset();
  env.app.enterBackground();

  EXPECT_EQ(0u, env.dispatch.globalCount());
}

TEST_F(ZLNReportBackgroundMonitorTest, WithoutEndCancelLeavesTheTaskToTheDisposal) {
  env.backgroundTasks.offersEndTask = false;
  env.clock.at(0.5, [&] { monitor->cancel(); });

  makeMonitorAndGoToBackground();

  EXPECT_THAT(env.backgroundTasks.open(), ElementsAre(1));
  EXPECT_EQ(1u, monitor->uploadTask());
  EXPECT_THAT(delegate->told, IsEmpty());

  monitor.reset();

  expectLines({kStarting, kStarted, kFirstStep, kEndedOnDealloc});
  EXPECT_THAT(env.backgroundTasks.ended(), ElementsAre(1));
}

// The delegate, and several workers.

TEST_F(ZLNReportBackgroundMonitorTest,
       TheDelegateIsHeldWeaklyAndWithoutItTheTaskIsEndedAllTheSame) {
  setLimit(1);
  env.clock.at(0.5, [&] {
    delegate.reset();
    EXPECT_EQ(nullptr, monitor->delegate());
  });

  makeMonitorAndGoToBackground();

  expectLines({kStarting, kStarted, kFirstStep, kSending, kStopped});
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

  EXPECT_THAT(delegate->told, SizeIs(1));
  EXPECT_TRUE(weak.expired());
}

TEST_F(ZLNReportBackgroundMonitorTest, EachTimeInTheBackgroundHasAWorkerAndATaskOfItsOwn) {
  setLimit(1);
  makeMonitor();
  env.app.enterBackground();
  env.app.enterBackground();

  env.dispatch.runGlobal();

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
  EXPECT_THAT(delegate->told, SizeIs(1));
  EXPECT_THAT(env.backgroundTasks.ended(), ElementsAre(2));
  EXPECT_THAT(env.backgroundTasks.open(), ElementsAre(1));
}

TEST_F(ZLNReportBackgroundMonitorTest, TheTextNamesTheMonitorAndItsTaskAsA32BitInteger) {
  makeMonitor();
  const std::string text =
      "background task monitor " + addressText(monitor.get()) + " with task id ";

  EXPECT_EQ(text + "0", monitor->description());

  monitor->setUploadTask(7);

  EXPECT_EQ(text + "7", monitor->description());

  monitor->setUploadTask(std::numeric_limits<std::uint64_t>::max());

  EXPECT_EQ(text + "-1", monitor->description());
}

}  // namespace
}  // namespace zln
