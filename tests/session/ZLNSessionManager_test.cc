#include "session/ZLNSessionManager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "config/ZLNReportingConfig.h"
#include "platform/identity.h"
#include "support/ZLNDirectories.h"
#include "support/ZLNReportingUtils.h"
#include "tests/support/hooked_process.h"
#include "tests/support/host_fixture.h"
#include "tests/support/sent_reports.h"
#include "transport/ZLNReportingManager.h"

namespace zln {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// The clock stands at 2023-11-14 22:13:20 when a test begins; all that is sent is accepted.
class ZLNSessionManagerTest : public HostTest {
 protected:
  void SetUp() override {
    env.http.always([](const HttpRequest&) { return okReply("{\"success\":true}"); });
  }

  // Makes the shared objects, as a host that starts session reporting does.
  void makeManager() {
    ZLNDirectories::makeDirectories();
    config = ZLNReportingConfig::sharedConfig();
    ZLNReportingManager::sharedManager();
    manager = ZLNSessionManager::sharedManager();
  }

  void start() {
    makeManager();
    env.dispatch.runAll();
  }

  // The same on an installation that has had its first session. Nothing has been sent yet by this
  // process but the start report.
  void startLater() {
    env.defaults.set("com.zelnor.firstSessionSent", Number::boolean(true));
    start();
  }

  void beginNextProcess() {
    config.reset();
    manager.reset();
    restart();
    start();
  }

  // The lines of sessions, their manager and its monitors: those of settings and sending are left
  // out.
  std::vector<std::string> sessionLines() {
    std::vector<std::string> found;
    for (const std::string& line : log().lines()) {
      bool isOther = false;
      for (const char* other : {"Config ", "config params", "queue report ", "transmit reports",
                                "saved ", "saving report ", "sending report", "posting report",
                                "report ", "manager background task"}) {
        isOther = isOther || line.starts_with(std::string("ZLN Session: ") + other);
      }
      if (!isOther) found.push_back(line);
    }
    return found;
  }

  std::string currentMonitorText() { return manager->monitor()->description(); }

