#include "session/ZLNSession.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>

#include "support/ZLNReportingUtils.h"
#include "tests/support/host_fixture.h"
#include "tests/support/sent_reports.h"

namespace zln {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ZLNSessionTest : public HostTest {
 protected:
  void SetUp() override { setLevel(5); }

  static std::shared_ptr<ZLNSession> sessionAt(double seconds) {
    return ZLNSession::initWithStartTime(Date{seconds});
  }

  // A dictionary that is enough for a session.
  static Dictionary storedSession() {
    return {{"sessionId", "S"}, {"startTime", Number::float64(1700000000.0)}};
  }
};

TEST_F(ZLNSessionTest, ANewSessionRunsFromItsStart) {
  const auto session = sessionAt(1000.25);

  EXPECT_EQ(Date{1000.25}, session->startTime());
  EXPECT_EQ(std::nullopt, session->stopTime());
  EXPECT_EQ(Date{1000.25}, session->lastPauseTime());
  EXPECT_EQ(Date{1000.25}, session->lastResumeTime());
  EXPECT_EQ(0.0f, session->totalDuration());
  EXPECT_TRUE(session->running());
}

TEST_F(ZLNSessionTest, EachNewSessionHasAnIdentifierOfItsOwn) {
  EXPECT_EQ("00000000-0000-4000-8000-000000000001", sessionAt(1000)->uid());
  EXPECT_EQ("00000000-0000-4000-8000-000000000002", sessionAt(1000)->uid());
}

TEST_F(ZLNSessionTest, ANewSessionTakesTheFactsOfTheDevice) {
  ZLNReportingUtils::setMarlwickVersion("4.5.6");

  const auto session = sessionAt(1000);

  EXPECT_EQ("iPhone14,5", session->device());
  EXPECT_EQ("17.5.1", session->os());
  EXPECT_EQ("0.0.0", session->sdkVersion());
  EXPECT_EQ("4.5.6", session->mwVersion());
  EXPECT_EQ("1.2.3", session->appVersion());
  EXPECT_EQ("7.0.0", session->reportingVersion());
  EXPECT_EQ("com.example.game", session->bundleid());
  EXPECT_EQ("iOS", session->platform());
}

TEST_F(ZLNSessionTest, ANewSessionKeepsTheFactsOfItsStart) {
  ZLNReportingUtils::setMarlwickVersion("1.0");
  const auto session = sessionAt(1000);

  ZLNReportingUtils::setMarlwickVersion("2.0");
  env.device.systemVersionText = "18.0";

  EXPECT_EQ("1.0", session->mwVersion());
  EXPECT_EQ("17.5.1", session->os());
}

TEST_F(ZLNSessionTest, FactsThatAreMissingStayAbsent) {
  ZLNReportingUtils::setMarlwickVersion(std::nullopt);
  env.device.machineName = "\xFF";
  env.device.bundleIdentifier = std::nullopt;
  env.device.bundleShortVersion = std::nullopt;
  env.device.libraryVersion = std::nullopt;

  const auto session = sessionAt(1000);

  EXPECT_EQ(std::nullopt, session->device());
  EXPECT_EQ(std::nullopt, session->mwVersion());
  EXPECT_EQ(std::nullopt, session->appVersion());
  EXPECT_EQ(std::nullopt, session->reportingVersion());
  EXPECT_EQ(std::nullopt, session->bundleid());
  EXPECT_THAT(keysOf(session->toDictionary()),
              ElementsAre("lastPauseTime", "lastResumeTime", "os", "platform", "sdkVersion",
                          "sessionId", "startTime", "totalDuration"));
}

TEST_F(ZLNSessionTest, EveryFieldCanBeReplaced) {
  const auto session = sessionAt(1000);

  session->setUid("U");
  session->setStartTime(Date{1});
  session->setStopTime(Date{2});
  session->setLastPauseTime(Date{3});
  session->setLastResumeTime(Date{4});
  session->setTotalDuration(5.5f);
  session->setDevice("device");
  session->setOs("os");
  session->setSdkVersion("sdk");
  session->setMwVersion("mw");
  session->setAppVersion("app");
  session->setReportingVersion("reporting");
  session->setBundleid("bundle");
  session->setPlatform("platform");
  session->setRunning(false);

  EXPECT_EQ("U", session->uid());
  EXPECT_EQ(Date{1}, session->startTime());
  EXPECT_EQ(Date{2}, session->stopTime());
  EXPECT_EQ(Date{3}, session->lastPauseTime());
  EXPECT_EQ(Date{4}, session->lastResumeTime());
  EXPECT_EQ(5.5f, session->totalDuration());
  EXPECT_EQ("device", session->device());
  EXPECT_EQ("os", session->os());
  EXPECT_EQ("sdk", session->sdkVersion());
  EXPECT_EQ("mw", session->mwVersion());
  EXPECT_EQ("app", session->appVersion());
  EXPECT_EQ("reporting", session->reportingVersion());
  EXPECT_EQ("bundle", session->bundleid());
  EXPECT_EQ("platform", session->platform());
  EXPECT_FALSE(session->running());
}

TEST_F(ZLNSessionTest, TheDictionaryHoldsEveryFieldThatIsPresent) {
  ZLNReportingUtils::setMarlwickVersion("4.5.6");
  const auto session = sessionAt(1700000000.25);
  session->pause(Date{1700000030.5});
  session->resume(Date{1700000040.75});
  session->setStopTime(Date{1700000050.125});

  EXPECT_EQ((Dictionary{{"sessionId", "00000000-0000-4000-8000-000000000001"},
                        {"startTime", Number::float64(1700000000.25)},
                        {"stopTime", Number::float64(1700000050.125)},
                        {"lastPauseTime", Number::float64(1700000030.5)},
                        {"lastResumeTime", Number::float64(1700000040.75)},
                        {"totalDuration", Number::float32(30.25f)},
                        {"device", "iPhone14,5"},
                        {"os", "17.5.1"},
                        {"sdkVersion", "0.0.0"},
                        {"mwVersion", "4.5.6"},
                        {"appVersion", "1.2.3"},
                        {"reportingVersion", "7.0.0"},
                        {"bundleId", "com.example.game"},
                        {"platform", "iOS"}}),
            session->toDictionary());
}

TEST_F(ZLNSessionTest, TheDictionaryLeavesOutEveryFieldThatIsAbsent) {
  const auto session = ZLNSession::initWithDictionary(storedSession());

  EXPECT_EQ((Dictionary{{"sessionId", "S"},
                        {"startTime", Number::float64(1700000000.0)},
                        {"totalDuration", Number::float32(0.0f)}}),
            session->toDictionary());
}

TEST_F(ZLNSessionTest, ARebuiltSessionHasTheFieldsOfItsDictionary) {
  const auto session =
      ZLNSession::initWithDictionary({{"sessionId", "S"},
                                      {"startTime", Number::float64(1700000000.0)},
                                      {"stopTime", Number::float64(1700000512.0)},
                                      {"lastPauseTime", Number::float64(1700000256.0)},
                                      {"lastResumeTime", Number::float64(1700000384.0)},
                                      {"totalDuration", Number::float64(30.5)},
                                      {"device", "device"},
                                      {"os", "os"},
                                      {"sdkVersion", "sdk"},
                                      {"mwVersion", "mw"},
                                      {"appVersion", "app"},
                                      {"reportingVersion", "reporting"},
                                      {"bundleId", "bundle"},
                                      {"platform", "platform"}});

  EXPECT_EQ("S", session->uid());
  EXPECT_EQ(Date{1700000000.0}, session->startTime());
  EXPECT_EQ(Date{1700000512.0}, session->stopTime());
  EXPECT_EQ(Date{1700000256.0}, session->lastPauseTime());
  EXPECT_EQ(Date{1700000384.0}, session->lastResumeTime());
  EXPECT_EQ(30.5f, session->totalDuration());
  EXPECT_EQ("device", session->device());
  EXPECT_EQ("os", session->os());
  EXPECT_EQ("sdk", session->sdkVersion());
  EXPECT_EQ("mw", session->mwVersion());
  EXPECT_EQ("app", session->appVersion());
  EXPECT_EQ("reporting", session->reportingVersion());
  EXPECT_EQ("bundle", session->bundleid());
  EXPECT_EQ("platform", session->platform());
  EXPECT_THAT(log().lines(), IsEmpty());
}

TEST_F(ZLNSessionTest, ARebuiltSessionRunsEvenWithAStopTime) {
  Dictionary stored = storedSession();
  stored.set("stopTime", Number::float64(1700000512.0));

  EXPECT_TRUE(ZLNSession::initWithDictionary(stored)->running());
}

TEST_F(ZLNSessionTest, RebuiltDatesAreRoundedAs32BitFloats) {
  const auto session =
      ZLNSession::initWithDictionary({{"sessionId", "S"},
                                      {"startTime", Number::float64(1700000050.0)},
                                      {"stopTime", Number::float64(1700000100.0)},
                                      {"lastPauseTime", Number::float64(1700000063.9)},
                                      {"lastResumeTime", Number::int64(1700000065)}});

  EXPECT_EQ(Date{1700000000.0}, session->startTime());
  EXPECT_EQ(Date{1700000128.0}, session->stopTime());
  EXPECT_EQ(Date{1700000000.0}, session->lastPauseTime());
  EXPECT_EQ(Date{1700000128.0}, session->lastResumeTime());
}

TEST_F(ZLNSessionTest, ASessionSurvivesItsDictionaryButForItsDates) {
  const auto session = sessionAt(1700000050.0);
  session->pause(Date{1700000080.0});

  const auto rebuilt = ZLNSession::initWithDictionary(session->toDictionary());

  EXPECT_EQ(session->uid(), rebuilt->uid());
  EXPECT_EQ(session->device(), rebuilt->device());
  EXPECT_EQ(session->os(), rebuilt->os());
  EXPECT_EQ(session->sdkVersion(), rebuilt->sdkVersion());
  EXPECT_EQ(session->mwVersion(), rebuilt->mwVersion());
  EXPECT_EQ(session->appVersion(), rebuilt->appVersion());
  EXPECT_EQ(session->reportingVersion(), rebuilt->reportingVersion());
  EXPECT_EQ(session->bundleid(), rebuilt->bundleid());
  EXPECT_EQ(session->platform(), rebuilt->platform());
  EXPECT_EQ(30.0f, rebuilt->totalDuration());
  EXPECT_EQ(Date{1700000000.0}, rebuilt->startTime());
  EXPECT_EQ(std::nullopt, rebuilt->stopTime());
  EXPECT_TRUE(rebuilt->running());
}

TEST_F(ZLNSessionTest, ARebuiltDurationIsA32BitFloat) {
  Dictionary stored = storedSession();
  stored.set("totalDuration", Number::float64(0.1));

  EXPECT_EQ(0.1f, ZLNSession::initWithDictionary(stored)->totalDuration());
}

TEST_F(ZLNSessionTest, ABooleanIsANumberToARebuiltSession) {
  const auto session =
      ZLNSession::initWithDictionary({{"sessionId", "S"}, {"startTime", Number::boolean(true)}});

  ASSERT_NE(nullptr, session);
  EXPECT_EQ(Date{1}, session->startTime());
}

TEST_F(ZLNSessionTest, OtherKeysAreIgnored) {
  Dictionary stored = storedSession();
  stored.set("userId", "user");
  stored.set("type", "ReportTypeSessionStart");
  stored.set("running", Number::boolean(false));

  const auto session = ZLNSession::initWithDictionary(stored);

  EXPECT_TRUE(session->running());
  EXPECT_THAT(keysOf(session->toDictionary()),
              ElementsAre("sessionId", "startTime", "totalDuration"));
}

TEST_F(ZLNSessionTest, WithoutAnIdentifierThereIsNoSession) {
  setLevel(0);

  EXPECT_EQ(nullptr, ZLNSession::initWithDictionary({{"startTime", Number::float64(1)}}));
  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: session dict has no id"));
}

TEST_F(ZLNSessionTest, WithAnIdentifierThatIsNoTextThereIsNoSession) {
  EXPECT_EQ(nullptr, ZLNSession::initWithDictionary(
                         {{"sessionId", Number::int32(7)}, {"startTime", Number::float64(1)}}));
  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: session dict has no id"));
}

TEST_F(ZLNSessionTest, WithoutAStartTimeThereIsNoSession) {
  setLevel(0);

  EXPECT_EQ(nullptr, ZLNSession::initWithDictionary({{"sessionId", "S"}}));
  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: session dict has no start time"));
}

TEST_F(ZLNSessionTest, WithAStartTimeThatIsNoNumberThereIsNoSession) {
  EXPECT_EQ(nullptr,
            ZLNSession::initWithDictionary({{"sessionId", "S"}, {"startTime", "1700000000"}}));
  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: session dict has no start time"));
}

TEST_F(ZLNSessionTest, ADictionaryWithNeitherLacksTheIdentifierFirst) {
  EXPECT_EQ(nullptr, ZLNSession::initWithDictionary({}));
  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: session dict has no id"));
}

TEST_F(ZLNSessionTest, OtherFieldsOfTheWrongKindAreLeftOutInSilence) {
  Dictionary stored = storedSession();
  for (const char* key : {"stopTime", "lastPauseTime", "lastResumeTime", "totalDuration"}) {
    stored.set(key, "12");
  }
  for (const char* key : {"device", "os", "sdkVersion", "mwVersion", "appVersion",
                          "reportingVersion", "bundleId", "platform"}) {
    stored.set(key, Number::int32(12));
  }

  const auto session = ZLNSession::initWithDictionary(stored);

  EXPECT_EQ((Dictionary{{"sessionId", "S"},
                        {"startTime", Number::float64(1700000000.0)},
                        {"totalDuration", Number::float32(0.0f)}}),
            session->toDictionary());
  EXPECT_THAT(log().lines(), IsEmpty());
}

TEST_F(ZLNSessionTest, AReportOfTheFirstSessionOrAStartCarriesNeitherStopNorPauseNorDuration) {
  const auto session = sessionAt(1000);
  session->pause(Date{1030});
  session->stop(Date{1030});

  for (const char* type : {"ReportTypeSessionFirst", "ReportTypeSessionStart"}) {
    SCOPED_TRACE(type);
    EXPECT_THAT(keysOf(session->dictionaryForReportType(type)),
                ElementsAre("appVersion", "bundleId", "device", "mwVersion", "os", "platform",
                            "reportingVersion", "sdkVersion", "sessionId", "startTime"));
  }
  EXPECT_THAT(log().lines(), IsEmpty());
}

TEST_F(ZLNSessionTest, AReportOfAStopCarriesStopAndDuration) {
  const auto session = sessionAt(1000);
  session->pause(Date{1030});
  session->stop(Date{1030});

  const Dictionary report = session->dictionaryForReportType("ReportTypeSessionStop");

  EXPECT_THAT(keysOf(report), ElementsAre("appVersion", "bundleId", "device", "mwVersion", "os",
                                          "platform", "reportingVersion", "sdkVersion", "sessionId",
                                          "startTime", "stopTime", "totalDuration"));
  EXPECT_EQ(1030.0, numberOf(report, "stopTime"));
  EXPECT_EQ(30.0, numberOf(report, "totalDuration"));
  EXPECT_THAT(log().lines(), IsEmpty());
}

TEST_F(ZLNSessionTest, AReportOfAnyOtherTypeCarriesEverythingAndIsLogged) {
  setLevel(0);
  const auto session = sessionAt(1000);

  const Dictionary report = session->dictionaryForReportType("ReportTypeAdAttempt");

  EXPECT_EQ(session->toDictionary(), report);
  EXPECT_THAT(log().lines(),
              ElementsAre("ZLN Session: Unexpected report type: ReportTypeAdAttempt"));
}

TEST_F(ZLNSessionTest, ReportTypesAreComparedWhole) {
  const auto session = sessionAt(1000);

  session->dictionaryForReportType("ReportTypeSessionStopped");
  session->dictionaryForReportType("ReportTypeSession");
  session->dictionaryForReportType("reporttypesessionstop");
  session->dictionaryForReportType("");

  EXPECT_THAT(log().lines(),
              ElementsAre("ZLN Session: Unexpected report type: ReportTypeSessionStopped",
                          "ZLN Session: Unexpected report type: ReportTypeSession",
                          "ZLN Session: Unexpected report type: reporttypesessionstop",
                          "ZLN Session: Unexpected report type: "));
}

TEST_F(ZLNSessionTest, PausingEndsTheRunningInterval) {
  const auto session = sessionAt(1000);

  session->pause(Date{1030.5});

  EXPECT_FALSE(session->running());
  EXPECT_EQ(30.5f, session->totalDuration());
  EXPECT_EQ(Date{1030.5}, session->lastPauseTime());
  EXPECT_EQ(Date{1000}, session->lastResumeTime());
  EXPECT_EQ(std::nullopt, session->stopTime());
  EXPECT_THAT(log().lines(), IsEmpty());
}

TEST_F(ZLNSessionTest, IntervalsAddUp) {
  const auto session = sessionAt(1000);

  session->pause(Date{1030});
  session->resume(Date{1100});
  session->pause(Date{1107});

  EXPECT_EQ(37.0f, session->totalDuration());
}

TEST_F(ZLNSessionTest, TheDurationIsSummedUpInDoublePrecision) {
  const auto session = sessionAt(0);
  session->setTotalDuration(16777216.0f);

  session->pause(Date{1.00000001});

  EXPECT_EQ(16777218.0f, session->totalDuration());
}

TEST_F(ZLNSessionTest, PausingBeforeTheLastResumeTakesTimeAway) {
  const auto session = sessionAt(1000);

  session->pause(Date{900});

  EXPECT_EQ(-100.0f, session->totalDuration());
  EXPECT_FALSE(session->running());
}

TEST_F(ZLNSessionTest, PausingAPausedSessionIsAWarningAndChangesNothing) {
  setLevel(1);
  const auto session = sessionAt(1000);
  session->pause(Date{1030});

  session->pause(Date{1060});

  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: pausing a paused session?"));
  EXPECT_EQ(Date{1030}, session->lastPauseTime());
  EXPECT_EQ(30.0f, session->totalDuration());
  EXPECT_FALSE(session->running());
}

TEST_F(ZLNSessionTest, PausingAStoppedSessionIsAWarningAndChangesNothing) {
  const auto session = sessionAt(1000);
  session->stop(Date{1030});

  session->pause(Date{1060});

  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: pausing a paused session?"));
  EXPECT_EQ(Date{1030}, session->lastPauseTime());
  EXPECT_EQ(30.0f, session->totalDuration());
}

TEST_F(ZLNSessionTest, PausingWithoutAResumeTimeKeepsThePauseTimeOnly) {
  setLevel(0);
  const auto session = sessionAt(1000);
  session->setLastResumeTime(std::nullopt);

  session->pause(Date{1030});

  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: session has no resume time"));
  EXPECT_EQ(Date{1030}, session->lastPauseTime());
  EXPECT_EQ(0.0f, session->totalDuration());
  EXPECT_TRUE(session->running());
}

TEST_F(ZLNSessionTest, ResumingBeginsANewInterval) {
  const auto session = sessionAt(1000);
  session->pause(Date{1030});

  session->resume(Date{1100});

  EXPECT_TRUE(session->running());
  EXPECT_EQ(Date{1100}, session->lastResumeTime());
  EXPECT_EQ(Date{1030}, session->lastPauseTime());
  EXPECT_EQ(30.0f, session->totalDuration());
  EXPECT_THAT(log().lines(), IsEmpty());
}

TEST_F(ZLNSessionTest, ResumingARunningSessionIsAWarningAndChangesNothing) {
  setLevel(1);
  const auto session = sessionAt(1000);

  session->resume(Date{1100});

  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: resuming a running session?"));
  EXPECT_EQ(Date{1000}, session->lastResumeTime());
  EXPECT_TRUE(session->running());
}

TEST_F(ZLNSessionTest, ResumingAStoppedSessionIsRefused) {
  setLevel(0);
  const auto session = sessionAt(1000);
  session->stop(Date{1030});

  session->resume(Date{1100});

  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: refusing to resume stopped session"));
  EXPECT_FALSE(session->running());
  EXPECT_EQ(Date{1000}, session->lastResumeTime());
}

TEST_F(ZLNSessionTest, ResumingARunningSessionWithAStopTimeIsTheWarningOnly) {
  const auto session = sessionAt(1000);
  session->setStopTime(Date{1030});

  session->resume(Date{1100});

  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: resuming a running session?"));
}

TEST_F(ZLNSessionTest, AFreshSessionStoppedAtItsLastPauseIsValid) {
  const auto session = sessionAt(1000);

  EXPECT_TRUE(session->stop(*session->lastPauseTime()));
  EXPECT_EQ(Date{1000}, session->stopTime());
  EXPECT_EQ(0.0f, session->totalDuration());
  EXPECT_FALSE(session->running());
  EXPECT_THAT(log().lines(), IsEmpty());
}

TEST_F(ZLNSessionTest, StoppingARunningSessionPausesItFirst) {
  const auto session = sessionAt(1000);

  EXPECT_TRUE(session->stop(Date{1030}));
  EXPECT_FALSE(session->running());
  EXPECT_EQ(30.0f, session->totalDuration());
  EXPECT_EQ(Date{1030}, session->lastPauseTime());
  EXPECT_EQ(Date{1030}, session->stopTime());
}

TEST_F(ZLNSessionTest, StoppingARunningSessionHasTheMessagesOfPausing) {
  const auto session = sessionAt(1000);
  session->setLastResumeTime(std::nullopt);

  EXPECT_TRUE(session->stop(Date{1030}));
  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: session has no resume time"));
  EXPECT_TRUE(session->running());
  EXPECT_EQ(Date{1030}, session->stopTime());
}

TEST_F(ZLNSessionTest, StoppingAPausedSessionAddsNoTime) {
  const auto session = sessionAt(1000);
  session->pause(Date{1030});

  EXPECT_TRUE(session->stop(Date{1090}));
  EXPECT_EQ(30.0f, session->totalDuration());
  EXPECT_EQ(Date{1030}, session->lastPauseTime());
  EXPECT_EQ(Date{1090}, session->stopTime());
  EXPECT_THAT(log().lines(), IsEmpty());
}

TEST_F(ZLNSessionTest, StoppingAgainReplacesTheStopTimeAndChecksAgain) {
  const auto session = sessionAt(1000);

  EXPECT_TRUE(session->stop(Date{1030}));
  EXPECT_FALSE(session->stop(Date{1010}));
  EXPECT_EQ(Date{1010}, session->stopTime());
}

TEST_F(ZLNSessionTest, FiveSecondsMoreThanTheWallClockAreTolerated) {
  const auto session = sessionAt(1700000000);
  session->pause(Date{1700000010});
  session->setTotalDuration(15.0f);

  EXPECT_TRUE(session->stop(Date{1700000010}));
  EXPECT_THAT(log().lines(), IsEmpty());
}

TEST_F(ZLNSessionTest, AMillisecondMoreIsInvalid) {
  setLevel(0);
  const auto session = sessionAt(1700000000);
  session->pause(Date{1700000010});
  session->setTotalDuration(15.001f);

  EXPECT_FALSE(session->stop(Date{1700000010}));
  EXPECT_THAT(log().lines(),
              ElementsAre("ZLN Session: invalid session: [2023-11-14 22:13:20 +0000 - 2023-11-14 "
                          "22:13:30 +0000], 10.000000, 15.001000 sec."));
  EXPECT_EQ(Date{1700000010}, session->stopTime());
}

TEST_F(ZLNSessionTest, TheToleranceIsMeasuredInDoublePrecision) {
  const auto session = sessionAt(0);
  session->pause(Date{10});
  // The next float above 15. As a float the tolerated time would be the same number.
  session->setTotalDuration(15.00000095367431640625f);

  EXPECT_FALSE(session->stop(Date{10.0000009}));
}

TEST_F(ZLNSessionTest, ANegativeTotalIsInvalid) {
  setLevel(0);
  const auto session = sessionAt(1700000000);
  session->pause(Date{1699999900});

  EXPECT_FALSE(session->stop(Date{1700000010}));
  EXPECT_THAT(log().lines(),
              ElementsAre("ZLN Session: invalid session2: [2023-11-14 22:13:20 +0000 - 2023-11-14 "
                          "22:13:30 +0000], 10.000000, -100.000000 sec."));
  EXPECT_EQ(Date{1700000010}, session->stopTime());
  EXPECT_FALSE(session->running());
}

TEST_F(ZLNSessionTest, ASessionWhoseTimesAreInvalidTwiceIsLoggedOnce) {
  const auto session = sessionAt(1700000000);
  session->setRunning(false);
  session->setTotalDuration(-50.0f);

  EXPECT_FALSE(session->stop(Date{1699999900}));
  EXPECT_THAT(log().lines(),
              ElementsAre("ZLN Session: invalid session: [2023-11-14 22:13:20 +0000 - 2023-11-14 "
                          "22:11:40 +0000], -100.000000, -50.000000 sec."));
}

TEST_F(ZLNSessionTest, TheTextOfASessionWithoutStopTimeShowsNull) {
  const auto session = sessionAt(1700000000);

  EXPECT_EQ("session: [2023-11-14 22:13:20 +0000 - (null)] 0.000000 sec.", session->description());
}

TEST_F(ZLNSessionTest, TheTextOfASessionShowsItsTimesAndDuration) {
  const auto session = sessionAt(1700000000);
  session->stop(Date{1700000030.5});

  EXPECT_EQ("session: [2023-11-14 22:13:20 +0000 - 2023-11-14 22:13:50 +0000] 30.500000 sec.",
            session->description());
}

}  // namespace
}  // namespace zln
