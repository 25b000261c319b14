#include "session/ZLNSessionManager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "config/ZLNReportingConfig.h"
#include "platform/identity.h"
#include "support/ZLNDirectories.h"
#include "support/ZLNReportingUtils.h"
#include "tests/support/host_fixture.h"
#include "tests/support/sent_reports.h"
#include "transport/ZLNReportingManager.h"

namespace zln {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr char kFirstSent[] = "com.zelnor.firstSessionSent";
constexpr char kWritesReports[] = "write /support/com.zelnor.sdk/reporting/reports.json";

// The session of a test's process: new, after thirty seconds of use, and stopped then.
constexpr char kNew[] = "session: [2023-11-14 22:13:20 +0000 - (null)] 0.000000 sec.";
constexpr char kUsed[] = "session: [2023-11-14 22:13:20 +0000 - (null)] 30.000000 sec.";
constexpr char kOver[] =
    "session: [2023-11-14 22:13:20 +0000 - 2023-11-14 22:13:50 +0000] 30.000000 sec.";

// The clock stands at 2023-11-14 22:13:20 when a test begins; all that is sent is accepted.
class ZLNSessionManagerTest : public HostTest {
 protected:
  ZLNSessionManagerTest() {
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
    env.defaults.set(kFirstSent, Number::boolean(true));
    start();
    session = manager->session();
  }

  void beginNextProcess() {
    config.reset();
    manager.reset();
    restart();
    start();
  }

  void useFor(double seconds) {
    env.clock.advance(seconds);
    env.app.resignActive();
  }

  void returnAt(double secondsSince1970) {
    env.clock.set(secondsSince1970);
    env.app.becomeActive();
  }

  // The lines of sessions, their manager and its monitors: those of settings and sending are left
  // out.
  void expectSessionLines(std::initializer_list<std::string_view> expected) {
    std::vector<std::string> lines = newLines();
    for (const char* other : {"Config ", "config params", "queue report ", "transmit reports",
                              "saved ", "saving report ", "sending report", "posting report",
                              "report ", "manager background task"}) {
      std::erase_if(lines, [&](const std::string& line) { return line.starts_with(other); });
    }
    EXPECT_EQ(std::vector<std::string>(expected.begin(), expected.end()), lines);
  }

  // Has everything sent, and compares the types of all session reports that were.
  void expectSent(std::initializer_list<std::string> kinds) {
    env.dispatch.runAll();
    std::vector<std::string> types;
    for (const std::string& kind : kinds) types.push_back("ReportTypeSession" + kind);
    EXPECT_EQ(types, sentTypes(env.http));
  }

  Dictionary lastSent() const { return sentReports(env.http).back().body; }

  void expectLastStop(double stopTime, double duration) const {
    EXPECT_EQ(stopTime, numberOf(lastSent(), "stopTime"));
    EXPECT_EQ(duration, numberOf(lastSent(), "totalDuration"));
  }

  // The session is the one that the test began with.
  void expectSameSession(bool running) const {
    EXPECT_EQ(session, manager->session());
    EXPECT_EQ(running, session->running());
  }

  std::string currentMonitorText() { return manager->monitor()->description(); }