  std::shared_ptr<ZLNReportingConfig> config;
  std::shared_ptr<ZLNSessionManager> manager;
};

TEST_F(ZLNSessionManagerTest, TheSharedManagerIsAlwaysTheSame) {
  EXPECT_EQ(ZLNSessionManager::sharedManager(), ZLNSessionManager::sharedManager());
  EXPECT_EQ(1u, env.dispatch.mainCount());
}

TEST_F(ZLNSessionManagerTest, TheFirstSessionWaitsForTheMainThread) {
  makeManager();

  EXPECT_EQ(nullptr, manager->session());
  EXPECT_EQ(std::nullopt, manager->currentSessionId());

  env.dispatch.runMain();

  ASSERT_NE(nullptr, manager->session());
  EXPECT_TRUE(manager->session()->running());
}

TEST_F(ZLNSessionManagerTest, TheFirstSessionBeginsAtThatTime) {
  makeManager();
  env.clock.advance(2.5);

  env.dispatch.runMain();

  EXPECT_EQ(Date{1700000002.5}, manager->session()->startTime());
}

TEST_F(ZLNSessionManagerTest, NotificationsAreFollowedOnlyOnceTheFirstSessionHasStarted) {
  makeManager();

  env.app.resignActive();
  env.app.becomeActive();
  env.app.terminate();

  EXPECT_EQ(nullptr, manager->session());
  EXPECT_EQ(nullptr, manager->monitor());

  env.dispatch.runMain();
  env.app.resignActive();

  ASSERT_NE(nullptr, manager->session());
  EXPECT_FALSE(manager->session()->running());
  EXPECT_NE(nullptr, manager->monitor());
}

TEST_F(ZLNSessionManagerTest, TheFirstSessionOfAnInstallationSendsAFirstSessionReportOnly) {
  ZLNReportingUtils::setMarlwickVersion("4.5.6");

  start();

  const std::vector<SentReport> sent = sentReports(env.http);
  ASSERT_THAT(sent, SizeIs(1));
  EXPECT_EQ("https://session-first.invalid/session", sent[0].url);
  const Dictionary& body = sent[0].body;
  EXPECT_THAT(keysOf(body), ElementsAre("appVersion", "bundleId", "country", "device", "mwVersion",
                                        "os", "platform", "reportingVersion", "sdkVersion",
                                        "sessionId", "startTime", "type", "userId"));
  EXPECT_EQ("ReportTypeSessionFirst", textOf(body, "type"));
  EXPECT_EQ("00000000-0000-4000-8000-000000000001", textOf(body, "userId"));
  EXPECT_EQ("00000000-0000-4000-8000-000000000002", textOf(body, "sessionId"));
  EXPECT_EQ(1700000000.0, numberOf(body, "startTime"));
  EXPECT_EQ("4.5.6", textOf(body, "mwVersion"));
  EXPECT_EQ("DE", textOf(body, "country"));
}

TEST_F(ZLNSessionManagerTest, TheFirstSessionIsRememberedOnDisk) {
  start();

  const auto& values = env.defaults.values();
  ASSERT_TRUE(values.contains("com.zelnor.firstSessionSent"));
  EXPECT_EQ(Value(Number::boolean(true)), values.at("com.zelnor.firstSessionSent"));
  // Once for the user identifier and once for this.
  EXPECT_EQ(2u, env.defaults.syncCount());
}

TEST_F(ZLNSessionManagerTest, EveryLaterSessionOfAProcessSendsAStartReport) {
  start();
  manager->stopSession();

  env.app.becomeActive();
  env.dispatch.runAll();

  EXPECT_THAT(sentTypes(env.http), ElementsAre("ReportTypeSessionFirst", "ReportTypeSessionStop",
                                               "ReportTypeSessionStart"));
  EXPECT_EQ("https://session-start.invalid/session", sentReports(env.http)[2].url);
}

TEST_F(ZLNSessionManagerTest, TheSessionsOfLaterProcessesSendStartReports) {
  start();

  beginNextProcess();

  EXPECT_THAT(sentTypes(env.http), ElementsAre("ReportTypeSessionFirst", "ReportTypeSessionStart"));
  EXPECT_EQ(2u, env.defaults.syncCount());
}

TEST_F(ZLNSessionManagerTest, WhateverStandsInItsPlaceTheFirstSessionIsRemembered) {
  for (const Value& value : {Value(Number::boolean(false)), Value("no"), Value(Array{})}) {
    SCOPED_TRACE(value.description());
    env.defaults.set("com.zelnor.firstSessionSent", value);

    beginNextProcess();

    EXPECT_EQ("ReportTypeSessionStart", sentTypes(env.http).back());
    EXPECT_EQ(value, env.defaults.get("com.zelnor.firstSessionSent"));
  }
}

TEST_F(ZLNSessionManagerTest, AFirstSessionReportThatIsSwitchedOffIsNeverOfferedAgain) {
  makeManager();
  config->setSendFirstSessionReports(false);
  env.dispatch.runAll();

  EXPECT_THAT(sentTypes(env.http), IsEmpty());
  EXPECT_TRUE(env.defaults.values().contains("com.zelnor.firstSessionSent"));

  beginNextProcess();

  EXPECT_THAT(sentTypes(env.http), ElementsAre("ReportTypeSessionStart"));
}

TEST_F(ZLNSessionManagerTest, WhatHappensWhileTheFirstSessionStartsIsNotFollowedYet) {
  HookedProcess process(env);
  setLevel(3);
  makeManager();
  process.when("ZLN Session: started new session", [&] { env.app.resignActive(); });

  env.dispatch.runMain();

  EXPECT_TRUE(manager->session()->running());
  EXPECT_EQ(nullptr, manager->monitor());
}

TEST_F(ZLNSessionManagerTest, TheFirstSessionIsRememberedOnlyOnceItsReportIsQueued) {
  HookedProcess process(env);
  setLevel(3);
  makeManager();
  bool rememberedWhenQueued = true;
  process.when("ZLN Session: saved 1 reports", [&] {
    rememberedWhenQueued = env.defaults.values().contains("com.zelnor.firstSessionSent");
  });

  env.dispatch.runMain();

  EXPECT_FALSE(rememberedWhenQueued);
  EXPECT_TRUE(env.defaults.values().contains("com.zelnor.firstSessionSent"));
}

TEST_F(ZLNSessionManagerTest, AReportThatIsNotYetDeliveredIsStored) {
  makeManager();

  env.dispatch.runMain();

  const std::vector<Dictionary> stored = storedReports(env.files);
  ASSERT_THAT(stored, SizeIs(1));
  EXPECT_EQ("ReportTypeSessionFirst", textOf(stored[0], "type"));
  EXPECT_EQ("00000000-0000-4000-8000-000000000002", textOf(stored[0], "sessionId"));
}

TEST_F(ZLNSessionManagerTest, ANewSessionIsLogged) {
  makeManager();
  setLevel(3);

  env.dispatch.runMain();

  EXPECT_THAT(sessionLines(),
              ElementsAre("ZLN Session: started new session session: [2023-11-14 22:13:20 +0000 - "
                          "(null)] 0.000000 sec."));
}

TEST_F(ZLNSessionManagerTest, StartingReplacesTheCurrentSessionWithoutStoppingIt) {
  startLater();
  const auto first = manager->session();

  manager->startNewSession();
  env.dispatch.runAll();

  EXPECT_NE(first, manager->session());
  EXPECT_TRUE(first->running());
  EXPECT_EQ(std::nullopt, first->stopTime());
  EXPECT_THAT(sentTypes(env.http), ElementsAre("ReportTypeSessionStart", "ReportTypeSessionStart"));
}

TEST_F(ZLNSessionManagerTest, TheCurrentSessionsIdentifierIsGiven) {
  startLater();

  EXPECT_EQ("00000000-0000-4000-8000-000000000002", manager->currentSessionId());

  manager->stopSession();

  EXPECT_EQ(std::nullopt, manager->currentSessionId());
}

TEST_F(ZLNSessionManagerTest, ResigningActivePausesTheSessionAndMakesAMonitor) {
  startLater();
  setLevel(3);
  env.clock.advance(30.5);

  env.app.resignActive();

  EXPECT_FALSE(manager->session()->running());
  EXPECT_EQ(Date{1700000030.5}, manager->session()->lastPauseTime());
  EXPECT_EQ(30.5f, manager->session()->totalDuration());
  ASSERT_NE(nullptr, manager->monitor());
  EXPECT_EQ(manager, manager->monitor()->delegate());
  EXPECT_THAT(sessionLines(),
              ElementsAre("ZLN Session: paused session session: [2023-11-14 22:13:20 +0000 - "
                          "(null)] 30.500000 sec.",
                          "ZLN Session: paused session session: [2023-11-14 22:13:20 +0000 - "
                          "(null)] 30.500000 sec., started monitor background task monitor " +
                              addressText(manager->monitor().get()) + " with task id 0"));
}

TEST_F(ZLNSessionManagerTest, EnteringTheBackgroundAlonePausesNothing) {
  startLater();

  env.app.enterBackground();

  EXPECT_TRUE(manager->session()->running());
  EXPECT_EQ(nullptr, manager->monitor());
}

TEST_F(ZLNSessionManagerTest, ComingToTheForegroundAloneResumesNothing) {
  startLater();
  env.app.resignActive();

  env.app.enterForeground();

  EXPECT_FALSE(manager->session()->running());
  EXPECT_NE(nullptr, manager->monitor());
}

TEST_F(ZLNSessionManagerTest, BecomingActiveResumesTheSessionAndCancelsTheMonitor) {
  startLater();
  env.clock.advance(30);
  env.app.resignActive();
  const std::string monitor = currentMonitorText();
  env.clock.advance(100);
  setLevel(3);

  env.app.becomeActive();

  EXPECT_TRUE(manager->session()->running());
  EXPECT_EQ(Date{1700000130}, manager->session()->lastResumeTime());
  EXPECT_EQ(nullptr, manager->monitor());
  EXPECT_THAT(sessionLines(),
              ElementsAre("ZLN Session: Session resumed, ending background task " + monitor,
                          "ZLN Session: resumed session session: [2023-11-14 22:13:20 +0000 - "
                          "(null)] 30.000000 sec."));
}

TEST_F(ZLNSessionManagerTest, TheFirstActivationIsAResumeOfTheRunningSession) {
  makeManager();
  env.dispatch.runMain();
  const auto session = manager->session();
  setLevel(3);

  env.app.becomeActive();

  EXPECT_EQ(session, manager->session());
  EXPECT_EQ(Date{1700000000}, session->lastResumeTime());
  EXPECT_THAT(sessionLines(),
              ElementsAre("ZLN Session: resuming a running session?",
                          "ZLN Session: resumed session session: [2023-11-14 22:13:20 +0000 - "
                          "(null)] 0.000000 sec."));
}

TEST_F(ZLNSessionManagerTest, ARunningSessionGoesOnHoweverOldItIs) {
  startLater();
  const auto session = manager->session();
  env.clock.advance(100000);

  env.app.becomeActive();

  EXPECT_EQ(session, manager->session());
}

TEST_F(ZLNSessionManagerTest, After599SecondsTheSameSessionResumes) {
  startLater();
  const auto session = manager->session();
  env.clock.advance(30);
  env.app.resignActive();
  env.clock.set(1700000030 + 599);

  env.app.becomeActive();
  env.clock.advance(7);
  env.app.resignActive();
  env.dispatch.runAll();

  EXPECT_EQ(session, manager->session());
  EXPECT_EQ(37.0f, session->totalDuration());
  EXPECT_THAT(sentTypes(env.http), ElementsAre("ReportTypeSessionStart"));
}

TEST_F(ZLNSessionManagerTest, AtTheLimitTheSameSessionResumes) {
  startLater();
  const auto session = manager->session();
  env.app.resignActive();
  env.clock.set(1700000600);

  env.app.becomeActive();

  EXPECT_EQ(session, manager->session());
  EXPECT_TRUE(session->running());
}

TEST_F(ZLNSessionManagerTest, After601SecondsTheOldSessionIsStoppedAtItsPauseAndANewOneStarts) {
  startLater();
  const auto old = manager->session();
  env.clock.advance(30);
  env.app.resignActive();
  env.clock.set(1700000030 + 601);

  env.app.becomeActive();
  env.dispatch.runAll();

  ASSERT_NE(nullptr, manager->session());
  EXPECT_NE(old, manager->session());
  EXPECT_EQ(Date{1700000631}, manager->session()->startTime());
  ASSERT_THAT(sentTypes(env.http), ElementsAre("ReportTypeSessionStart", "ReportTypeSessionStop",
                                               "ReportTypeSessionStart"));
  const SentReport stop = sentReports(env.http)[1];
  EXPECT_EQ("https://session-stop.invalid/session", stop.url);
  EXPECT_EQ("00000000-0000-4000-8000-000000000002", textOf(stop.body, "sessionId"));
  EXPECT_EQ(1700000000.0, numberOf(stop.body, "startTime"));
  EXPECT_EQ(1700000030.0, numberOf(stop.body, "stopTime"));
  EXPECT_EQ(30.0, numberOf(stop.body, "totalDuration"));
  const Dictionary next = sentReports(env.http)[2].body;
  EXPECT_EQ("00000000-0000-4000-8000-000000000003", textOf(next, "sessionId"));
  EXPECT_EQ(1700000631.0, numberOf(next, "startTime"));
}

TEST_F(ZLNSessionManagerTest, TheChangeOfSessionsIsLoggedInOrder) {
  startLater();
  env.clock.advance(30);
  env.app.resignActive();
  const std::string monitor = currentMonitorText();
  env.clock.set(1700000030 + 601);
  setLevel(3);

  env.app.becomeActive();

  EXPECT_THAT(sessionLines(),
              ElementsAre("ZLN Session: Session resumed, ending background task " + monitor,
                          "ZLN Session: Stopped session session: [2023-11-14 22:13:20 +0000 - "
                          "2023-11-14 22:13:50 +0000] 30.000000 sec.",
                          "ZLN Session: started new session session: [2023-11-14 22:23:51 +0000 - "
                          "(null)] 0.000000 sec."));
}

TEST_F(ZLNSessionManagerTest, ASuspensionInTheMiddleOfTheWaitCountsAsIdleTime) {
  startLater();
  env.app.resignActive();
  env.app.enterBackground();
  // The process stands still during the third step and goes on when the player returns.
  env.clock.at(2.5, [&] {
    env.clock.set(1700000601);
    env.app.enterForeground();
    env.app.becomeActive();
  });

  env.dispatch.runAll();

  EXPECT_EQ(3.0, env.clock.slept());
  EXPECT_TRUE(manager->session()->running());
  EXPECT_THAT(sentTypes(env.http), ElementsAre("ReportTypeSessionStart", "ReportTypeSessionStop",
                                               "ReportTypeSessionStart"));
  EXPECT_EQ(1700000000.0, numberOf(sentReports(env.http)[1].body, "stopTime"));
}

TEST_F(ZLNSessionManagerTest, AShortSuspensionInTheMiddleOfTheWaitKeepsTheSession) {
  startLater();
  const auto session = manager->session();
  env.app.resignActive();
  env.app.enterBackground();
  env.clock.at(2.5, [&] {
    env.clock.set(1700000599);
    env.app.enterForeground();
    env.app.becomeActive();
  });

  env.dispatch.runAll();

  EXPECT_EQ(3.0, env.clock.slept());
  EXPECT_EQ(session, manager->session());
  EXPECT_TRUE(session->running());
  EXPECT_THAT(sentTypes(env.http), ElementsAre("ReportTypeSessionStart"));
}

TEST_F(ZLNSessionManagerTest, TheInactivityLimitIsThatOfTheMomentOfReturn) {
  startLater();
  const auto session = manager->session();
  env.app.resignActive();
  env.clock.advance(11);
  config->setSessionInactivityTimeLimit(10);

  env.app.becomeActive();

  EXPECT_NE(session, manager->session());
}

TEST_F(ZLNSessionManagerTest, WithoutALimitAnyIdleTimeBeginsANewSession) {
  startLater();
  const auto session = manager->session();
  config->setSessionInactivityTimeLimit(0);

  env.app.resignActive();
  env.app.becomeActive();
  EXPECT_EQ(session, manager->session());

  env.app.resignActive();
  env.clock.advance(0.5);
  env.app.becomeActive();
  EXPECT_NE(session, manager->session());
}

TEST_F(ZLNSessionManagerTest, AClockSetBackBeforeTheStartBeginsANewSession) {
  startLater();
  env.clock.advance(30);
  env.app.resignActive();
  const std::string monitor = currentMonitorText();
  env.clock.set(1699999999);
  setLevel(3);

  env.app.becomeActive();
  const std::vector<std::string> lines = sessionLines();
  env.dispatch.runAll();

  EXPECT_THAT(lines,
              ElementsAre("ZLN Session: Session resumed, ending background task " + monitor,
                          "ZLN Session: clock change detected (1)",
                          "ZLN Session: Stopped session session: [2023-11-14 22:13:20 +0000 - "
                          "2023-11-14 22:13:50 +0000] 30.000000 sec.",
                          "ZLN Session: started new session session: [2023-11-14 22:13:19 +0000 - "
                          "(null)] 0.000000 sec."));
  EXPECT_THAT(sentTypes(env.http), ElementsAre("ReportTypeSessionStart", "ReportTypeSessionStop",
                                               "ReportTypeSessionStart"));
}

TEST_F(ZLNSessionManagerTest, AClockChangeIsInformation) {
  startLater();
  env.app.resignActive();
  env.clock.set(1699999999);
  setLevel(1);

  EXPECT_TRUE(manager->shouldStartNewSession());
  EXPECT_THAT(log().lines(), IsEmpty());

  setLevel(2);

  EXPECT_TRUE(manager->shouldStartNewSession());
  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: clock change detected (1)"));
}

TEST_F(ZLNSessionManagerTest, AClockSetBackToTheStartKeepsTheSession) {
  startLater();
  const auto session = manager->session();
  env.clock.advance(30);
  env.app.resignActive();
  env.clock.set(1700000000);

  env.app.becomeActive();

  EXPECT_EQ(session, manager->session());
  EXPECT_TRUE(session->running());
}

TEST_F(ZLNSessionManagerTest, AClockSetBackBeforeThePauseKeepsTheSession) {
  startLater();
  const auto session = manager->session();
  env.clock.advance(5000);
  env.app.resignActive();
  env.clock.set(1700000010);

  env.app.becomeActive();

  EXPECT_EQ(session, manager->session());
  EXPECT_EQ(Date{1700000010}, session->lastResumeTime());
}

TEST_F(ZLNSessionManagerTest, APausedSessionWithoutAPauseTimeIsResumedWithAWarning) {
  startLater();
  env.app.resignActive();
  manager->session()->setLastPauseTime(std::nullopt);
  env.clock.advance(100000);
  setLevel(1);

  env.app.becomeActive();

  EXPECT_TRUE(manager->session()->running());
  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: session has no pause time to evaluate"));
}

TEST_F(ZLNSessionManagerTest, AStartInTheFutureCountsBeforeAMissingPauseTime) {
  startLater();
  env.app.resignActive();
  manager->session()->setLastPauseTime(std::nullopt);
  env.clock.set(1699999999);
  setLevel(2);

  EXPECT_TRUE(manager->shouldStartNewSession());
  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: clock change detected (1)"));
}

TEST_F(ZLNSessionManagerTest, ARunningSessionIsNotComparedWithTheClock) {
  startLater();
  env.clock.set(1000);
  setLevel(2);

  EXPECT_FALSE(manager->shouldStartNewSession());
  EXPECT_THAT(log().lines(), IsEmpty());
}

TEST_F(ZLNSessionManagerTest, WhenTheTimeInTheBackgroundIsUpTheSessionStopsAtItsPause) {
  startLater();
  env.clock.advance(30);
  env.app.resignActive();
  env.app.enterBackground();

  env.dispatch.runAll();

  EXPECT_EQ(60.0, env.clock.slept());
  EXPECT_EQ(nullptr, manager->session());
  EXPECT_EQ(nullptr, manager->monitor());
  ASSERT_THAT(sentTypes(env.http), ElementsAre("ReportTypeSessionStart", "ReportTypeSessionStop"));
  const Dictionary stop = sentReports(env.http)[1].body;
  EXPECT_THAT(keysOf(stop),
              ElementsAre("appVersion", "bundleId", "country", "device", "mwVersion", "os",
                          "platform", "reportingVersion", "sdkVersion", "sessionId", "startTime",
                          "stopTime", "totalDuration", "type", "userId"));
  EXPECT_EQ(1700000030.0, numberOf(stop, "stopTime"));
  EXPECT_EQ(30.0, numberOf(stop, "totalDuration"));
}

TEST_F(ZLNSessionManagerTest, AfterTheTimeInTheBackgroundTheNextActivationStopsNothing) {
  startLater();
  env.app.resignActive();
  env.app.enterBackground();
  env.dispatch.runAll();
  setLevel(3);
  log().clear();

  env.app.becomeActive();
  const std::vector<std::string> lines = sessionLines();
  env.dispatch.runAll();

  EXPECT_THAT(lines,
              ElementsAre("ZLN Session: started new session session: [2023-11-14 22:14:20 +0000 - "
                          "(null)] 0.000000 sec."));
  EXPECT_THAT(sentTypes(env.http), ElementsAre("ReportTypeSessionStart", "ReportTypeSessionStop",
                                               "ReportTypeSessionStart"));
}

TEST_F(ZLNSessionManagerTest, TheStopReportIsQueuedWhileTheMonitorHoldsItsTask) {
  startLater();
  config->setUserSessionBackgroundTimeoutSeconds(0);
  env.app.resignActive();
  const auto monitor = manager->monitor();
  env.app.enterBackground();

  env.dispatch.runNextGlobal();

  // Sending has a task of its own by the time that the monitor's is ended.
  EXPECT_THAT(storedReports(env.files), SizeIs(1));
  EXPECT_EQ(kBackgroundTaskInvalid, monitor->uploadTask());
  EXPECT_THAT(env.backgroundTasks.open(), SizeIs(1));
}

TEST_F(ZLNSessionManagerTest, ReturningDuringTheWaitKeepsTheSession) {
  startLater();
  const auto session = manager->session();
  env.app.resignActive();
  env.app.enterBackground();
  env.clock.at(59.5, [&] { env.app.becomeActive(); });

  env.dispatch.runAll();

  EXPECT_EQ(60.0, env.clock.slept());
  EXPECT_EQ(session, manager->session());
  EXPECT_TRUE(session->running());
  EXPECT_THAT(sentTypes(env.http), ElementsAre("ReportTypeSessionStart"));
  EXPECT_THAT(env.backgroundTasks.open(), IsEmpty());
}

TEST_F(ZLNSessionManagerTest, ReturningBeforeTheWorkerBeganKeepsTheSessionAndTheTaskIsEnded) {
  startLater();
  const auto session = manager->session();
  env.app.resignActive();
  env.app.enterBackground();

  env.app.becomeActive();
  env.dispatch.runAll();

  EXPECT_EQ(0.0, env.clock.slept());
  EXPECT_EQ(session, manager->session());
  EXPECT_TRUE(session->running());
  EXPECT_THAT(env.backgroundTasks.open(), IsEmpty());
}

TEST_F(ZLNSessionManagerTest, AnExpiredTaskLeavesTheSessionPaused) {
  startLater();
  env.app.resignActive();
  env.app.enterBackground();
  env.clock.at(5.5, [&] { env.backgroundTasks.expire(manager->monitor()->uploadTask()); });

  env.dispatch.runAll();

  EXPECT_EQ(6.0, env.clock.slept());
  ASSERT_NE(nullptr, manager->session());
  EXPECT_FALSE(manager->session()->running());
  EXPECT_NE(nullptr, manager->monitor());
  EXPECT_THAT(sentTypes(env.http), ElementsAre("ReportTypeSessionStart"));
}

TEST_F(ZLNSessionManagerTest, AMonitorThatIsNotTheCurrentOneIsRefused) {
  startLater();
  env.app.resignActive();
  const auto old = manager->monitor();
  env.app.becomeActive();
  env.app.resignActive();
  const auto current = manager->monitor();
  const auto session = manager->session();
  log().clear();

  manager->reportBackgroundMonitorTimerExpired(old);

  EXPECT_THAT(
      log().lines(),
      ElementsAre("ZLN Session: Unexpected monitor completion: background task monitor " +
                  addressText(old.get()) + " with task id 0 (have background task monitor " +
                  addressText(current.get()) + " with task id 0)"));
  EXPECT_EQ(session, manager->session());
  EXPECT_EQ(std::nullopt, session->stopTime());
  EXPECT_EQ(current, manager->monitor());
}

TEST_F(ZLNSessionManagerTest, AMonitorThatFiresAfterItsCancellationIsRefused) {
  startLater();
  env.app.resignActive();
  const auto old = manager->monitor();
  env.app.becomeActive();
  log().clear();

  manager->reportBackgroundMonitorTimerExpired(old);

  EXPECT_THAT(log().lines(),
              ElementsAre("ZLN Session: Unexpected monitor completion: background task monitor " +
                          addressText(old.get()) + " with task id 0 (have (null))"));
  ASSERT_NE(nullptr, manager->session());
  EXPECT_TRUE(manager->session()->running());
}

TEST_F(ZLNSessionManagerTest, AReturnAsTheMonitorFiresKeepsTheSession) {
  HookedProcess process(env);
  startLater();
  const auto session = manager->session();
  env.clock.advance(30);
  env.app.resignActive();
  const std::string monitor = addressText(manager->monitor().get());
  env.app.enterBackground();
  setLevel(5);
  log().clear();
  // The worker has decided; the player is back before it tells the manager. The start report was
  // sent under task 1.
  process.when("ZLN Session: Sending stop report from background task 2", [&] {
    log().clear();
    env.app.becomeActive();
  });

  env.dispatch.runAll();

  EXPECT_THAT(sessionLines(),
              ElementsAre("ZLN Session: Session resumed, ending background task background task "
                          "monitor " +
                              monitor + " with task id 2",
                          "ZLN Session: end monitor background task 2",
                          "ZLN Session: resumed session session: [2023-11-14 22:13:20 +0000 - "
                          "(null)] 30.000000 sec.",
                          "ZLN Session: Unexpected monitor completion: background task monitor " +
                              monitor + " with task id 0 (have (null))",
                          "ZLN Session: Stopped background task 0"));
  EXPECT_EQ(session, manager->session());
  EXPECT_TRUE(session->running());
  EXPECT_THAT(sentTypes(env.http), ElementsAre("ReportTypeSessionStart"));
}

TEST_F(ZLNSessionManagerTest, AMonitorThatFiresLateLeavesItsSuccessorAlone) {
  HookedProcess process(env);
  startLater();
  env.app.resignActive();
  const std::string old = addressText(manager->monitor().get());
  // Kept by its worker, so that its successor has another address.
  env.app.enterBackground();
  setLevel(5);
  process.when("ZLN Session: Sending stop report", [&] {
    env.app.becomeActive();
    env.app.resignActive();
    setLevel(0);
    log().clear();
  });

  env.dispatch.runAll();

  ASSERT_NE(nullptr, manager->monitor());
  EXPECT_THAT(log().lines(),
              ElementsAre("ZLN Session: Unexpected monitor completion: background task monitor " +
                          old + " with task id 0 (have " + currentMonitorText() + ")"));
  EXPECT_FALSE(manager->session()->running());
  EXPECT_EQ(std::nullopt, manager->session()->stopTime());
}

TEST_F(ZLNSessionManagerTest, AMonitorThatFiresTwiceIsRefusedTheSecondTime) {
  startLater();
  config->setUserSessionBackgroundTimeoutSeconds(2);
  env.app.resignActive();
  const auto monitor = manager->monitor();
  env.app.enterBackground();
  env.app.enterBackground();

  env.dispatch.runAll();

  // The start report was sent under task 1, the stop report under task 3.
  EXPECT_THAT(log().lines(),
              ElementsAre("ZLN Session: Unexpected monitor completion: background task monitor " +
                          addressText(monitor.get()) + " with task id 4 (have (null))"));
  EXPECT_THAT(sentTypes(env.http), ElementsAre("ReportTypeSessionStart", "ReportTypeSessionStop"));
}

TEST_F(ZLNSessionManagerTest, ResigningActiveTwiceReplacesTheMonitor) {
  startLater();
  env.clock.advance(30);
  env.app.resignActive();
  const std::weak_ptr<ZLNReportBackgroundMonitor> old = manager->monitor();
  env.clock.advance(10);
  setLevel(3);

  env.app.resignActive();

  EXPECT_TRUE(old.expired());
  ASSERT_NE(nullptr, manager->monitor());
  EXPECT_EQ(Date{1700000030}, manager->session()->lastPauseTime());
  EXPECT_THAT(
      sessionLines(),
      ElementsAre("ZLN Session: pausing a paused session?",
                  "ZLN Session: paused session session: [2023-11-14 22:13:20 +0000 - (null)] "
                  "30.000000 sec.",
                  "ZLN Session: creating another background monitor while I already have one",
                  "ZLN Session: paused session session: [2023-11-14 22:13:20 +0000 - (null)] "
                  "30.000000 sec., started monitor " +
                      currentMonitorText()));
}

TEST_F(ZLNSessionManagerTest, ASecondMonitorIsAnError) {
  startLater();
  env.app.resignActive();
  setLevel(0);

  env.app.resignActive();

  EXPECT_THAT(
      log().lines(),
      ElementsAre("ZLN Session: creating another background monitor while I already have one"));
}

TEST_F(ZLNSessionManagerTest, TheReplacedMonitorIsCancelledInItsWait) {
  startLater();
  env.app.resignActive();
  env.app.enterBackground();
  const auto old = manager->monitor();
  BackgroundTaskId taskBefore = kBackgroundTaskInvalid;
  BackgroundTaskId taskAfter = 99;
  env.clock.at(3.5, [&] {
    taskBefore = old->uploadTask();
    env.app.resignActive();
    taskAfter = old->uploadTask();
  });

  env.dispatch.runAll();

  EXPECT_NE(kBackgroundTaskInvalid, taskBefore);
  EXPECT_EQ(kBackgroundTaskInvalid, taskAfter);
  EXPECT_EQ(4.0, env.clock.slept());
  EXPECT_NE(old, manager->monitor());
  EXPECT_NE(nullptr, manager->session());
  EXPECT_EQ(0u, log().count("ZLN Session: Unexpected monitor completion"));
}

TEST_F(ZLNSessionManagerTest, WithoutASessionResigningActiveMakesAMonitorAllTheSame) {
  startLater();
  manager->stopSession();
  env.dispatch.runAll();
  setLevel(3);
  log().clear();

  env.app.resignActive();

  ASSERT_NE(nullptr, manager->monitor());
  EXPECT_THAT(sessionLines(), ElementsAre("ZLN Session: paused session (null)",
                                          "ZLN Session: paused session (null), started monitor " +
                                              currentMonitorText()));
}

TEST_F(ZLNSessionManagerTest, WithoutASessionAMonitorThatFiresStopsNothing) {
  startLater();
  manager->stopSession();
  config->setUserSessionBackgroundTimeoutSeconds(0);
  env.app.resignActive();
  env.app.enterBackground();
  setLevel(3);

  env.dispatch.runAll();

  EXPECT_EQ(nullptr, manager->monitor());
  EXPECT_EQ(1u, log().count("ZLN Session: Stopped session (null)"));
  EXPECT_THAT(sentTypes(env.http), ElementsAre("ReportTypeSessionStart", "ReportTypeSessionStop"));
}

TEST_F(ZLNSessionManagerTest, WithoutASessionResumingIsLoggedAllTheSame) {
  startLater();
  manager->stopSession();
  setLevel(3);
  log().clear();

  manager->resumeSession();

  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: resumed session (null)"));
}

TEST_F(ZLNSessionManagerTest, WithoutASessionBecomingActiveStartsOneAndStopsNothing) {
  startLater();
  manager->stopSession();
  env.dispatch.runAll();
  setLevel(3);
  log().clear();

  env.app.becomeActive();
  const std::vector<std::string> lines = sessionLines();
  env.dispatch.runAll();

  EXPECT_THAT(lines,
              ElementsAre("ZLN Session: started new session session: [2023-11-14 22:13:20 +0000 - "
                          "(null)] 0.000000 sec."));
  EXPECT_THAT(sentTypes(env.http), ElementsAre("ReportTypeSessionStart", "ReportTypeSessionStop",
                                               "ReportTypeSessionStart"));
}

TEST_F(ZLNSessionManagerTest, TerminationStopsAPausedSessionAtItsPause) {
  startLater();
  env.clock.advance(30);
  env.app.resignActive();
  env.clock.advance(5);
  setLevel(3);

  env.app.terminate();
  const std::vector<std::string> lines = sessionLines();
  env.dispatch.runAll();

  EXPECT_EQ(nullptr, manager->session());
  EXPECT_THAT(lines, ElementsAre("ZLN Session: Stopped session session: [2023-11-14 22:13:20 +0000 "
                                 "- 2023-11-14 22:13:50 +0000] 30.000000 sec."));
  ASSERT_THAT(sentTypes(env.http), ElementsAre("ReportTypeSessionStart", "ReportTypeSessionStop"));
  EXPECT_EQ(1700000030.0, numberOf(sentReports(env.http)[1].body, "stopTime"));
}

TEST_F(ZLNSessionManagerTest, TerminationStopsASessionThatWasNeverPausedAtItsStart) {
  startLater();
  env.clock.advance(30);

  env.app.terminate();
  env.dispatch.runAll();

  ASSERT_THAT(sentTypes(env.http), ElementsAre("ReportTypeSessionStart", "ReportTypeSessionStop"));
  const Dictionary stop = sentReports(env.http)[1].body;
  EXPECT_EQ(1700000000.0, numberOf(stop, "stopTime"));
  EXPECT_EQ(0.0, numberOf(stop, "totalDuration"));
}

TEST_F(ZLNSessionManagerTest, TerminationStoresTheStopReportBeforeItReturns) {
  startLater();

  env.app.terminate();

  const std::vector<Dictionary> stored = storedReports(env.files);
  ASSERT_THAT(stored, SizeIs(1));
  EXPECT_EQ("ReportTypeSessionStop", textOf(stored[0], "type"));
}

TEST_F(ZLNSessionManagerTest, TerminationWithoutASessionSendsNothing) {
  startLater();
  manager->stopSession();
  setLevel(3);
  log().clear();

  env.app.terminate();
  const std::vector<std::string> lines = sessionLines();
  env.dispatch.runAll();

  EXPECT_THAT(lines, ElementsAre("ZLN Session: Stopped session (null)"));
  EXPECT_EQ(nullptr, manager->session());
  EXPECT_THAT(sentTypes(env.http), ElementsAre("ReportTypeSessionStart", "ReportTypeSessionStop"));
}

TEST_F(ZLNSessionManagerTest, StoppingARunningSessionPausesItAtItsOldPause) {
  startLater();
  env.clock.advance(30);
  env.app.resignActive();
  env.clock.advance(10);
  env.app.becomeActive();
  env.clock.advance(160);

  manager->stopSession();
  env.dispatch.runAll();

  ASSERT_THAT(sentTypes(env.http), ElementsAre("ReportTypeSessionStart", "ReportTypeSessionStop"));
  const Dictionary stop = sentReports(env.http)[1].body;
  EXPECT_EQ(1700000030.0, numberOf(stop, "stopTime"));
  EXPECT_EQ(20.0, numberOf(stop, "totalDuration"));
}

TEST_F(ZLNSessionManagerTest, ASessionWithImplausibleTimesIsDroppedWithoutAReport) {
  startLater();
  env.clock.advance(30);
  env.app.resignActive();
  env.clock.advance(70);
  env.app.becomeActive();
  setLevel(3);
  log().clear();

  manager->stopSession();
  const std::vector<std::string> lines = sessionLines();
  env.dispatch.runAll();

  EXPECT_THAT(lines,
              ElementsAre("ZLN Session: invalid session2: [2023-11-14 22:13:20 +0000 - 2023-11-14 "
                          "22:13:50 +0000], 30.000000, -40.000000 sec.",
                          "ZLN Session: Stopped session session: [2023-11-14 22:13:20 +0000 - "
                          "2023-11-14 22:13:50 +0000] -40.000000 sec."));
  EXPECT_EQ(nullptr, manager->session());
  EXPECT_THAT(sentTypes(env.http), ElementsAre("ReportTypeSessionStart"));
}

TEST_F(ZLNSessionManagerTest, StoppingTwiceSendsOneReport) {
  startLater();

  manager->stopSession();
  manager->stopSession();
  env.dispatch.runAll();

  EXPECT_THAT(sentTypes(env.http), ElementsAre("ReportTypeSessionStart", "ReportTypeSessionStop"));
}

TEST_F(ZLNSessionManagerTest, StoppingLeavesTheMonitor) {
  startLater();
  env.app.resignActive();
  const auto monitor = manager->monitor();

  manager->stopSession();

  EXPECT_EQ(monitor, manager->monitor());
}

TEST_F(ZLNSessionManagerTest, TheDescriptionShowsTheSession) {
  ZLNReportingUtils::setMarlwickVersion("4.5.6");
  startLater();
  env.clock.advance(30.25);
  env.app.resignActive();
  env.clock.advance(10.5);
  env.app.becomeActive();
  env.clock.advance(4);

  EXPECT_EQ(
      "Start: 1700000000.000000\n"
      "Stop: 0.000000\n"
      "Last Pause: 1700000030.250000\n"
      "LastResume: 1700000040.750000\n"
      "Total Duration: 30.250000\n"
      "Current Time: 1700000044.750000\n"
      "UUID: 00000000-0000-4000-8000-000000000002\n"
      "OS: 17.5.1\n"
      "MWVersion: 4.5.6",
      manager->sessionDescription());
}

TEST_F(ZLNSessionManagerTest, TheDescriptionShowsAbsentDatesAsZeroAndAbsentTextsAsNull) {
  ZLNReportingUtils::setMarlwickVersion(std::nullopt);
  startLater();
  manager->session()->setLastPauseTime(std::nullopt);
  manager->session()->setLastResumeTime(std::nullopt);
  manager->session()->setStopTime(Date{1700000099});

  EXPECT_EQ(
      "Start: 1700000000.000000\n"
      "Stop: 1700000099.000000\n"
      "Last Pause: 0.000000\n"
      "LastResume: 0.000000\n"
      "Total Duration: 0.000000\n"
      "Current Time: 1700000000.000000\n"
      "UUID: 00000000-0000-4000-8000-000000000002\n"
      "OS: 17.5.1\n"
      "MWVersion: (null)",
      manager->sessionDescription());
}

TEST_F(ZLNSessionManagerTest, TheDescriptionWithoutASessionHasEmptyValues) {
  startLater();
  manager->stopSession();

  EXPECT_EQ(
      "Start: \nStop: \nLast Pause: \nLastResume: \nTotal Duration: \nCurrent Time: \nUUID: \n"
      "OS: \nMWVersion: ",
      manager->sessionDescription());
}

}  // namespace
}  // namespace zln
