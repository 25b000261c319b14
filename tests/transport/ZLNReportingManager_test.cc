#include "transport/ZLNReportingManager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "config/ZLNReportingConfig.h"
#include "reports/ZLNReportAdZoneAttempt.h"
#include "reports/ZLNReportSessionFirst.h"
#include "reports/ZLNReportSessionStart.h"
#include "reports/ZLNReportSessionStop.h"
#include "support/endpoints.h"
#include "tests/support/sent_reports.h"
#include "tests/transport/reporting_test.h"

namespace zln {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kAccepted[] = R"({"success":true})";
constexpr char kRejectedForGood[] = R"({"success":false,"errorIsPermanent":true,"error":"bad"})";

// A place in the queue that nobody works at.
class IdleOperation : public ZLNAsynchronousOperation {
 public:
  std::string description() const override { return "idle operation"; }
};

class DerivedReport : public ZLNReportSessionStop {
 public:
  DerivedReport() : ZLNReportSessionStop(std::shared_ptr<ZLNSession>()) {}
};

class ZLNReportingManagerTest : public ReportingTest {
 protected:
  // The manager after its start-up task, with the log empty and at verbose.
  ZLNReportingManager& begin() {
    ZLNReportingManager& begun = *ZLNReportingManager::sharedManager();
    env.dispatch.runGlobal();
    setLevel(4);
    log().clear();
    return begun;
  }

  // The same with its queue suspended.
  ZLNReportingManager& beginSuspended() {
    putSettings({{kTransmitImmediately, Number::boolean(false)}});
    return begin();
  }

  // Sends and fails, one after the other, all requests that the queue makes until it makes none.
  void failAllTemporarily() {
    env.dispatch.runGlobal();
    while (env.http.outstanding() != 0) {
      env.http.fail(env.http.requests().size() - 1, -1001);
      env.dispatch.runGlobal();
    }
  }

  static ZLNReportingConfig& settings() { return *ZLNReportingConfig::sharedConfig(); }

  static std::shared_ptr<ZLNSession> session() {
    return ZLNSession::initWithStartTime(Date{1700000000});
  }

