#include "transport/ZLNReportingManager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "reports/ZLNReportAdZoneAttempt.h"
#include "reports/ZLNReportSessionFirst.h"
#include "reports/ZLNReportSessionStart.h"
#include "reports/ZLNReportSessionStop.h"
#include "tests/transport/manager_fixture.h"

namespace zln {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

using Reports = std::vector<std::shared_ptr<ZLNReportBase>>;

constexpr char kRejection[] = R"({"success":false,"errorIsPermanent":true,"error":"bad"})";
constexpr char kTransmitOnForegrounding[] =
    "ConfigSerializationKeyTransmitReportsOnApplicationForegrounding";
constexpr char kTransmitOnBackgrounding[] =
    "ConfigSerializationKeyTransmitReportsOnApplicationBackgrounding";

constexpr char kNotSubmitted[] =
    "failed to submit report with Error Domain=NSURLErrorDomain Code=-1001 \"(null)\"";
constexpr char kFailedForNow[] =
    "report failed with temporary error: Error Domain=NSURLErrorDomain Code=-1001 \"(null)\"";
const std::string kReportTo =
    std::string("report <ZLNReportAdAttempt: 0x*> to ") + kAdAttemptUrl + " ";
const std::string kSubmitted =
    std::string("report submitted; response <NSHTTPURLResponse: 0x*> { URL: ") + kAdAttemptUrl +
    " } { Status Code: 200, Headers {\n} } = {\"success\":true}";

class DerivedReport : public ZLNReportSessionStop {
 public:
  DerivedReport() : ZLNReportSessionStop(std::shared_ptr<ZLNSession>()) {}
};

class ZLNReportingManagerTest : public ManagerTest {
 protected:
  static std::shared_ptr<ZLNReportBase> stopReport() {
    return ZLNReportSessionStop::reportWithSession(session());
  }

  static std::shared_ptr<ZLNReportBase> reportOfNoKind() {
    return ZLNReportBase::initWithURLString("https://reports.invalid/session");
  }

  static Reports reportsOfAllKinds() {
    return {ZLNReportSessionFirst::reportWithSession(session()),
            ZLNReportSessionStart::reportWithSession(session()), stopReport(), adReport(),
            ZLNReportAdZoneAttempt::reportWithNetwork("net", "banner", "zone", false)};
  }

  static void addForeignOperations(int count) {
    for (; count > 0; --count) {
      manager().reportQueue().addOperation(std::make_shared<ForeignOperation>());
    }
  }

  static std::size_t operationCount() { return manager().reportQueue().operationCount(); }
  static bool isSuspended() { return manager().reportQueue().isSuspended(); }

  // Sends and fails, one after the other, all requests that the queue makes until it makes none.
  void failAllTemporarily() {
    env.dispatch.runGlobal();
    while (env.http.outstanding() != 0) {
      timeOut();
      env.dispatch.runGlobal();
    }
  }

  std::vector<std::string> sentNetworks() const {
    std::vector<std::string> networks;
    for (const SentReport& report : sentReports(env.http)) {
      networks.push_back(textOf(report.body, "network"));
    }
    return networks;
  }