  std::shared_ptr<ZLNReportingConfig> config;
  std::shared_ptr<ZLNSessionManager> manager;
  std::shared_ptr<ZLNSession> session;
};

// The first session.

TEST_F(ZLNSessionManagerTest, TheFirstSessionWaitsForTheMainThread) {
  makeManager();
  env.clock.advance(2.5);

  EXPECT_EQ(nullptr, manager->session());
  EXPECT_EQ(std::nullopt, manager->currentSessionId());

  env.dispatch.runMain();

  ASSERT_NE(nullptr, manager->session());
  EXPECT_TRUE(manager->session()->running());
  EXPECT_EQ(Date{1700000002.5}, manager->session()->startTime());
  EXPECT_EQ("00000000-0000-4000-8000-000000000002", manager->currentSessionId());

  manager->stopSession();

  EXPECT_EQ(std::nullopt, manager->currentSessionId());
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

  expectSent({"First"});
  EXPECT_EQ("https://session-first.invalid/session", sentReports(env.http)[0].url);
  EXPECT_EQ("00000000-0000-4000-8000-000000000001", textOf(lastSent(), "userId"));
  EXPECT_EQ("00000000-0000-4000-8000-000000000002", textOf(lastSent(), "sessionId"));
  EXPECT_EQ(1700000000.0, numberOf(lastSent(), "startTime"));
  EXPECT_EQ("4.5.6", textOf(lastSent(), "mwVersion"));
  EXPECT_EQ("DE", textOf(lastSent(), "country"));
}

TEST_F(ZLNSessionManagerTest, TheFirstSessionIsRememberedOnDiskForLaterProcesses) {
  start();

  EXPECT_EQ(Value(Number::boolean(true)), env.defaults.get(kFirstSent, nullptr));
  // Once for the user identifier and once for this.
  EXPECT_EQ(2u, env.defaults.syncCount());

  beginNextProcess();

  expectSent({"First", "Start"});
  EXPECT_EQ(2u, env.defaults.syncCount());
}

TEST_F(ZLNSessionManagerTest, EveryLaterSessionOfAProcessSendsAStartReport) {
  start();
  manager->stopSession();

  env.app.becomeActive();

  expectSent({"First", "Stop", "Start"});
  EXPECT_EQ("https://session-start.invalid/session", sentReports(env.http)[2].url);
}

TEST_F(ZLNSessionManagerTest, WhateverStandsInItsPlaceTheFirstSessionIsRemembered) {
  for (const Value& value : {Value(Number::boolean(false)), Value("no"), Value(Array{})}) {
    SCOPED_TRACE(value.description());
    env.defaults.set(kFirstSent, value);

    beginNextProcess();

    EXPECT_EQ("ReportTypeSessionStart", sentTypes(env.http).back());
    EXPECT_EQ(value, env.defaults.get(kFirstSent, nullptr));
  }
}

TEST_F(ZLNSessionManagerTest, AFirstSessionReportThatIsSwitchedOffIsNeverOfferedAgain) {
  makeManager();
  config->setSendFirstSessionReports(false);

  expectSent({});
  EXPECT_TRUE(env.defaults.values().contains(kFirstSent));

  beginNextProcess();

  expectSent({"Start"});
}

TEST_F(ZLNSessionManagerTest,
       TheFirstSessionIsSetLoggedAndQueuedThenRememberedThenEventsAreFollowed) {
  setLevel(3);
  makeManager();
  whenLogged("started new session", [&] { EXPECT_NE(nullptr, manager->session()); });
  // Not followed yet: it would pause the session.
  env.journal.when("synchronize", [&] { env.app.resignActive(); });
  env.journal.begin();

  env.dispatch.runMain();

  expectCalls({std::string("log: started new session ") + kNew, "get com.zelnor.firstSessionSent",
               "log: queue report <ZLNReportSessionFirst: 0x*>", "global async",
               "log: transmit reports", "begin 1",
               "read /support/com.zelnor.sdk/reporting/reports.json", kWritesReports,
               "log: saved 1 reports", "set com.zelnor.firstSessionSent", "synchronize"});
}

TEST_F(ZLNSessionManagerTest, ANewSessionIsLoggedAndItsReportStoredUntilItIsDelivered) {
  makeManager();
  setLevel(3);

  env.dispatch.runMain();

  expectSessionLines({std::string("started new session ") + kNew});
  const std::vector<Dictionary> stored = storedReports(env.files);
  ASSERT_THAT(stored, SizeIs(1));
  EXPECT_EQ("ReportTypeSessionFirst", textOf(stored[0], "type"));
  EXPECT_EQ("00000000-0000-4000-8000-000000000002", textOf(stored[0], "sessionId"));
}

TEST_F(ZLNSessionManagerTest, StartingReplacesTheCurrentSessionWithoutStoppingIt) {
  startLater();

  manager->startNewSession();

  EXPECT_NE(session, manager->session());
  EXPECT_TRUE(session->running());
  EXPECT_EQ(std::nullopt, session->stopTime());
  expectSent({"Start", "Start"});
}

// Going and coming back.

TEST_F(ZLNSessionManagerTest, ResigningActivePausesTheSessionAndMakesAMonitor) {
  startLater();
  setLevel(3);

  useFor(30);

  expectSameSession(false);
  EXPECT_EQ(Date{1700000030}, session->lastPauseTime());
  EXPECT_EQ(30.0f, session->totalDuration());
  ASSERT_NE(nullptr, manager->monitor());
  EXPECT_EQ(manager, manager->monitor()->delegate());
  const std::string paused = std::string("paused session ") + kUsed;
  expectSessionLines({paused, paused + ", started monitor background task monitor " +
                                  addressText(manager->monitor().get()) + " with task id 0"});
}

TEST_F(ZLNSessionManagerTest, BackgroundAndForegroundAloneNeitherPauseNorResume) {
  startLater();

  env.app.enterBackground();

  expectSameSession(true);
  EXPECT_EQ(nullptr, manager->monitor());

  env.app.resignActive();
  env.app.enterForeground();

  expectSameSession(false);
  EXPECT_NE(nullptr, manager->monitor());
}

TEST_F(ZLNSessionManagerTest, BecomingActiveResumesTheSessionAndCancelsTheMonitor) {
  startLater();
  useFor(30);
  const std::string monitor = currentMonitorText();
  setLevel(3);

  returnAt(1700000130);

  expectSameSession(true);
  EXPECT_EQ(Date{1700000130}, session->lastResumeTime());
  EXPECT_EQ(nullptr, manager->monitor());
  expectSessionLines({"Session resumed, ending background task " + monitor,
                      std::string("resumed session ") + kUsed});
}

TEST_F(ZLNSessionManagerTest, AnActivationIsAResumeOfTheRunningSessionWhateverTheClockShows) {
  startLater();
  setLevel(3);
  for (const double now : {1700000000, 1700000100, 1000}) {
    returnAt(now);

    expectSameSession(true);
    EXPECT_EQ(Date{1700000000}, session->lastResumeTime());
    expectSessionLines({"resuming a running session?", std::string("resumed session ") + kNew});
  }
}

TEST_F(ZLNSessionManagerTest, UpToTheLimitTheSameSessionResumes) {
  startLater();
  useFor(30);

  returnAt(1700000030 + 599);
  useFor(7);
  returnAt(1700000636 + 600);

  expectSameSession(true);
  EXPECT_EQ(37.0f, session->totalDuration());
  expectSent({"Start"});
}

TEST_F(ZLNSessionManagerTest, After601SecondsTheOldSessionIsStoppedAtItsPauseAndANewOneStarts) {
  startLater();
  useFor(30);
  const std::string monitor = currentMonitorText();
  setLevel(3);

  returnAt(1700000030 + 601);

  expectSessionLines({"Session resumed, ending background task " + monitor,
                      std::string("Stopped session ") + kOver,
                      "started new session session: [2023-11-14 22:23:51 +0000 - (null)] "
                      "0.000000 sec."});
  ASSERT_NE(nullptr, manager->session());
  EXPECT_NE(session, manager->session());
  EXPECT_EQ(Date{1700000631}, manager->session()->startTime());
  expectSent({"Start", "Stop", "Start"});
  const SentReport stop = sentReports(env.http)[1];
  EXPECT_EQ("https://session-stop.invalid/session", stop.url);
  EXPECT_EQ("00000000-0000-4000-8000-000000000002", textOf(stop.body, "sessionId"));
  EXPECT_EQ(1700000000.0, numberOf(stop.body, "startTime"));
  EXPECT_EQ(1700000030.0, numberOf(stop.body, "stopTime"));
  EXPECT_EQ(30.0, numberOf(stop.body, "totalDuration"));
  EXPECT_EQ("00000000-0000-4000-8000-000000000003", textOf(lastSent(), "sessionId"));
  EXPECT_EQ(1700000631.0, numberOf(lastSent(), "startTime"));
}

// The process stands still during the third step and goes on when the player returns.
TEST_F(ZLNSessionManagerTest, ASuspensionInTheMiddleOfTheWaitCountsAsIdleTime) {
  startLater();
  env.app.resignActive();
  env.app.enterBackground();
  env.clock.at(2.5, [&] {
    env.app.enterForeground();
    returnAt(1700000601);
  });

  expectSent({"Start", "Stop", "Start"});
  EXPECT_EQ(3.0, env.clock.slept());
  EXPECT_TRUE(manager->session()->running());
  EXPECT_EQ(1700000000.0, numberOf(sentReports(env.http)[1].body, "stopTime"));
}

TEST_F(ZLNSessionManagerTest, AShortSuspensionInTheMiddleOfTheWaitKeepsTheSession) {
  startLater();
  env.app.resignActive();
  env.app.enterBackground();
  env.clock.at(2.5, [&] {
    env.app.enterForeground();
    returnAt(1700000599);
  });

  expectSent({"Start"});
  EXPECT_EQ(3.0, env.clock.slept());
  expectSameSession(true);
}

TEST_F(ZLNSessionManagerTest, TheInactivityLimitIsThatOfTheMomentOfReturnAndMayBeZero) {
  startLater();
  env.app.resignActive();
  config->setSessionInactivityTimeLimit(0);

  env.app.becomeActive();

  expectSameSession(true);

  env.app.resignActive();
  returnAt(1700000000.5);

  EXPECT_NE(session, manager->session());
}

// The clock.

TEST_F(ZLNSessionManagerTest, AClockSetBackBeforeTheStartBeginsANewSession) {
  startLater();
  useFor(30);
  const std::string monitor = currentMonitorText();
  setLevel(3);

  returnAt(1699999999);

  expectSessionLines({"Session resumed, ending background task " + monitor,
                      "clock change detected (1)", std::string("Stopped session ") + kOver,
                      "started new session session: [2023-11-14 22:13:19 +0000 - (null)] "
                      "0.000000 sec."});
  expectSent({"Start", "Stop", "Start"});
}

TEST_F(ZLNSessionManagerTest, AClockChangeCountsBeforeAMissingPauseTime) {
  startLater();
  env.app.resignActive();
  session->setLastPauseTime(std::nullopt);
  env.clock.set(1699999999);
  setLevel(2);

  EXPECT_TRUE(manager->shouldStartNewSession());
  expectLines({"clock change detected (1)"});
}

TEST_F(ZLNSessionManagerTest, AClockSetBackToTheStartOrBeforeThePauseKeepsTheSession) {
  startLater();
  for (const double now : {1700000000, 1700000010}) {
    useFor(5000);

    returnAt(now);

    expectSameSession(true);
    EXPECT_EQ(Date{now}, session->lastResumeTime());
  }
}

TEST_F(ZLNSessionManagerTest, APausedSessionWithoutAPauseTimeIsResumedWithAWarning) {
  startLater();
  env.app.resignActive();
  session->setLastPauseTime(std::nullopt);
  setLevel(1);

  returnAt(1700100000);

  expectSameSession(true);
  expectLines({"session has no pause time to evaluate"});
}

// The time in the background.

TEST_F(ZLNSessionManagerTest, WhenTheTimeInTheBackgroundIsUpTheSessionStopsAtItsPause) {
  startLater();
  useFor(30);
  env.app.enterBackground();

  expectSent({"Start", "Stop"});
  EXPECT_EQ(60.0, env.clock.slept());
  EXPECT_EQ(nullptr, manager->session());
  EXPECT_EQ(nullptr, manager->monitor());
  expectLastStop(1700000030, 30);

  setLevel(3);
  env.app.becomeActive();

  expectSessionLines(
      {"started new session session: [2023-11-14 22:14:50 +0000 - (null)] "
       "0.000000 sec."});
  expectSent({"Start", "Stop", "Start"});
}

TEST_F(ZLNSessionManagerTest,
       TheStopReportIsQueuedBeforeSessionAndMonitorAreDroppedAndTheTaskEnds) {
  startLater();
  config->setUserSessionBackgroundTimeoutSeconds(0);
  useFor(30);
  env.app.enterBackground();
  setLevel(3);
  whenLogged("Stopped session", [&] {
    EXPECT_EQ(session, manager->session());
    EXPECT_NE(nullptr, manager->monitor());
  });
  env.journal.begin();

  env.dispatch.runNextGlobal();

  // Sending has a task of its own by the time that the monitor's is ended.
  expectCalls({"log: Starting background task", "begin 2", "log: Started background task 2",
               "log: queue report <ZLNReportSessionStop: 0x*>", "global async",
               "log: transmit reports", "begin 3", kWritesReports, "log: saved 1 reports",
               std::string("log: Stopped session ") + kOver, "end 2",
               "log: Stopped background task 2"});
}

TEST_F(ZLNSessionManagerTest, ReturningDuringTheWaitKeepsTheSession) {
  startLater();
  env.app.resignActive();
  env.app.enterBackground();
  env.clock.at(59.5, [&] { env.app.becomeActive(); });

  expectSent({"Start"});
  EXPECT_EQ(60.0, env.clock.slept());
  expectSameSession(true);
  EXPECT_THAT(env.backgroundTasks.open(), IsEmpty());
}

TEST_F(ZLNSessionManagerTest, ReturningBeforeTheWorkerBeganKeepsTheSessionAndTheTaskIsEnded) {
  startLater();
  env.app.resignActive();
  env.app.enterBackground();

  env.app.becomeActive();
  env.dispatch.runAll();

  EXPECT_EQ(0.0, env.clock.slept());
  expectSameSession(true);
  EXPECT_THAT(env.backgroundTasks.open(), IsEmpty());
}

TEST_F(ZLNSessionManagerTest, AnExpiredTaskLeavesTheSessionPaused) {
  startLater();
  env.app.resignActive();
  env.app.enterBackground();
  env.clock.at(5.5, [&] { env.backgroundTasks.expire(manager->monitor()->uploadTask()); });

  expectSent({"Start"});
  EXPECT_EQ(6.0, env.clock.slept());
  expectSameSession(false);
  EXPECT_NE(nullptr, manager->monitor());
}

TEST_F(ZLNSessionManagerTest, AMonitorThatIsNotTheCurrentOneIsRefused) {
  startLater();
  env.app.resignActive();
  const auto old = manager->monitor();
  env.app.becomeActive();
  const std::string refusal = "Unexpected monitor completion: background task monitor " +
                              addressText(old.get()) + " with task id 0 (have ";

  manager->reportBackgroundMonitorTimerExpired(old);

  expectLines({refusal + "(null))"});
  expectSameSession(true);

  env.app.resignActive();
  const auto current = manager->monitor();

  manager->reportBackgroundMonitorTimerExpired(old);

  expectLines(
      {refusal + "background task monitor " + addressText(current.get()) + " with task id 0)"});
  expectSameSession(false);
  EXPECT_EQ(std::nullopt, session->stopTime());
  EXPECT_EQ(current, manager->monitor());
}

TEST_F(ZLNSessionManagerTest, AReturnAsTheMonitorFiresKeepsTheSession) {
  startLater();
  useFor(30);
  const std::string monitor = addressText(manager->monitor().get());
  env.app.enterBackground();
  setLevel(5);
  env.journal.when("end 2", [&] { EXPECT_NE(nullptr, manager->monitor()); });
  // The worker has decided; the player is back before it tells the manager. The start report was
  // sent under task 1.
  whenLogged("Sending stop report from background task 2", [&] {
    log().clear();
    env.app.becomeActive();
  });

  env.dispatch.runAll();

  expectSessionLines({"Session resumed, ending background task background task monitor " + monitor +
                          " with task id 2",
                      "end monitor background task 2", std::string("resumed session ") + kUsed,
                      "Unexpected monitor completion: background task monitor " + monitor +
                          " with task id 0 (have (null))",
                      "Stopped background task 0"});
  expectSameSession(true);
  expectSent({"Start"});
}

TEST_F(ZLNSessionManagerTest, AMonitorThatFiresLateLeavesItsSuccessorAlone) {
  startLater();
  env.app.resignActive();
  const std::string old = addressText(manager->monitor().get());
  // Kept by its worker, so that its successor has another address.
  env.app.enterBackground();
  setLevel(5);
  whenLogged("Sending stop report", [&] {
    env.app.becomeActive();
    env.app.resignActive();
    setLevel(0);
    log().clear();
  });

  env.dispatch.runAll();

  ASSERT_NE(nullptr, manager->monitor());
  expectLines({"Unexpected monitor completion: background task monitor " + old +
               " with task id 0 (have " + currentMonitorText() + ")"});
  expectSameSession(false);
  EXPECT_EQ(std::nullopt, session->stopTime());
}

TEST_F(ZLNSessionManagerTest, AMonitorThatFiresTwiceIsRefusedTheSecondTime) {
  startLater();
  config->setUserSessionBackgroundTimeoutSeconds(2);
  env.app.resignActive();
  const auto monitor = manager->monitor();
  env.app.enterBackground();
  env.app.enterBackground();

  expectSent({"Start", "Stop"});
  // The start report was sent under task 1, the stop report under task 3.
  expectLines({"Unexpected monitor completion: background task monitor " +
               addressText(monitor.get()) + " with task id 4 (have (null))"});
}

TEST_F(ZLNSessionManagerTest, ResigningActiveTwiceReplacesTheMonitor) {
  startLater();
  useFor(30);
  const std::weak_ptr<ZLNReportBackgroundMonitor> old = manager->monitor();
  setLevel(3);

  useFor(10);

  EXPECT_TRUE(old.expired());
  ASSERT_NE(nullptr, manager->monitor());
  EXPECT_EQ(Date{1700000030}, session->lastPauseTime());
  const std::string paused = std::string("paused session ") + kUsed;
  expectSessionLines({"pausing a paused session?", paused,
                      "creating another background monitor while I already have one",
                      paused + ", started monitor " + currentMonitorText()});
}

TEST_F(ZLNSessionManagerTest, TheReplacedMonitorIsCancelledInItsWait) {
  startLater();
  env.app.resignActive();
  env.app.enterBackground();
  const auto old = manager->monitor();
  // The start report was sent under task 1.
  env.journal.when("end 2", [&] { EXPECT_EQ(old, manager->monitor()); });
  env.clock.at(3.5, [&] {
    setLevel(3);
    env.app.resignActive();
  });

  env.dispatch.runAll();

  const std::string paused = std::string("paused session ") + kNew;
  expectSessionLines({"pausing a paused session?", paused,
                      "creating another background monitor while I already have one",
                      "end monitor background task 2",
                      paused + ", started monitor " + currentMonitorText()});
  EXPECT_EQ(4.0, env.clock.slept());
  EXPECT_NE(old, manager->monitor());
  EXPECT_NE(nullptr, manager->session());
}

// Without a session.

TEST_F(ZLNSessionManagerTest, WithoutASessionResigningActiveMakesAMonitorAndTheReturnASession) {
  startLater();
  manager->stopSession();
  env.dispatch.runAll();
  setLevel(3);

  env.app.resignActive();

  ASSERT_NE(nullptr, manager->monitor());
  const std::string monitor = currentMonitorText();
  expectSessionLines(
      {"paused session (null)", "paused session (null), started monitor " + monitor});

  env.app.becomeActive();

  expectSessionLines({"Session resumed, ending background task " + monitor,
                      std::string("started new session ") + kNew});
  expectSent({"Start", "Stop", "Start"});
}

TEST_F(ZLNSessionManagerTest, WithoutASessionAMonitorThatFiresStopsNothing) {
  startLater();
  manager->stopSession();
  config->setUserSessionBackgroundTimeoutSeconds(0);
  env.app.resignActive();
  env.app.enterBackground();
  setLevel(3);

  expectSent({"Start", "Stop"});
  EXPECT_EQ(nullptr, manager->monitor());
  EXPECT_EQ(1u, log().count("ZLN Session: Stopped session (null)"));
}

TEST_F(ZLNSessionManagerTest, WithoutASessionResumingAndTerminationAreLoggedAllTheSame) {
  startLater();
  manager->stopSession();
  setLevel(3);

  manager->resumeSession();

  expectLines({"resumed session (null)"});

  env.app.terminate();

  expectLines({"Stopped session (null)"});
  EXPECT_EQ(nullptr, manager->session());
  expectSent({"Start", "Stop"});
}

// Stopping.

TEST_F(ZLNSessionManagerTest, TerminationStopsAPausedSessionAtItsPause) {
  startLater();
  useFor(30);
  env.clock.advance(5);
  setLevel(3);

  env.app.terminate();

  EXPECT_EQ(nullptr, manager->session());
  expectSessionLines({std::string("Stopped session ") + kOver});
  expectSent({"Start", "Stop"});
  expectLastStop(1700000030, 30);
}

TEST_F(ZLNSessionManagerTest, TerminationStopsASessionThatWasNeverPausedAtItsStart) {
  startLater();
  env.clock.advance(30);
  setLevel(3);

  env.app.terminate();

  EXPECT_EQ(nullptr, manager->session());
  EXPECT_FALSE(session->running());
  expectSessionLines(
      {"Stopped session session: [2023-11-14 22:13:20 +0000 - 2023-11-14 22:13:20 +0000] "
       "0.000000 sec."});

  // Before it returns.
  const std::vector<Dictionary> stored = storedReports(env.files);
  ASSERT_THAT(stored, SizeIs(1));
  EXPECT_EQ("ReportTypeSessionStop", textOf(stored[0], "type"));
  expectSent({"Start", "Stop"});
  EXPECT_EQ(1700000000, numberOf(lastSent(), "startTime"));
  expectLastStop(1700000000, 0);
}

TEST_F(ZLNSessionManagerTest, ASessionWithoutAPauseTimeIsDroppedWithoutAReport) {
  startLater();
  env.app.resignActive();
  session->setLastPauseTime(std::nullopt);

  manager->stopSession();

  EXPECT_EQ(nullptr, manager->session());
  expectSent({"Start"});
}

TEST_F(ZLNSessionManagerTest, StoppingARunningSessionPausesItAtItsOldPause) {
  startLater();
  useFor(30);
  returnAt(1700000040);
  env.clock.advance(160);

  manager->stopSession();

  expectSent({"Start", "Stop"});
  expectLastStop(1700000030, 20);
}

TEST_F(ZLNSessionManagerTest, ASessionWithImplausibleTimesIsDroppedWithoutAReport) {
  startLater();
  useFor(30);
  returnAt(1700000100);
  setLevel(3);

  manager->stopSession();

  expectSessionLines(
      {"invalid session2: [2023-11-14 22:13:20 +0000 - 2023-11-14 22:13:50 +0000], "
       "30.000000, -40.000000 sec.",
       "Stopped session session: [2023-11-14 22:13:20 +0000 - 2023-11-14 22:13:50 "
       "+0000] -40.000000 sec."});
  EXPECT_EQ(nullptr, manager->session());
  expectSent({"Start"});
}

TEST_F(ZLNSessionManagerTest, StoppingTwiceSendsOneReportAndLeavesTheMonitor) {
  startLater();
  env.app.resignActive();
  const auto monitor = manager->monitor();

  manager->stopSession();
  manager->stopSession();

  EXPECT_EQ(monitor, manager->monitor());
  expectSent({"Start", "Stop"});
}

// The description.

TEST_F(ZLNSessionManagerTest, TheDescriptionShowsTheSession) {
  ZLNReportingUtils::setMarlwickVersion("4.5.6");
  startLater();
  useFor(30.25);
  returnAt(1700000040.75);
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
  session->setLastPauseTime(std::nullopt);
  session->setLastResumeTime(std::nullopt);
  session->setStopTime(Date{1700000099});

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