  static constexpr char kTransmitImmediately[] = "ConfigSerializationKeyTransmitReportsImmediately";
  static constexpr char kTransmitOnForegrounding[] =
      "ConfigSerializationKeyTransmitReportsOnApplicationForegrounding";
  static constexpr char kTransmitOnBackgrounding[] =
      "ConfigSerializationKeyTransmitReportsOnApplicationBackgrounding";
  static constexpr char kFailureLimit[] = "ConfigSerializationKeyReportTemporaryFailureLimit";
};

const std::string kQueued = "ZLN Session: queue report <ZLNReportAdAttempt: 0x*>";
const std::string kSaving =
    std::string("ZLN Session: saving report <ZLNReportAdAttempt: 0x*> to ") + kAdAttemptUrl;

// Creation.

TEST_F(ZLNReportingManagerTest, ThereIsOne) {
  EXPECT_EQ(ZLNReportingManager::sharedManager(), ZLNReportingManager::sharedManager());
}

TEST_F(ZLNReportingManagerTest, BeginsWithNothing) {
  const auto manager = ZLNReportingManager::sharedManager();

  EXPECT_EQ(0u, manager->reportQueue().operationCount());
  EXPECT_THAT(manager->temporaryErrorReports(), IsEmpty());
  EXPECT_EQ(kBackgroundTaskInvalid, manager->backgroundTaskId());
}

TEST_F(ZLNReportingManagerTest, BeginsToSendAtOnceByDefault) {
  EXPECT_FALSE(ZLNReportingManager::sharedManager()->reportQueue().isSuspended());
}

TEST_F(ZLNReportingManagerTest, BeginsSuspendedWhenItIsNotToSendAtOnce) {
  putSettings({{kTransmitImmediately, Number::boolean(false)}});

  EXPECT_TRUE(ZLNReportingManager::sharedManager()->reportQueue().isSuspended());
}

TEST_F(ZLNReportingManagerTest, TransmitsAfterItsStart) {
  setLevel(4);

  ZLNReportingManager::sharedManager();
  const std::vector<std::string> before = newLines();
  env.dispatch.runGlobal();

  EXPECT_THAT(before, ElementsAre("ZLN Session: Config is not stale. Update skipped."));
  EXPECT_THAT(newLines(), ElementsAre("ZLN Session: transmit reports"));
}

TEST_F(ZLNReportingManagerTest, DoesNotTransmitAfterASuspendedStart) {
  putSettings({{kTransmitImmediately, Number::boolean(false)}});
  setLevel(4);

  ZLNReportingManager::sharedManager();
  newLines();
  env.dispatch.runGlobal();

  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(ZLNReportingManagerTest, OneThatIsGoneFollowsTheApplicationNoLonger) {
  auto manager = ZLNReportingManager::init();
  env.dispatch.runGlobal();
  setLevel(4);
  log().clear();

  manager.reset();
  env.app.enterForeground();
  env.app.enterBackground();

  EXPECT_THAT(newLines(), IsEmpty());
}

// Operations.

TEST_F(ZLNReportingManagerTest, EveryKindOfReportGetsAnOperation) {
  ZLNReportingManager& manager = begin();
  const std::vector<std::shared_ptr<ZLNReportBase>> reports = {
      ZLNReportSessionFirst::reportWithSession(session()),
      ZLNReportSessionStart::reportWithSession(session()),
      ZLNReportSessionStop::reportWithSession(session()), adReport(),
      ZLNReportAdZoneAttempt::reportWithNetwork("net", "banner", "zone", false)};

  for (const auto& report : reports) {
    const auto operation = manager.getReportingOperationForReport(report);

    ASSERT_NE(nullptr, operation) << report->className();
    EXPECT_EQ(report, operation->report());
    EXPECT_TRUE(operation->validateResponse());
    EXPECT_EQ(ZLNReportingManager::sharedManager(), operation->delegate());
    EXPECT_EQ(0, operation->queuePriority());
  }
}

TEST_F(ZLNReportingManagerTest, AKindDerivedFromAnotherGetsAnOperation) {
  EXPECT_NE(nullptr, begin().getReportingOperationForReport(std::make_shared<DerivedReport>()));
}

TEST_F(ZLNReportingManagerTest, AReportOfNoKindGetsNoOperation) {
  const auto report = ZLNReportBase::initWithURLString("https://reports.invalid/session");

  EXPECT_EQ(nullptr, begin().getReportingOperationForReport(report));
  EXPECT_THAT(newLines(), ElementsAre("ZLN Session: unexpected report type ZLNReportBase"));
}

TEST_F(ZLNReportingManagerTest, NoReportGetsNoOperation) {
  EXPECT_EQ(nullptr, begin().getReportingOperationForReport(nullptr));
  EXPECT_THAT(newLines(), ElementsAre("ZLN Session: unexpected report type (null)"));
}

// Queueing.

TEST_F(ZLNReportingManagerTest, QueueingNothingIsRefused) {
  EXPECT_FALSE(begin().queueReportForTransmission(nullptr));
  EXPECT_THAT(newLines(), ElementsAre("ZLN Session: attempted to queue nil report"));
  EXPECT_EQ(std::nullopt, env.files.contents(kReportsFile));
}

TEST_F(ZLNReportingManagerTest, AReportOfNoKindIsRefusedAndTheFileWritten) {
  const auto report = ZLNReportBase::initWithURLString("https://reports.invalid/session");

  EXPECT_FALSE(begin().queueReportForTransmission(report));
  EXPECT_THAT(newLines(), ElementsAre("ZLN Session: queue report <ZLNReportBase: 0x*>",
                                      "ZLN Session: unexpected report type ZLNReportBase",
                                      "ZLN Session: unable to queue report <ZLNReportBase: 0x*>",
                                      "ZLN Session: saved 0 reports"));
  EXPECT_EQ(1u, env.files.writeCount(kReportsFile));
}

TEST_F(ZLNReportingManagerTest, AQueuedReportIsSentAndThenStored) {
  ZLNReportingManager& manager = begin();

  EXPECT_TRUE(manager.queueReportForTransmission(adReport()));
  EXPECT_THAT(newLines(), ElementsAre(kQueued, "ZLN Session: transmit reports",
                                      "ZLN Session: manager background task started 1", kSaving,
                                      "ZLN Session: saved 1 reports"));
  EXPECT_EQ(1u, storedReports(env.files).size());
  EXPECT_THAT(env.http.requests(), IsEmpty());

  env.dispatch.runGlobal();

  EXPECT_EQ(1u, env.http.requests().size());
}

TEST_F(ZLNReportingManagerTest, InASuspendedQueueAReportIsOnlyStored) {
  ZLNReportingManager& manager = beginSuspended();

  EXPECT_TRUE(manager.queueReportForTransmission(adReport()));
  env.dispatch.runGlobal();

  EXPECT_THAT(newLines(), ElementsAre(kQueued, kSaving, "ZLN Session: saved 1 reports"));
  EXPECT_EQ(1u, manager.reportQueue().operationCount());
  EXPECT_EQ(0u, env.backgroundTasks.begun());
  EXPECT_THAT(env.http.requests(), IsEmpty());
}

TEST_F(ZLNReportingManagerTest, ThreeAreSentAtATimeInTheOrderOfQueueing) {
  ZLNReportingManager& manager = begin();
  for (const char* network : {"a", "b", "c", "d", "e"}) {
    manager.queueReportForTransmission(adReport(network));
  }

  env.dispatch.runGlobal();

  std::vector<std::string> sent;
  for (const SentReport& report : sentReports(env.http)) {
    sent.push_back(textOf(report.body, "network"));
  }
  EXPECT_THAT(sent, ElementsAre("a", "b", "c"));
  EXPECT_EQ(5u, manager.reportQueue().operationCount());
}

TEST_F(ZLNReportingManagerTest, AnEndedReportMakesRoomForTheNext) {
  ZLNReportingManager& manager = begin();
  for (const char* network : {"a", "b", "c", "d", "e"}) {
    manager.queueReportForTransmission(adReport(network));
  }
  env.dispatch.runGlobal();

  env.http.reply(1, kAccepted);
  env.dispatch.runGlobal();

  ASSERT_EQ(4u, env.http.requests().size());
  EXPECT_EQ("d", textOf(sentReports(env.http)[3].body, "network"));
  EXPECT_EQ(3u, env.http.outstanding());
}

TEST_F(ZLNReportingManagerTest, WithAThousandOperationsAReportIsAccepted) {
  ZLNReportingManager& manager = beginSuspended();
  for (int count = 0; count < 1000; ++count) {
    manager.reportQueue().addOperation(std::make_shared<IdleOperation>());
  }

  EXPECT_TRUE(manager.queueReportForTransmission(adReport()));
  EXPECT_EQ(1001u, manager.reportQueue().operationCount());
  EXPECT_EQ(1u, storedReports(env.files).size());
}

TEST_F(ZLNReportingManagerTest, WithAThousandAndOneOperationsAReportIsRefusedUnsaved) {
  ZLNReportingManager& manager = beginSuspended();
  for (int count = 0; count < 1001; ++count) {
    manager.reportQueue().addOperation(std::make_shared<IdleOperation>());
  }

  EXPECT_FALSE(manager.queueReportForTransmission(adReport()));
  EXPECT_THAT(newLines(), ElementsAre(kQueued, "ZLN Session: cannot queue report, queue is full"));
  EXPECT_EQ(1001u, manager.reportQueue().operationCount());
  EXPECT_EQ(std::nullopt, env.files.contents(kReportsFile));
}

TEST_F(ZLNReportingManagerTest, RunningOperationsCountAgainstTheLimit) {
  ZLNReportingManager& manager = begin();
  for (int count = 0; count < 1001; ++count) {
    manager.reportQueue().addOperation(std::make_shared<IdleOperation>());
  }
  env.dispatch.runGlobal();

  EXPECT_FALSE(manager.queueReportForTransmission(adReport()));
}

struct SwitchRow {
  const char* name;
  const char* key;
  const char* droppedType;
};

class ZLNReportingManagerSwitchTest : public ZLNReportingManagerTest,
                                      public testing::WithParamInterface<SwitchRow> {};

INSTANTIATE_TEST_SUITE_P(
    Settings, ZLNReportingManagerSwitchTest,
    testing::Values(SwitchRow{"Start", "ConfigSerializationKeySendStartSessionReports",
                              "ReportTypeSessionStart"},
                    SwitchRow{"Stop", "ConfigSerializationKeySendStopSessionReports",
                              "ReportTypeSessionStop"},
                    SwitchRow{"First", "ConfigSerializationKeySendFirstSessionReports",
                              "ReportTypeSessionFirst"}),
    [](const auto& parameter) { return parameter.param.name; });

TEST_P(ZLNReportingManagerSwitchTest, DropsItsKindWithoutAWordAndNoOther) {
  putSettings({{GetParam().key, Number::boolean(false)}});
  ZLNReportingManager& manager = begin();
  const std::vector<std::shared_ptr<ZLNReportBase>> reports = {
      ZLNReportSessionFirst::reportWithSession(session()),
      ZLNReportSessionStart::reportWithSession(session()),
      ZLNReportSessionStop::reportWithSession(session()), adReport(),
      ZLNReportAdZoneAttempt::reportWithNetwork("net", "banner", "zone", false)};

  for (const auto& report : reports) {
    const bool dropped = textOf(*report->toDictionary(), "type") == GetParam().droppedType;
    const std::size_t countBefore = manager.reportQueue().operationCount();
    const std::size_t writesBefore = env.files.writeCount(kReportsFile);
    log().clear();

    EXPECT_TRUE(manager.queueReportForTransmission(report)) << report->className();
    EXPECT_EQ(countBefore + (dropped ? 0 : 1), manager.reportQueue().operationCount());
    EXPECT_EQ(writesBefore + (dropped ? 0 : 1), env.files.writeCount(kReportsFile));
    EXPECT_EQ(dropped, log().lines().empty());
  }
}

TEST_F(ZLNReportingManagerTest, ASwitchCountsAtTheMomentOfQueueing) {
  ZLNReportingManager& manager = begin();
  manager.queueReportForTransmission(ZLNReportSessionStop::reportWithSession(session()));

  settings().setSendStopSessionReports(false);
  manager.queueReportForTransmission(ZLNReportSessionStop::reportWithSession(session()));

  EXPECT_EQ(1u, manager.reportQueue().operationCount());
}

TEST_F(ZLNReportingManagerTest, SendingAtOnceCountsAtTheMomentOfQueueing) {
  ZLNReportingManager& manager = beginSuspended();

  settings().setTransmitReportsImmediately(true);
  manager.queueReportForTransmission(adReport());

  EXPECT_FALSE(manager.reportQueue().isSuspended());
}

// Transmission and the background task.

TEST_F(ZLNReportingManagerTest, TransmittingNothingChangesNothing) {
  ZLNReportingManager& manager = beginSuspended();

  manager.transmitPendingReports();

  EXPECT_THAT(newLines(), ElementsAre("ZLN Session: transmit reports"));
  EXPECT_TRUE(manager.reportQueue().isSuspended());
  EXPECT_EQ(0u, env.backgroundTasks.begun());
}

TEST_F(ZLNReportingManagerTest, TransmittingResumesTheQueueUnderABackgroundTask) {
  ZLNReportingManager& manager = beginSuspended();
  manager.queueReportForTransmission(adReport());
  newLines();

  manager.transmitPendingReports();

  EXPECT_THAT(newLines(), ElementsAre("ZLN Session: transmit reports",
                                      "ZLN Session: manager background task started 1"));
  EXPECT_FALSE(manager.reportQueue().isSuspended());
  EXPECT_EQ(1u, manager.backgroundTaskId());
  EXPECT_THAT(env.backgroundTasks.open(), ElementsAre(1u));
}

TEST_F(ZLNReportingManagerTest, OneBackgroundTaskCoversAllReports) {
  ZLNReportingManager& manager = begin();

  manager.queueReportForTransmission(adReport());
  manager.queueReportForTransmission(adReport());

  EXPECT_EQ(1u, env.backgroundTasks.begun());
  EXPECT_EQ(1u, log().count("ZLN Session: manager background task started 1"));
}

TEST_F(ZLNReportingManagerTest, ARefusedBackgroundTaskIsAskedForAgain) {
  ZLNReportingManager& manager = begin();
  env.backgroundTasks.nextInvalid = true;

  manager.queueReportForTransmission(adReport());
  manager.queueReportForTransmission(adReport());

  EXPECT_EQ(1u, log().count("ZLN Session: manager background task started 0"));
  EXPECT_EQ(1u, log().count("ZLN Session: manager background task started 1"));
  EXPECT_EQ(1u, manager.backgroundTaskId());
}

TEST_F(ZLNReportingManagerTest, StoppingWithoutABackgroundTaskDoesNothing) {
  ZLNReportingManager& manager = begin();

  manager.stopBackgroundTask();

  EXPECT_THAT(env.backgroundTasks.ended(), IsEmpty());
  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(ZLNReportingManagerTest, StoppingEndsTheBackgroundTask) {
  ZLNReportingManager& manager = begin();
  manager.startBackgroundTask();
  newLines();

  manager.stopBackgroundTask();

  EXPECT_THAT(newLines(), ElementsAre("ZLN Session: manager background task stopped 1"));
  EXPECT_THAT(env.backgroundTasks.ended(), ElementsAre(1u));
  EXPECT_EQ(kBackgroundTaskInvalid, manager.backgroundTaskId());
}

TEST_F(ZLNReportingManagerTest, EveryBackgroundTaskIsStoppedUnderItsOwnNumber) {
  ZLNReportingManager& manager = begin();
  manager.startBackgroundTask();
  manager.stopBackgroundTask();
  newLines();

  manager.startBackgroundTask();
  manager.stopBackgroundTask();

  EXPECT_THAT(newLines(), ElementsAre("ZLN Session: manager background task started 2",
                                      "ZLN Session: manager background task stopped 2"));
  EXPECT_THAT(env.backgroundTasks.ended(), ElementsAre(1u, 2u));
}

TEST_F(ZLNReportingManagerTest, AnExpiredBackgroundTaskIsForgottenAndNotEnded) {
  ZLNReportingManager& manager = begin();
  manager.queueReportForTransmission(adReport());
  newLines();

  env.backgroundTasks.expire(1);

  EXPECT_THAT(newLines(), ElementsAre(kSaving, "ZLN Session: saved 1 reports"));
  EXPECT_EQ(kBackgroundTaskInvalid, manager.backgroundTaskId());
  EXPECT_THAT(env.backgroundTasks.ended(), IsEmpty());
  EXPECT_THAT(env.backgroundTasks.open(), ElementsAre(1u));
}

TEST_F(ZLNReportingManagerTest, AfterAnExpiredBackgroundTaskAnotherIsBegun) {
  ZLNReportingManager& manager = begin();
  manager.queueReportForTransmission(adReport());
  env.backgroundTasks.expire(1);

  manager.queueReportForTransmission(adReport());

  EXPECT_EQ(2u, manager.backgroundTaskId());
  EXPECT_EQ(1u, log().count("ZLN Session: manager background task started 2"));
}

// Delivery.

TEST_F(ZLNReportingManagerTest, ADeliveredReportLeavesTheFileAndTheBackgroundTaskEnds) {
  ZLNReportingManager& manager = begin();
  manager.queueReportForTransmission(adReport());
  env.dispatch.runGlobal();
  setLevel(4);
  newLines();

  env.http.reply(0, kAccepted);

  EXPECT_EQ(
      (std::vector<std::string>{
          std::string("ZLN Session: report submitted; response <NSHTTPURLResponse: 0x*> { URL: ") +
              kAdAttemptUrl + " } { Status Code: 200, Headers {\n} } = {\"success\":true}",
          "ZLN Session: report transmitted successfully",
          std::string("ZLN Session: report <ZLNReportAdAttempt: 0x*> to ") + kAdAttemptUrl +
              " transmitted successfully",
          "ZLN Session: saved 0 reports", "ZLN Session: manager background task stopped 1"}),
      newLines());
  EXPECT_THAT(storedReports(env.files), IsEmpty());
  EXPECT_EQ(0u, manager.reportQueue().operationCount());
  EXPECT_THAT(env.backgroundTasks.ended(), ElementsAre(1u));
  EXPECT_FALSE(manager.reportQueue().isSuspended());
}

TEST_F(ZLNReportingManagerTest, TheBackgroundTaskLastsUntilTheLastReportIsDelivered) {
  ZLNReportingManager& manager = begin();
  manager.queueReportForTransmission(adReport());
  manager.queueReportForTransmission(adReport());
  env.dispatch.runGlobal();

  env.http.reply(0, kAccepted);

  EXPECT_THAT(env.backgroundTasks.ended(), IsEmpty());
  ASSERT_EQ(1u, storedReports(env.files).size());
  EXPECT_EQ("00000000-0000-4000-8000-000000000002",
            textOf(storedReports(env.files)[0], "adEventId"));

  env.http.reply(1, kAccepted);

  EXPECT_THAT(env.backgroundTasks.ended(), ElementsAre(1u));
}

TEST_F(ZLNReportingManagerTest, AfterASuspendedBatchTheQueueRestsAgain) {
  ZLNReportingManager& manager = beginSuspended();
  manager.queueReportForTransmission(adReport());
  manager.queueReportForTransmission(adReport());
  manager.transmitPendingReports();
  env.dispatch.runGlobal();

  env.http.reply(0, kAccepted);

  EXPECT_FALSE(manager.reportQueue().isSuspended());

  env.http.reply(1, kAccepted);

  EXPECT_TRUE(manager.reportQueue().isSuspended());
  EXPECT_THAT(env.backgroundTasks.ended(), ElementsAre(1u));
}

TEST_F(ZLNReportingManagerTest, ANewReportAfterASuspendedBatchWaitsForTheNextEvent) {
  ZLNReportingManager& manager = beginSuspended();
  manager.queueReportForTransmission(adReport("first"));
  manager.transmitPendingReports();
  env.dispatch.runGlobal();
  env.http.reply(0, kAccepted);

  manager.queueReportForTransmission(adReport("second"));
  env.dispatch.runGlobal();

  EXPECT_EQ(1u, env.http.requests().size());

  env.app.enterForeground();
  env.dispatch.runGlobal();

  ASSERT_EQ(2u, env.http.requests().size());
  EXPECT_EQ("second", textOf(sentReports(env.http)[1].body, "network"));
}

TEST_F(ZLNReportingManagerTest, SwitchingToSuspendedCountsAtTheNextOutcome) {
  ZLNReportingManager& manager = begin();
  manager.queueReportForTransmission(adReport());
  env.dispatch.runGlobal();

  settings().setTransmitReportsImmediately(false);

  EXPECT_FALSE(manager.reportQueue().isSuspended());

  env.http.reply(0, kAccepted);

  EXPECT_TRUE(manager.reportQueue().isSuspended());
}

// Permanent failure.

TEST_F(ZLNReportingManagerTest, APermanentFailureDropsTheReport) {
  ZLNReportingManager& manager = begin();
  manager.queueReportForTransmission(adReport());
  env.dispatch.runGlobal();
  newLines();

  env.http.reply(0, kRejectedForGood);
  env.dispatch.runGlobal();

  EXPECT_EQ((std::vector<std::string>{
                "ZLN Session: server rejected report <ZLNReportAdAttempt: 0x*>",
                "ZLN Session: report failed with permanent error: Error Domain=Zelnor Code=-16 "
                "\"bad\" UserInfo={NSLocalizedDescription=bad}",
                std::string("ZLN Session: report <ZLNReportAdAttempt: 0x*> to ") + kAdAttemptUrl +
                    " failed permanently",
                "ZLN Session: saved 0 reports", "ZLN Session: manager background task stopped 1"}),
            newLines());
  EXPECT_THAT(storedReports(env.files), IsEmpty());
  EXPECT_EQ(0u, manager.reportQueue().operationCount());
  EXPECT_THAT(manager.temporaryErrorReports(), IsEmpty());
  EXPECT_EQ(1u, env.http.requests().size());
  EXPECT_THAT(env.backgroundTasks.ended(), ElementsAre(1u));
}

TEST_F(ZLNReportingManagerTest, ABackgroundTaskAndTheQueueOutlastAPermanentFailureOfOneOfTwo) {
  ZLNReportingManager& manager = beginSuspended();
  manager.queueReportForTransmission(adReport());
  manager.queueReportForTransmission(adReport());
  manager.transmitPendingReports();
  env.dispatch.runGlobal();

  env.http.reply(0, kRejectedForGood);

  EXPECT_FALSE(manager.reportQueue().isSuspended());
  EXPECT_THAT(env.backgroundTasks.ended(), IsEmpty());

  env.http.reply(1, kRejectedForGood);

  EXPECT_TRUE(manager.reportQueue().isSuspended());
  EXPECT_THAT(env.backgroundTasks.ended(), ElementsAre(1u));
}

TEST_F(ZLNReportingManagerTest, AnOperationThatLostItsReportIsToldAndLeavesTheQueue) {
  ZLNReportingManager& manager = beginSuspended();
  manager.queueReportForTransmission(adReport());
  const auto operation =
      std::dynamic_pointer_cast<ZLNReportOperationBase>(manager.reportQueue().operations()[0]);
  operation->setReport(nullptr);
  manager.transmitPendingReports();
  newLines();

  env.dispatch.runGlobal();

  EXPECT_THAT(newLines(),
              ElementsAre("ZLN Session: report operation with no report",
                          "ZLN Session: report failed with permanent error: Error Domain=Zelnor "
                          "Code=-13 \"No report to report\" "
                          "UserInfo={NSLocalizedDescription=No report to report}",
                          "ZLN Session: report (null) to (null) failed permanently",
                          "ZLN Session: saved 0 reports",
                          "ZLN Session: manager background task stopped 1"));
  EXPECT_EQ(0u, manager.reportQueue().operationCount());
}

// Temporary failure.

TEST_F(ZLNReportingManagerTest, ATemporaryFailureIsSentAgainAtOnce) {
  ZLNReportingManager& manager = begin();
  const auto report = adReport();
  manager.queueReportForTransmission(report);
  env.dispatch.runGlobal();
  newLines();

  env.http.fail(0, -1001);

  EXPECT_EQ((std::vector<std::string>{
                "ZLN Session: failed to submit report with Error Domain=NSURLErrorDomain "
                "Code=-1001 \"(null)\"",
                "ZLN Session: report failed with temporary error: Error Domain=NSURLErrorDomain "
                "Code=-1001 \"(null)\"",
                std::string("ZLN Session: report <ZLNReportAdAttempt: 0x*> to ") + kAdAttemptUrl +
                    " failed temporarily",
                kSaving, "ZLN Session: saved 1 reports", kQueued, "ZLN Session: transmit reports",
                kSaving, kSaving, "ZLN Session: saved 2 reports"}),
            newLines());
  EXPECT_EQ(1, report->temporaryFailureCount());
  EXPECT_EQ(1u, manager.reportQueue().operationCount());
  EXPECT_THAT(env.backgroundTasks.ended(), IsEmpty());

  env.dispatch.runGlobal();

  ASSERT_EQ(2u, env.http.requests().size());
  EXPECT_EQ(env.http.requests()[0].body, env.http.requests()[1].body);
}

TEST_F(ZLNReportingManagerTest, TheFileWrittenWhileItIsQueuedAgainListsTheReportTwice) {
  begin().queueReportForTransmission(adReport());
  env.dispatch.runGlobal();

  env.http.fail(0, -1001);

  const std::vector<Dictionary> stored = storedReports(env.files);
  ASSERT_EQ(2u, stored.size());
  EXPECT_EQ("00000000-0000-4000-8000-000000000001", textOf(stored[0], "adEventId"));
  EXPECT_EQ("00000000-0000-4000-8000-000000000001", textOf(stored[1], "adEventId"));
}

TEST_F(ZLNReportingManagerTest, ARetryThatIsDeliveredLeavesTheFile) {
  begin().queueReportForTransmission(adReport());
  env.dispatch.runGlobal();
  env.http.fail(0, -1001);
  env.dispatch.runGlobal();

  env.http.reply(1, kAccepted);

  EXPECT_THAT(storedReports(env.files), IsEmpty());
}

TEST_F(ZLNReportingManagerTest, ARetryGoesBehindWhatWaits) {
  ZLNReportingManager& manager = begin();
  for (const char* network : {"a", "b", "c", "d"}) {
    manager.queueReportForTransmission(adReport(network));
  }
  env.dispatch.runGlobal();

  env.http.fail(0, -1001);
  env.http.reply(1, kAccepted);
  env.dispatch.runGlobal();

  ASSERT_EQ(5u, env.http.requests().size());
  EXPECT_EQ("d", textOf(sentReports(env.http)[3].body, "network"));
  EXPECT_EQ("a", textOf(sentReports(env.http)[4].body, "network"));
}

TEST_F(ZLNReportingManagerTest, AfterTheThirdTemporaryFailureTheReportIsHeld) {
  ZLNReportingManager& manager = begin();
  const auto report = adReport();
  manager.queueReportForTransmission(report);
  for (std::size_t attempt = 0; attempt < 2; ++attempt) {
    env.dispatch.runGlobal();
    env.http.fail(attempt, -1001);
  }
  env.dispatch.runGlobal();
  newLines();

  env.http.fail(2, -1001);

  EXPECT_EQ((std::vector<std::string>{
                "ZLN Session: failed to submit report with Error Domain=NSURLErrorDomain "
                "Code=-1001 \"(null)\"",
                "ZLN Session: report failed with temporary error: Error Domain=NSURLErrorDomain "
                "Code=-1001 \"(null)\"",
                std::string("ZLN Session: report <ZLNReportAdAttempt: 0x*> to ") + kAdAttemptUrl +
                    " failed temporarily",
                kSaving, "ZLN Session: saved 1 reports",
                "ZLN Session: report added to temporary error holding",
                "ZLN Session: manager background task stopped 1"}),
            newLines());
  EXPECT_THAT(manager.temporaryErrorReports(), ElementsAre(report));
  EXPECT_EQ(3, report->temporaryFailureCount());
  EXPECT_EQ(0u, manager.reportQueue().operationCount());
  EXPECT_EQ(1u, storedReports(env.files).size());

  env.dispatch.runGlobal();

  EXPECT_EQ(3u, env.http.requests().size());
}

struct LimitRow {
  const char* name;
  std::int32_t limit;
  std::size_t attempts;
};

class ZLNReportingManagerLimitTest : public ZLNReportingManagerTest,
                                     public testing::WithParamInterface<LimitRow> {};

INSTANTIATE_TEST_SUITE_P(Limits, ZLNReportingManagerLimitTest,
                         testing::Values(LimitRow{"Negative", -1, 1}, LimitRow{"Zero", 0, 1},
                                         LimitRow{"One", 1, 1}, LimitRow{"Two", 2, 2},
                                         LimitRow{"Default", 3, 3}, LimitRow{"Five", 5, 5}),
                         [](const auto& parameter) { return parameter.param.name; });

TEST_P(ZLNReportingManagerLimitTest, SaysHowOftenAReportIsSentInARow) {
  putSettings({{kFailureLimit, Number::int32(GetParam().limit)}});
  ZLNReportingManager& manager = begin();
  manager.queueReportForTransmission(adReport());

  failAllTemporarily();

  EXPECT_EQ(GetParam().attempts, env.http.requests().size());
  EXPECT_EQ(1u, manager.temporaryErrorReports().size());
}

TEST_F(ZLNReportingManagerTest, TheLimitCountsAtTheMomentOfTheFailure) {
  ZLNReportingManager& manager = begin();
  manager.queueReportForTransmission(adReport());
  env.dispatch.runGlobal();

  settings().setReportTemporaryFailureLimit(1);
  env.http.fail(0, -1001);

  EXPECT_EQ(1u, manager.temporaryErrorReports().size());
}

TEST_F(ZLNReportingManagerTest, AServerThatRejectsForNowIsTriedUpToTheLimit) {
  ZLNReportingManager& manager = begin();
  env.http.always([](const HttpRequest&) { return okReply(R"({"success":false})"); });

  manager.queueReportForTransmission(adReport());
  env.dispatch.runGlobal();

  EXPECT_EQ(3u, env.http.requests().size());
  EXPECT_EQ(1u, manager.temporaryErrorReports().size());
}

TEST_F(ZLNReportingManagerTest, ARetryThatMeetsAFullQueueLosesTheReport) {
  ZLNReportingManager& manager = begin();
  manager.queueReportForTransmission(adReport());
  env.dispatch.runGlobal();
  for (int count = 0; count < 1000; ++count) {
    manager.reportQueue().addOperation(std::make_shared<IdleOperation>());
  }

  env.http.fail(0, -1001);

  EXPECT_THAT(log().lines(), Contains("ZLN Session: cannot queue report, queue is full"));
  EXPECT_EQ(1000u, manager.reportQueue().operationCount());
  EXPECT_THAT(manager.temporaryErrorReports(), IsEmpty());

  manager.saveReports();

  EXPECT_THAT(storedReports(env.files), IsEmpty());
}

TEST_F(ZLNReportingManagerTest, ARetryOfAKindSwitchedOffMeanwhileIsDropped) {
  ZLNReportingManager& manager = begin();
  manager.queueReportForTransmission(ZLNReportSessionStop::reportWithSession(session()));
  env.dispatch.runGlobal();
  settings().setSendStopSessionReports(false);

  env.http.fail(0, -1001);
  env.dispatch.runGlobal();

  EXPECT_EQ(0u, manager.reportQueue().operationCount());
  EXPECT_THAT(manager.temporaryErrorReports(), IsEmpty());
  EXPECT_EQ(1u, env.http.requests().size());
}

TEST_F(ZLNReportingManagerTest, AHeldReportOfASuspendedBatchLetsTheQueueRest) {
  putSettings({{kTransmitImmediately, Number::boolean(false)}, {kFailureLimit, Number::int32(1)}});
  ZLNReportingManager& manager = begin();
  manager.queueReportForTransmission(adReport());
  manager.queueReportForTransmission(adReport());
  manager.transmitPendingReports();
  env.dispatch.runGlobal();

  env.http.fail(0, -1001);

  EXPECT_FALSE(manager.reportQueue().isSuspended());
  EXPECT_THAT(env.backgroundTasks.ended(), IsEmpty());

  env.http.fail(1, -1001);

  EXPECT_TRUE(manager.reportQueue().isSuspended());
  EXPECT_THAT(env.backgroundTasks.ended(), ElementsAre(1u));
  EXPECT_EQ(2u, manager.temporaryErrorReports().size());
}

TEST_F(ZLNReportingManagerTest, ARetryOfASuspendedBatchKeepsTheQueueRunning) {
  ZLNReportingManager& manager = beginSuspended();
  manager.queueReportForTransmission(adReport());
  manager.transmitPendingReports();
  env.dispatch.runGlobal();

  env.http.fail(0, -1001);

  EXPECT_FALSE(manager.reportQueue().isSuspended());
  EXPECT_THAT(env.backgroundTasks.ended(), IsEmpty());

  env.dispatch.runGlobal();

  EXPECT_EQ(2u, env.http.requests().size());
}

// The application's events.

TEST_F(ZLNReportingManagerTest, AHeldReportWaitsForTheForegroundAndIsThenSentThreeTimesMore) {
  ZLNReportingManager& manager = begin();
  const auto report = adReport();
  manager.queueReportForTransmission(report);
  failAllTemporarily();

  env.app.becomeActive();
  env.app.enterBackground();
  env.app.resignActive();
  manager.transmitPendingReports();
  env.dispatch.runGlobal();

  EXPECT_EQ(3u, env.http.requests().size());
  EXPECT_EQ(3, report->temporaryFailureCount());

  env.app.enterForeground();

  EXPECT_EQ(0, report->temporaryFailureCount());
  EXPECT_THAT(manager.temporaryErrorReports(), IsEmpty());

  failAllTemporarily();

  EXPECT_EQ(6u, env.http.requests().size());
  EXPECT_THAT(manager.temporaryErrorReports(), ElementsAre(report));
}

TEST_F(ZLNReportingManagerTest, TheForegroundRestoresAndThenTransmits) {
  begin();

  env.app.enterForeground();

  EXPECT_THAT(newLines(), ElementsAre("ZLN Session: temporary error\"d reports restoring",
                                      "ZLN Session: transmit reports"));
}

TEST_F(ZLNReportingManagerTest, TheForegroundSendsWhatWaitsInASuspendedQueue) {
  ZLNReportingManager& manager = beginSuspended();
  manager.queueReportForTransmission(adReport());

  env.app.enterForeground();
  env.dispatch.runGlobal();

  EXPECT_FALSE(manager.reportQueue().isSuspended());
  EXPECT_EQ(1u, env.http.requests().size());
  EXPECT_THAT(env.backgroundTasks.open(), ElementsAre(1u));
}

TEST_F(ZLNReportingManagerTest, TheForegroundSendsNothingWhenThatIsSwitchedOff) {
  putSettings({{kTransmitImmediately, Number::boolean(false)},
               {kTransmitOnForegrounding, Number::boolean(false)}});
  ZLNReportingManager& manager = begin();
  manager.queueReportForTransmission(adReport());
  newLines();

  env.app.enterForeground();

  EXPECT_THAT(newLines(), ElementsAre("ZLN Session: temporary error\"d reports restoring"));
  EXPECT_TRUE(manager.reportQueue().isSuspended());
}

TEST_F(ZLNReportingManagerTest, HeldReportsAreRestoredAlsoWhenTheForegroundSendsNothing) {
  putSettings({{kTransmitImmediately, Number::boolean(false)},
               {kTransmitOnForegrounding, Number::boolean(false)},
               {kFailureLimit, Number::int32(1)}});
  ZLNReportingManager& manager = begin();
  manager.queueReportForTransmission(adReport());
  env.app.enterBackground();
  failAllTemporarily();

  env.app.enterForeground();
  env.dispatch.runGlobal();

  EXPECT_THAT(manager.temporaryErrorReports(), IsEmpty());
  EXPECT_EQ(1u, manager.reportQueue().operationCount());
  EXPECT_TRUE(manager.reportQueue().isSuspended());
  EXPECT_EQ(1u, env.http.requests().size());
}

TEST_F(ZLNReportingManagerTest, TheBackgroundTransmitsAndThenSaves) {
  putSettings({{kTransmitImmediately, Number::boolean(false)}});
  ZLNReportingManager& manager = begin();
  manager.queueReportForTransmission(adReport());
  newLines();

  env.app.enterBackground();

  EXPECT_THAT(newLines(), ElementsAre("ZLN Session: transmit reports",
                                      "ZLN Session: manager background task started 1", kSaving,
                                      "ZLN Session: saved 1 reports"));
  EXPECT_FALSE(manager.reportQueue().isSuspended());
}

TEST_F(ZLNReportingManagerTest, TheBackgroundOnlySavesWhenSendingIsSwitchedOff) {
  putSettings({{kTransmitImmediately, Number::boolean(false)},
               {kTransmitOnBackgrounding, Number::boolean(false)}});
  ZLNReportingManager& manager = begin();
  manager.queueReportForTransmission(adReport());
  newLines();

  env.app.enterBackground();

  EXPECT_THAT(newLines(), ElementsAre(kSaving, "ZLN Session: saved 1 reports"));
  EXPECT_TRUE(manager.reportQueue().isSuspended());
  EXPECT_EQ(0u, env.backgroundTasks.begun());
}

TEST_F(ZLNReportingManagerTest, TheBackgroundDoesNotAskForPartialReports) {
  ZLNReportingManager& manager = beginSuspended();
  settings().setSendPartialReportsOnBackgrounding(false);
  manager.queueReportForTransmission(adReport());

  env.app.enterBackground();

  EXPECT_FALSE(manager.reportQueue().isSuspended());
}

TEST_F(ZLNReportingManagerTest, ActivationAndTerminationDoNotConcernIt) {
  begin();

  env.app.becomeActive();
  env.app.resignActive();
  env.app.terminate();

  EXPECT_THAT(newLines(), ElementsAre("ZLN Session: Config is not stale. Update skipped."));
}

// Levels.

TEST_F(ZLNReportingManagerTest, AtErrorOnlyFailuresForGoodAreSaid) {
  ZLNReportingManager& manager = begin();
  setLevel(0);

  manager.queueReportForTransmission(nullptr);
  manager.queueReportForTransmission(adReport());
  env.dispatch.runGlobal();
  env.http.fail(0, -1001);
  env.dispatch.runGlobal();
  env.http.fail(1, -1011);
  env.app.enterForeground();

  EXPECT_THAT(newLines(),
              ElementsAre("ZLN Session: failed to submit report with Error Domain=NSURLErrorDomain "
                          "Code=-1001 \"(null)\"",
                          "ZLN Session: failed to submit report with Error Domain=NSURLErrorDomain "
                          "Code=-1011 \"(null)\"",
                          "ZLN Session: report failed with permanent error: Error "
                          "Domain=NSURLErrorDomain Code=-1011 \"(null)\""));
}

TEST_F(ZLNReportingManagerTest, AtWarnTemporaryFailuresAreSaidToo) {
  ZLNReportingManager& manager = begin();
  setLevel(1);
  manager.queueReportForTransmission(adReport());
  env.dispatch.runGlobal();

  env.http.fail(0, -1001);

  EXPECT_THAT(newLines(),
              ElementsAre("ZLN Session: failed to submit report with Error Domain=NSURLErrorDomain "
                          "Code=-1001 \"(null)\"",
                          "ZLN Session: report failed with temporary error: Error "
                          "Domain=NSURLErrorDomain Code=-1001 \"(null)\""));
}

TEST_F(ZLNReportingManagerTest, AtInfoNothingOfTheManagersWorkIsSaid) {
  ZLNReportingManager& manager = begin();
  settings().setReportTemporaryFailureLimit(1);
  setLevel(2);

  manager.queueReportForTransmission(nullptr);
  manager.queueReportForTransmission(adReport());
  manager.queueReportForTransmission(adReport());
  env.app.enterForeground();
  env.app.enterBackground();

  EXPECT_THAT(newLines(), IsEmpty());

  env.dispatch.runGlobal();
  newLines();
  env.http.reply(0, kAccepted);

  EXPECT_THAT(newLines(), IsEmpty());

  env.http.fail(1, -1001);

  EXPECT_THAT(newLines(),
              ElementsAre("ZLN Session: failed to submit report with Error Domain=NSURLErrorDomain "
                          "Code=-1001 \"(null)\"",
                          "ZLN Session: report failed with temporary error: Error "
                          "Domain=NSURLErrorDomain Code=-1001 \"(null)\""));
}

TEST_F(ZLNReportingManagerTest, AtDebugTheStepsAreSaidButNoAddresses) {
  ZLNReportingManager& manager = begin();
  settings().setReportTemporaryFailureLimit(1);
  setLevel(3);

  manager.queueReportForTransmission(nullptr);
  manager.queueReportForTransmission(adReport());
  manager.queueReportForTransmission(adReport());

  EXPECT_THAT(newLines(),
              ElementsAre("ZLN Session: attempted to queue nil report", kQueued,
                          "ZLN Session: transmit reports", "ZLN Session: saved 1 reports", kQueued,
                          "ZLN Session: transmit reports", "ZLN Session: saved 2 reports"));

  setLevel(0);
  env.dispatch.runGlobal();
  setLevel(3);
  env.http.fail(0, -1001);
  log().clear();
  env.http.fail(1, -1011);
  env.app.enterForeground();

  EXPECT_THAT(newLines(),
              ElementsAre("ZLN Session: failed to submit report with Error Domain=NSURLErrorDomain "
                          "Code=-1011 \"(null)\"",
                          "ZLN Session: report failed with permanent error: Error "
                          "Domain=NSURLErrorDomain Code=-1011 \"(null)\"",
                          "ZLN Session: saved 1 reports",
                          "ZLN Session: temporary error\"d reports restoring", kQueued,
                          "ZLN Session: transmit reports", "ZLN Session: saved 1 reports",
                          "ZLN Session: transmit reports"));
}

TEST_F(ZLNReportingManagerTest, AtDebugADeliveryIsSaid) {
  ZLNReportingManager& manager = begin();
  manager.queueReportForTransmission(adReport());
  env.dispatch.runGlobal();
  setLevel(3);
  log().clear();

  env.http.reply(0, kAccepted);

  EXPECT_EQ(
      (std::vector<std::string>{
          std::string("ZLN Session: report submitted; response <NSHTTPURLResponse: 0x*> { URL: ") +
              kAdAttemptUrl + " } { Status Code: 200, Headers {\n} } = {\"success\":true}",
          "ZLN Session: report transmitted successfully", "ZLN Session: saved 0 reports"}),
      newLines());
}

TEST_F(ZLNReportingManagerTest, AtDebugAHeldReportIsSaid) {
  ZLNReportingManager& manager = begin();
  settings().setReportTemporaryFailureLimit(1);
  manager.queueReportForTransmission(adReport());
  env.dispatch.runGlobal();
  setLevel(3);
  log().clear();

  env.http.fail(0, -1001);

  EXPECT_THAT(newLines(),
              ElementsAre("ZLN Session: failed to submit report with Error Domain=NSURLErrorDomain "
                          "Code=-1001 \"(null)\"",
                          "ZLN Session: report failed with temporary error: Error "
                          "Domain=NSURLErrorDomain Code=-1001 \"(null)\"",
                          "ZLN Session: saved 1 reports",
                          "ZLN Session: report added to temporary error holding"));
}

TEST_F(ZLNReportingManagerTest, RefusalsAreErrors) {
  ZLNReportingManager& manager = begin();
  setLevel(0);

  manager.queueReportForTransmission(
      ZLNReportBase::initWithURLString("https://reports.invalid/session"));
  for (int count = 0; count < 1001; ++count) {
    manager.reportQueue().addOperation(std::make_shared<IdleOperation>());
  }
  manager.queueReportForTransmission(adReport());

  EXPECT_THAT(newLines(), ElementsAre("ZLN Session: unexpected report type ZLNReportBase",
                                      "ZLN Session: unable to queue report <ZLNReportBase: 0x*>",
                                      "ZLN Session: cannot queue report, queue is full"));
}

}  // namespace
}  // namespace zln