 private:
  static std::shared_ptr<ZLNSession> session() {
    return ZLNSession::initWithStartTime(Date{1700000000});
  }
};

// Creation.

TEST_F(ZLNReportingManagerTest, ThereIsOne) {
  EXPECT_EQ(ZLNReportingManager::sharedManager(), ZLNReportingManager::sharedManager());
}

TEST_F(ZLNReportingManagerTest, TransmitsAfterItsStart) {
  setLevel(4);

  EXPECT_FALSE(isSuspended());
  expectLines({"Config is not stale. Update skipped."});

  env.dispatch.runGlobal();

  expectLines({"transmit reports"});
}

TEST_F(ZLNReportingManagerTest, BeginsSuspendedAndDoesNotTransmitWhenItIsNotToSendAtOnce) {
  putSettings({{kTransmitImmediately, Number::boolean(false)}});
  setLevel(4);

  EXPECT_TRUE(isSuspended());
  newLines();

  env.dispatch.runGlobal();

  expectLines({});
}

TEST_F(ZLNReportingManagerTest, SubscribesBeforeItSubmitsItsStartUpTask) {
  setLevel(4);
  env.journal.when("global async", [&] { env.app.enterForeground(); });

  manager();

  expectLines({"Config is not stale. Update skipped.", "temporary error\"d reports restoring",
               "transmit reports"});
}

TEST_F(ZLNReportingManagerTest, OneThatIsGoneFollowsTheApplicationNoLonger) {
  auto manager = ZLNReportingManager::init();
  env.dispatch.runGlobal();
  setLevel(4);
  newLines();

  manager.reset();
  env.app.enterForeground();
  env.app.enterBackground();

  expectLines({});
}

// Operations.

TEST_F(ZLNReportingManagerTest, EveryKindOfReportGetsAnOperation) {
  begin();
  Reports reports = reportsOfAllKinds();
  reports.push_back(std::make_shared<DerivedReport>());

  for (const auto& report : reports) {
    const auto operation = manager().getReportingOperationForReport(report);

    ASSERT_NE(nullptr, operation) << report->className();
    EXPECT_EQ(report, operation->report());
    EXPECT_TRUE(operation->validateResponse());
    EXPECT_EQ(&manager(), operation->delegate().get());
    EXPECT_EQ(0, operation->queuePriority());
  }
}

TEST_F(ZLNReportingManagerTest, AReportOfNoKindAndNoReportGetNoOperation) {
  begin();

  EXPECT_EQ(nullptr, manager().getReportingOperationForReport(reportOfNoKind()));
  EXPECT_EQ(nullptr, manager().getReportingOperationForReport(nullptr));
  expectLines({"unexpected report type ZLNReportBase", "unexpected report type (null)"});
}

// Queueing.

TEST_F(ZLNReportingManagerTest, QueueingNothingIsRefused) {
  begin();

  EXPECT_FALSE(manager().queueReportForTransmission(nullptr));
  expectLines({"attempted to queue nil report"});
  EXPECT_EQ(std::nullopt, env.files.contents(kReportsFile));
}

TEST_F(ZLNReportingManagerTest, AReportOfNoKindIsRefusedAndTheFileWritten) {
  begin();

  EXPECT_FALSE(manager().queueReportForTransmission(reportOfNoKind()));
  expectLines({"queue report <ZLNReportBase: 0x*>", "unexpected report type ZLNReportBase",
               "unable to queue report <ZLNReportBase: 0x*>", "saved 0 reports"});
  EXPECT_EQ(1u, env.files.writeCount(kReportsFile));
}

TEST_F(ZLNReportingManagerTest, AQueuedReportIsSentAndThenStored) {
  begin();

  EXPECT_TRUE(manager().queueReportForTransmission(adReport()));
  expectLines({kQueued, "transmit reports", "manager background task started 1", kSaving,
               "saved 1 reports"});
  EXPECT_THAT(storedReports(env.files), SizeIs(1));
  EXPECT_THAT(env.http.requests(), IsEmpty());

  env.dispatch.runGlobal();

  EXPECT_THAT(env.http.requests(), SizeIs(1));
}

TEST_F(ZLNReportingManagerTest, InASuspendedQueueAReportIsOnlyStored) {
  beginSuspended();

  EXPECT_TRUE(manager().queueReportForTransmission(adReport()));
  env.dispatch.runGlobal();

  expectLines({kQueued, kSaving, "saved 1 reports"});
  EXPECT_EQ(1u, operationCount());
  EXPECT_EQ(0u, env.backgroundTasks.begun());
  EXPECT_THAT(env.http.requests(), IsEmpty());
}

TEST_F(ZLNReportingManagerTest, ThreeAreSentAtATimeInTheOrderOfQueueing) {
  begin();
  for (const char* network : {"a", "b", "c", "d", "e"}) queue(network);

  env.dispatch.runGlobal();

  EXPECT_THAT(sentNetworks(), ElementsAre("a", "b", "c"));
  EXPECT_EQ(5u, operationCount());

  env.http.reply(1, kAccepted);
  env.dispatch.runGlobal();

  EXPECT_THAT(sentNetworks(), ElementsAre("a", "b", "c", "d"));
  EXPECT_EQ(3u, env.http.outstanding());
  EXPECT_THAT(env.backgroundTasks.ended(), IsEmpty());
}

TEST_F(ZLNReportingManagerTest, WithAThousandOperationsAReportIsAcceptedAndThenOneIsRefused) {
  beginSuspended();
  addForeignOperations(1000);

  EXPECT_TRUE(manager().queueReportForTransmission(adReport()));
  EXPECT_EQ(1001u, operationCount());
  EXPECT_THAT(storedReports(env.files), SizeIs(1));

  newLines();

  EXPECT_FALSE(manager().queueReportForTransmission(adReport()));
  expectLines({kQueued, "cannot queue report, queue is full"});
  EXPECT_EQ(1001u, operationCount());
  EXPECT_EQ(1u, env.files.writeCount(kReportsFile));
}

TEST_F(ZLNReportingManagerTest, RunningOperationsCountAgainstTheLimit) {
  begin();
  addForeignOperations(1001);
  env.dispatch.runGlobal();

  EXPECT_FALSE(manager().queueReportForTransmission(adReport()));
}

struct SwitchRow {
  const char* key;
  const char* droppedType;
};

class ZLNReportingManagerSwitchTest : public ZLNReportingManagerTest,
                                      public testing::WithParamInterface<SwitchRow> {};

constexpr SwitchRow kSwitches[] = {
    {"ConfigSerializationKeySendStartSessionReports", "ReportTypeSessionStart"},
    {"ConfigSerializationKeySendStopSessionReports", "ReportTypeSessionStop"},
    {"ConfigSerializationKeySendFirstSessionReports", "ReportTypeSessionFirst"}};

INSTANTIATE_TEST_SUITE_P(Settings, ZLNReportingManagerSwitchTest, testing::ValuesIn(kSwitches),
                         [](const auto& row) { return std::string(row.param.droppedType); });

TEST_P(ZLNReportingManagerSwitchTest, DropsItsKindWithoutAWordAndNoOther) {
  begin({{GetParam().key, Number::boolean(false)}});

  for (const auto& report : reportsOfAllKinds()) {
    const bool dropped = textOf(*report->toDictionary(), "type") == GetParam().droppedType;
    const std::size_t countBefore = operationCount();
    const std::size_t writesBefore = env.files.writeCount(kReportsFile);
    log().clear();

    EXPECT_TRUE(manager().queueReportForTransmission(report)) << report->className();
    EXPECT_EQ(countBefore + (dropped ? 0 : 1), operationCount());
    EXPECT_EQ(writesBefore + (dropped ? 0 : 1), env.files.writeCount(kReportsFile));
    EXPECT_EQ(dropped, log().lines().empty());
  }
}

TEST_F(ZLNReportingManagerTest, SendingAtOnceCountsAtTheMomentOfQueueing) {
  beginSuspended();

  settings().setTransmitReportsImmediately(true);
  queue();

  EXPECT_FALSE(isSuspended());
}

// Transmission and the background task.

TEST_F(ZLNReportingManagerTest, TransmittingNothingChangesNothing) {
  beginSuspended();

  manager().transmitPendingReports();

  expectLines({"transmit reports"});
  EXPECT_TRUE(isSuspended());
  EXPECT_EQ(0u, env.backgroundTasks.begun());
}

TEST_F(ZLNReportingManagerTest, TransmittingResumesTheQueueUnderOneBackgroundTask) {
  beginSuspended();
  queue();
  env.journal.begin();

  manager().transmitPendingReports();
  manager().transmitPendingReports();

  expectCalls({"log: transmit reports", "begin 1", "log: manager background task started 1",
               "global async", "log: transmit reports"});
  EXPECT_FALSE(isSuspended());
  EXPECT_EQ(1u, manager().backgroundTaskId());
  EXPECT_THAT(env.backgroundTasks.open(), ElementsAre(1));
}

TEST_F(ZLNReportingManagerTest, ARefusedBackgroundTaskIsAskedForAgain) {
  begin();
  env.backgroundTasks.nextInvalid = true;

  queue();
  queue();

  EXPECT_EQ(1u, log().count("ZLN Session: manager background task started 0"));
  EXPECT_EQ(1u, log().count("ZLN Session: manager background task started 1"));
  EXPECT_EQ(1u, manager().backgroundTaskId());
}

TEST_F(ZLNReportingManagerTest, StoppingWithoutABackgroundTaskDoesNothing) {
  begin();

  manager().stopBackgroundTask();

  EXPECT_THAT(env.backgroundTasks.ended(), IsEmpty());
  expectLines({});
}

TEST_F(ZLNReportingManagerTest, EveryBackgroundTaskIsStoppedUnderItsOwnNumber) {
  begin();
  env.journal.begin();

  for (int times = 0; times < 2; ++times) {
    manager().startBackgroundTask();
    manager().stopBackgroundTask();

    EXPECT_EQ(kBackgroundTaskInvalid, manager().backgroundTaskId());
  }

  expectCalls({"begin 1", "log: manager background task started 1", "end 1",
               "log: manager background task stopped 1", "begin 2",
               "log: manager background task started 2", "end 2",
               "log: manager background task stopped 2"});
}

TEST_F(ZLNReportingManagerTest, AnExpiredBackgroundTaskIsForgottenAndNotEnded) {
  begin();
  queue();
  newLines();
  whenLogged("saved 1 reports", [] { EXPECT_EQ(1u, manager().backgroundTaskId()); });

  env.backgroundTasks.expire(1);

  expectLines({kSaving, "saved 1 reports"});
  EXPECT_EQ(kBackgroundTaskInvalid, manager().backgroundTaskId());
  EXPECT_THAT(env.backgroundTasks.ended(), IsEmpty());
  EXPECT_THAT(env.backgroundTasks.open(), ElementsAre(1));

  queue();

  EXPECT_EQ(2u, manager().backgroundTaskId());
  EXPECT_EQ(1u, log().count("ZLN Session: manager background task started 2"));
}

// Delivery.

TEST_F(ZLNReportingManagerTest, ADeliveredReportLeavesTheFileAndTheBackgroundTaskEnds) {
  begin();
  send();
  newLines();

  env.http.reply(0, kAccepted);

  expectLines({kSubmitted, "report transmitted successfully",
               kReportTo + "transmitted successfully", "saved 0 reports",
               "manager background task stopped 1"});
  EXPECT_THAT(storedReports(env.files), IsEmpty());
  EXPECT_EQ(0u, operationCount());
  EXPECT_THAT(env.backgroundTasks.ended(), ElementsAre(1));
  EXPECT_FALSE(isSuspended());
}

TEST_F(ZLNReportingManagerTest, AfterASuspendedBatchTheQueueRestsAgain) {
  for (const char* reply : {kAccepted, kRejection}) {
    SCOPED_TRACE(reply);
    restart();
    beginSuspended();
    queue();
    queue();
    manager().transmitPendingReports();
    env.dispatch.runGlobal();
    const std::size_t sent = env.http.requests().size();
    const std::size_t ended = env.backgroundTasks.ended().size();

    env.http.reply(sent - 2, reply);

    EXPECT_FALSE(isSuspended());
    EXPECT_THAT(env.backgroundTasks.ended(), SizeIs(ended));

    env.journal.when("end ", [] { EXPECT_TRUE(isSuspended()); });
    env.http.reply(sent - 1, reply);

    EXPECT_TRUE(isSuspended());
    EXPECT_THAT(env.backgroundTasks.ended(), SizeIs(ended + 1));
  }
}

TEST_F(ZLNReportingManagerTest, ANewReportAfterASuspendedBatchWaitsForTheNextEvent) {
  beginSuspended();
  queue("first");
  manager().transmitPendingReports();
  env.dispatch.runGlobal();
  env.http.reply(0, kAccepted);

  send("second");

  EXPECT_THAT(sentNetworks(), ElementsAre("first"));

  env.app.enterForeground();
  env.dispatch.runGlobal();

  EXPECT_THAT(sentNetworks(), ElementsAre("first", "second"));
}

TEST_F(ZLNReportingManagerTest, SwitchingToSuspendedCountsAtTheNextOutcome) {
  begin();
  send();

  settings().setTransmitReportsImmediately(false);

  EXPECT_FALSE(isSuspended());

  env.http.reply(0, kAccepted);

  EXPECT_TRUE(isSuspended());
}

// Permanent failure.

TEST_F(ZLNReportingManagerTest, APermanentFailureDropsTheReport) {
  begin();
  send();
  newLines();

  env.http.reply(0, kRejection);
  env.dispatch.runGlobal();

  expectLines({"server rejected report <ZLNReportAdAttempt: 0x*>",
               "report failed with permanent error: Error Domain=Zelnor Code=-16 \"bad\" "
               "UserInfo={NSLocalizedDescription=bad}",
               kReportTo + "failed permanently", "saved 0 reports",
               "manager background task stopped 1"});
  EXPECT_THAT(storedReports(env.files), IsEmpty());
  EXPECT_EQ(0u, operationCount());
  EXPECT_THAT(manager().temporaryErrorReports(), IsEmpty());
  EXPECT_THAT(env.http.requests(), SizeIs(1));
  EXPECT_THAT(env.backgroundTasks.ended(), ElementsAre(1));
}

TEST_F(ZLNReportingManagerTest, AnOperationThatLostItsReportIsToldAndLeavesTheQueue) {
  beginSuspended();
  queue();
  firstOperation()->setReport(nullptr);
  manager().transmitPendingReports();
  newLines();

  env.dispatch.runGlobal();

  expectLines({"report operation with no report",
               "report failed with permanent error: Error Domain=Zelnor Code=-13 "
               "\"No report to report\" UserInfo={NSLocalizedDescription=No report to report}",
               "report (null) to (null) failed permanently", "saved 0 reports",
               "manager background task stopped 1"});
  EXPECT_EQ(0u, operationCount());
}

// Temporary failure.

TEST_F(ZLNReportingManagerTest, ATemporaryFailureIsSentAgainAtOnceAndStoredTwiceMeanwhile) {
  begin();
  const auto report = send();
  newLines();
  whenLogged("saved 1 reports", [&] { EXPECT_EQ(0, report->temporaryFailureCount()); });
  whenLogged("queue report", [&] { EXPECT_EQ(1, report->temporaryFailureCount()); });

  timeOut();

  expectLines({kNotSubmitted, kFailedForNow, kReportTo + "failed temporarily", kSaving,
               "saved 1 reports", kQueued, "transmit reports", kSaving, kSaving,
               "saved 2 reports"});
  EXPECT_EQ(1, report->temporaryFailureCount());
  EXPECT_EQ(1u, operationCount());
  EXPECT_THAT(env.backgroundTasks.ended(), IsEmpty());
  ASSERT_THAT(storedReports(env.files), SizeIs(2));
  for (const Dictionary& stored : storedReports(env.files)) {
    EXPECT_EQ("00000000-0000-4000-8000-000000000001", textOf(stored, "adEventId"));
  }

  env.dispatch.runGlobal();

  ASSERT_THAT(env.http.requests(), SizeIs(2));
  EXPECT_EQ(env.http.requests()[0].body, env.http.requests()[1].body);

  env.http.reply(1, kAccepted);

  EXPECT_THAT(storedReports(env.files), IsEmpty());
}

TEST_F(ZLNReportingManagerTest, ARetryGoesBehindWhatWaits) {
  begin();
  for (const char* network : {"a", "b", "c", "d"}) queue(network);
  env.dispatch.runGlobal();

  env.http.fail(0, -1001);
  env.http.reply(1, kAccepted);
  env.dispatch.runGlobal();

  EXPECT_THAT(sentNetworks(), ElementsAre("a", "b", "c", "d", "a"));
}

TEST_F(ZLNReportingManagerTest, AfterTheThirdTemporaryFailureTheReportIsHeld) {
  begin();
  const auto report = send();
  for (int attempt = 0; attempt < 2; ++attempt) {
    timeOut();
    env.dispatch.runGlobal();
  }
  newLines();

  timeOut();

  expectLines({kNotSubmitted, kFailedForNow, kReportTo + "failed temporarily", kSaving,
               "saved 1 reports", "report added to temporary error holding",
               "manager background task stopped 1"});
  EXPECT_THAT(manager().temporaryErrorReports(), ElementsAre(report));
  EXPECT_EQ(3, report->temporaryFailureCount());
  EXPECT_EQ(0u, operationCount());
  EXPECT_THAT(storedReports(env.files), SizeIs(1));

  env.dispatch.runGlobal();

  EXPECT_THAT(env.http.requests(), SizeIs(3));
}

struct LimitRow {
  std::int32_t limit;
  std::size_t attempts;
};

TEST_F(ZLNReportingManagerTest, TheLimitSaysHowOftenAReportIsSentInARow) {
  for (const auto& [limit, attempts] :
       std::vector<LimitRow>{{-1, 1}, {0, 1}, {1, 1}, {2, 2}, {3, 3}, {5, 5}}) {
    SCOPED_TRACE(limit);
    restart();
    env.files.remove(kReportsFile, nullptr);
    begin({{kFailureLimit, Number::int32(limit)}});
    const std::size_t sentBefore = env.http.requests().size();
    queue();

    failAllTemporarily();

    EXPECT_THAT(env.http.requests(), SizeIs(sentBefore + attempts));
    EXPECT_THAT(manager().temporaryErrorReports(), SizeIs(1));
  }
}

TEST_F(ZLNReportingManagerTest, TheLimitCountsAtTheMomentOfTheFailure) {
  begin();
  send();

  settings().setReportTemporaryFailureLimit(1);
  timeOut();

  EXPECT_THAT(manager().temporaryErrorReports(), SizeIs(1));
}

TEST_F(ZLNReportingManagerTest, ARetryThatMeetsAFullQueueLosesTheReport) {
  begin();
  send();
  addForeignOperations(1000);

  timeOut();

  EXPECT_TRUE(log().contains("ZLN Session: cannot queue report, queue is full"));
  EXPECT_EQ(1000u, operationCount());
  EXPECT_THAT(manager().temporaryErrorReports(), IsEmpty());

  manager().saveReports();

  EXPECT_THAT(storedReports(env.files), IsEmpty());
}

TEST_F(ZLNReportingManagerTest, AReportOrRetryOfAKindSwitchedOffMeanwhileIsDropped) {
  begin();
  manager().queueReportForTransmission(stopReport());
  env.dispatch.runGlobal();
  settings().setSendStopSessionReports(false);

  manager().queueReportForTransmission(stopReport());

  EXPECT_EQ(1u, operationCount());

  timeOut();
  env.dispatch.runGlobal();

  EXPECT_EQ(0u, operationCount());
  EXPECT_THAT(manager().temporaryErrorReports(), IsEmpty());
  EXPECT_THAT(env.http.requests(), SizeIs(1));
}

TEST_F(ZLNReportingManagerTest, AHeldReportOfASuspendedBatchLetsTheQueueRest) {
  beginSuspended({{kFailureLimit, Number::int32(1)}});
  queue();
  queue();
  manager().transmitPendingReports();
  env.dispatch.runGlobal();

  env.http.fail(0, -1001);

  EXPECT_FALSE(isSuspended());
  EXPECT_THAT(env.backgroundTasks.ended(), IsEmpty());

  env.journal.when("end 1", [] {
    EXPECT_THAT(manager().temporaryErrorReports(), SizeIs(2));
    EXPECT_TRUE(isSuspended());
  });
  env.http.fail(1, -1001);

  EXPECT_TRUE(isSuspended());
  EXPECT_THAT(env.backgroundTasks.ended(), ElementsAre(1));
  EXPECT_THAT(manager().temporaryErrorReports(), SizeIs(2));
}

TEST_F(ZLNReportingManagerTest, ARetryOfASuspendedBatchKeepsTheQueueRunning) {
  beginSuspended();
  queue();
  manager().transmitPendingReports();
  env.dispatch.runGlobal();

  timeOut();

  EXPECT_FALSE(isSuspended());
  EXPECT_THAT(env.backgroundTasks.ended(), IsEmpty());

  env.dispatch.runGlobal();

  EXPECT_THAT(env.http.requests(), SizeIs(2));
}

// The application's events.

TEST_F(ZLNReportingManagerTest, AHeldReportWaitsForTheForegroundAndIsThenSentThreeTimesMore) {
  begin();
  const auto report = queue();
  failAllTemporarily();

  env.app.becomeActive();
  env.app.enterBackground();
  env.app.resignActive();
  manager().transmitPendingReports();
  env.dispatch.runGlobal();

  EXPECT_THAT(env.http.requests(), SizeIs(3));
  EXPECT_EQ(3, report->temporaryFailureCount());

  env.app.enterForeground();

  EXPECT_EQ(0, report->temporaryFailureCount());
  EXPECT_THAT(manager().temporaryErrorReports(), IsEmpty());

  failAllTemporarily();

  EXPECT_THAT(env.http.requests(), SizeIs(6));
  EXPECT_THAT(manager().temporaryErrorReports(), ElementsAre(report));
}

TEST_F(ZLNReportingManagerTest, TheForegroundRestoresAndThenSendsWhatWaitsInASuspendedQueue) {
  beginSuspended();
  queue();
  newLines();

  env.app.enterForeground();

  expectLines({"temporary error\"d reports restoring", "transmit reports",
               "manager background task started 1"});
  EXPECT_FALSE(isSuspended());

  env.dispatch.runGlobal();

  EXPECT_THAT(env.http.requests(), SizeIs(1));
}

TEST_F(ZLNReportingManagerTest, WhereTheForegroundSendsNothingHeldReportsAreRestoredAllTheSame) {
  beginSuspended(
      {{kTransmitOnForegrounding, Number::boolean(false)}, {kFailureLimit, Number::int32(1)}});
  queue();
  env.app.enterBackground();
  failAllTemporarily();
  newLines();

  env.app.enterForeground();
  env.dispatch.runGlobal();

  expectLines({"temporary error\"d reports restoring", kQueued, kSaving, "saved 1 reports"});
  EXPECT_THAT(manager().temporaryErrorReports(), IsEmpty());
  EXPECT_TRUE(isSuspended());
  EXPECT_THAT(env.http.requests(), SizeIs(1));
}

TEST_F(ZLNReportingManagerTest, TheBackgroundTransmitsAndThenSaves) {
  beginSuspended();
  // Has no effect.
  settings().setSendPartialReportsOnBackgrounding(false);
  queue();
  newLines();

  env.app.enterBackground();

  expectLines(
      {"transmit reports", "manager background task started 1", kSaving, "saved 1 reports"});
  EXPECT_FALSE(isSuspended());
}

TEST_F(ZLNReportingManagerTest, TheBackgroundOnlySavesWhenSendingIsSwitchedOff) {
  beginSuspended({{kTransmitOnBackgrounding, Number::boolean(false)}});
  queue();
  newLines();

  env.app.enterBackground();

  expectLines({kSaving, "saved 1 reports"});
  EXPECT_TRUE(isSuspended());
  EXPECT_EQ(0u, env.backgroundTasks.begun());
}

TEST_F(ZLNReportingManagerTest, ActivationAndTerminationDoNotConcernIt) {
  begin();

  env.app.becomeActive();
  env.app.resignActive();
  env.app.terminate();

  expectLines({"Config is not stale. Update skipped."});
}

}  // namespace
}  // namespace zln
