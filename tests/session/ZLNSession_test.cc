#include "session/ZLNSession.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "support/ZLNReportingUtils.h"
#include "tests/support/host_fixture.h"
#include "tests/support/sent_reports.h"

namespace zln {
namespace {

using testing::ElementsAre;

// A session that began at 1000.
class ZLNSessionTest : public HostTest {
 protected:
  ZLNSessionTest() { setLevel(5); }

  static std::shared_ptr<ZLNSession> sessionAt(double seconds) {
    return ZLNSession::initWithStartTime(Date{seconds});
  }

  // A dictionary that is enough for a session.
  static Dictionary storedSession() {
    return {{"sessionId", "S"}, {"startTime", Number::float64(1700000000.0)}};
  }

  static void expectTexts(const ZLNSession& session, const char* device, const char* os,
                          const char* sdk, const char* mw, const char* app, const char* reporting,
                          const char* bundle, const char* platform) {
    EXPECT_EQ(device, session.device());
    EXPECT_EQ(os, session.os());
    EXPECT_EQ(sdk, session.sdkVersion());
    EXPECT_EQ(mw, session.mwVersion());
    EXPECT_EQ(app, session.appVersion());
    EXPECT_EQ(reporting, session.reportingVersion());
    EXPECT_EQ(bundle, session.bundleid());
    EXPECT_EQ(platform, session.platform());
  }

  const std::shared_ptr<ZLNSession> session = sessionAt(1000);
};

TEST_F(ZLNSessionTest, ANewSessionRunsFromItsStart) {
  EXPECT_EQ("00000000-0000-4000-8000-000000000001", session->uid());
  EXPECT_EQ(Date{1000}, session->startTime());
  EXPECT_EQ(std::nullopt, session->stopTime());
  EXPECT_EQ(Date{1000}, session->lastPauseTime());
  EXPECT_EQ(Date{1000}, session->lastResumeTime());
  EXPECT_EQ(0.0f, session->totalDuration());
  EXPECT_TRUE(session->running());
  EXPECT_EQ("00000000-0000-4000-8000-000000000002", sessionAt(1000)->uid());
}

TEST_F(ZLNSessionTest, ANewSessionTakesTheFactsOfTheDeviceAndKeepsThem) {
  ZLNReportingUtils::setMarlwickVersion("4.5.6");

  const auto made = sessionAt(1000);
  ZLNReportingUtils::setMarlwickVersion("2.0");
  env.device.systemVersionText = "18.0";

  expectTexts(*made, "iPhone14,5", "17.5.1", "0.0.0", "4.5.6", "1.2.3", "7.0.0", "com.example.game",
              "iOS");
}

TEST_F(ZLNSessionTest, FactsThatAreMissingStayAbsent) {
  ZLNReportingUtils::setMarlwickVersion(std::nullopt);
  env.device.machineName = "\xFF";
  env.device.bundleIdentifier = std::nullopt;
  env.device.bundleShortVersion = std::nullopt;
  env.device.libraryVersion = std::nullopt;

  const auto made = sessionAt(1000);

  EXPECT_EQ(std::nullopt, made->device());
  EXPECT_EQ(std::nullopt, made->mwVersion());
  EXPECT_EQ(std::nullopt, made->appVersion());
  EXPECT_EQ(std::nullopt, made->reportingVersion());
  EXPECT_EQ(std::nullopt, made->bundleid());
  EXPECT_THAT(keysOf(made->toDictionary()),
              ElementsAre("lastPauseTime", "lastResumeTime", "os", "platform", "sdkVersion",
                          "sessionId", "startTime", "totalDuration"));
}

TEST_F(ZLNSessionTest, TheDictionaryHoldsEveryFieldThatIsPresent) {
  session->setUid("U");
  session->setStartTime(Date{1.25});
  session->setStopTime(Date{2.5});
  session->setLastPauseTime(Date{3.75});
  session->setLastResumeTime(Date{4.125});
  session->setTotalDuration(5.5f);
  session->setDevice("device");
  session->setOs("os");
  session->setSdkVersion("sdk");
  session->setMwVersion("mw");
  session->setAppVersion("app");
  session->setReportingVersion("reporting");
  session->setBundleid("bundle");
  session->setPlatform("platform");

  EXPECT_EQ((Dictionary{{"sessionId", "U"},
                        {"startTime", Number::float64(1.25)},
                        {"stopTime", Number::float64(2.5)},
                        {"lastPauseTime", Number::float64(3.75)},
                        {"lastResumeTime", Number::float64(4.125)},
                        {"totalDuration", Number::float32(5.5f)},
                        {"device", "device"},
                        {"os", "os"},
                        {"sdkVersion", "sdk"},
                        {"mwVersion", "mw"},
                        {"appVersion", "app"},
                        {"reportingVersion", "reporting"},
                        {"bundleId", "bundle"},
                        {"platform", "platform"}}),
            session->toDictionary());
}

// From a dictionary.

TEST_F(ZLNSessionTest, ARebuiltSessionRunsWithTheFieldsOfItsDictionary) {
  const auto rebuilt =
      ZLNSession::initWithDictionary({{"sessionId", "S"},
                                      {"startTime", Number::float64(1700000000.0)},
                                      {"stopTime", Number::float64(1700000512.0)},
                                      {"lastPauseTime", Number::float64(1700000256.0)},
                                      {"lastResumeTime", Number::float64(1700000384.0)},
                                      {"totalDuration", Number::float64(0.1)},
                                      {"device", "device"},
                                      {"os", "os"},
                                      {"sdkVersion", "sdk"},
                                      {"mwVersion", "mw"},
                                      {"appVersion", "app"},
                                      {"reportingVersion", "reporting"},
                                      {"bundleId", "bundle"},
                                      {"platform", "platform"}});

  EXPECT_EQ("S", rebuilt->uid());
  EXPECT_EQ(Date{1700000000.0}, rebuilt->startTime());
  EXPECT_EQ(Date{1700000512.0}, rebuilt->stopTime());
  EXPECT_EQ(Date{1700000256.0}, rebuilt->lastPauseTime());
  EXPECT_EQ(Date{1700000384.0}, rebuilt->lastResumeTime());
  EXPECT_EQ(0.1f, rebuilt->totalDuration());
  expectTexts(*rebuilt, "device", "os", "sdk", "mw", "app", "reporting", "bundle", "platform");
  EXPECT_TRUE(rebuilt->running());
  expectLines({});
}

TEST_F(ZLNSessionTest, RebuiltDatesAreRoundedAs32BitFloats) {
  const auto rebuilt =
      ZLNSession::initWithDictionary({{"sessionId", "S"},
                                      {"startTime", Number::float64(1700000050.0)},
                                      {"stopTime", Number::float64(1700000100.0)},
                                      {"lastPauseTime", Number::float64(1700000063.9)},
                                      {"lastResumeTime", Number::int64(1700000065)}});

  EXPECT_EQ(Date{1700000000.0}, rebuilt->startTime());
  EXPECT_EQ(Date{1700000128.0}, rebuilt->stopTime());
  EXPECT_EQ(Date{1700000000.0}, rebuilt->lastPauseTime());
  EXPECT_EQ(Date{1700000128.0}, rebuilt->lastResumeTime());
}

TEST_F(ZLNSessionTest, ASessionSurvivesItsDictionaryButForItsDates) {
  const auto stored = sessionAt(1700000050.0);
  stored->pause(Date{1700000080.0});

  const auto rebuilt = ZLNSession::initWithDictionary(stored->toDictionary());

  Dictionary expected = stored->toDictionary();
  expected.set("startTime", Number::float64(1700000000.0));
  expected.set("lastPauseTime", Number::float64(1700000128.0));
  expected.set("lastResumeTime", Number::float64(1700000000.0));
  EXPECT_EQ(expected, rebuilt->toDictionary());
  EXPECT_EQ(30.0f, rebuilt->totalDuration());
  EXPECT_EQ(std::nullopt, rebuilt->stopTime());
  EXPECT_TRUE(rebuilt->running());
}

TEST_F(ZLNSessionTest, ABooleanIsANumberToARebuiltSession) {
  const auto rebuilt =
      ZLNSession::initWithDictionary({{"sessionId", "S"}, {"startTime", Number::boolean(true)}});

  ASSERT_NE(nullptr, rebuilt);
  EXPECT_EQ(Date{1}, rebuilt->startTime());
}

TEST_F(ZLNSessionTest, WithoutATextForTheIdentifierAndANumberForTheStartThereIsNoSession) {
  struct Row {
    Dictionary stored;
    const char* line;
  };
  setLevel(0);
  for (const auto& [stored, line] : std::vector<Row>{
           {{{"startTime", Number::float64(1)}}, "session dict has no id"},
           {{{"sessionId", Number::int32(7)}, {"startTime", Number::float64(1)}},
            "session dict has no id"},
           {{{"sessionId", "S"}}, "session dict has no start time"},
           {{{"sessionId", "S"}, {"startTime", "1700000000"}}, "session dict has no start time"},
           {{}, "session dict has no id"}}) {
    EXPECT_EQ(nullptr, ZLNSession::initWithDictionary(stored)) << stored.description();
    expectLines({line});
  }
}

TEST_F(ZLNSessionTest, OtherKeysAndOtherFieldsOfTheWrongKindAreLeftOutInSilence) {
  Dictionary stored = storedSession();
  for (const char* key : {"stopTime", "lastPauseTime", "lastResumeTime", "totalDuration"}) {
    stored.set(key, "12");
  }
  for (const char* key : {"device", "os", "sdkVersion", "mwVersion", "appVersion",
                          "reportingVersion", "bundleId", "platform"}) {
    stored.set(key, Number::int32(12));
  }
  stored.set("userId", "user");
  stored.set("type", "ReportTypeSessionStart");
  stored.set("running", Number::boolean(false));

  for (const Dictionary& each : {storedSession(), stored}) {
    const auto rebuilt = ZLNSession::initWithDictionary(each);

    EXPECT_TRUE(rebuilt->running());
    EXPECT_EQ((Dictionary{{"sessionId", "S"},
                          {"startTime", Number::float64(1700000000.0)},
                          {"totalDuration", Number::float32(0.0f)}}),
              rebuilt->toDictionary());
    expectLines({});
  }
}

// For reports.

TEST_F(ZLNSessionTest, AReportOfTheFirstSessionOrAStartCarriesNeitherStopNorPauseNorDuration) {
  session->pause(Date{1030});
  session->stop(Date{1030});

  for (const char* type : {"ReportTypeSessionFirst", "ReportTypeSessionStart"}) {
    EXPECT_THAT(keysOf(session->dictionaryForReportType(type)),
                ElementsAre("appVersion", "bundleId", "device", "mwVersion", "os", "platform",
                            "reportingVersion", "sdkVersion", "sessionId", "startTime"))
        << type;
  }
  expectLines({});
}

TEST_F(ZLNSessionTest, AReportOfAStopCarriesStopAndDuration) {
  session->pause(Date{1030});
  session->stop(Date{1030});

  const Dictionary report = session->dictionaryForReportType("ReportTypeSessionStop");

  EXPECT_THAT(keysOf(report), ElementsAre("appVersion", "bundleId", "device", "mwVersion", "os",
                                          "platform", "reportingVersion", "sdkVersion", "sessionId",
                                          "startTime", "stopTime", "totalDuration"));
  EXPECT_EQ(1030.0, numberOf(report, "stopTime"));
  EXPECT_EQ(30.0, numberOf(report, "totalDuration"));
  expectLines({});
}

TEST_F(ZLNSessionTest, AReportOfAnyOtherTypeCarriesEverythingAndIsLogged) {
  setLevel(0);
  for (const char* type : {"ReportTypeAdAttempt", "ReportTypeSessionStopped", "ReportTypeSession",
                           "reporttypesessionstop", ""}) {
    EXPECT_EQ(session->toDictionary(), session->dictionaryForReportType(type));
    expectLines({std::string("Unexpected report type: ") + type});
  }
}

// Pausing and resuming.

TEST_F(ZLNSessionTest, PausingEndsTheRunningIntervalAndIntervalsAddUp) {
  session->pause(Date{1030.5});

  EXPECT_FALSE(session->running());
  EXPECT_EQ(30.5f, session->totalDuration());
  EXPECT_EQ(Date{1030.5}, session->lastPauseTime());
  EXPECT_EQ(Date{1000}, session->lastResumeTime());
  EXPECT_EQ(std::nullopt, session->stopTime());

  session->resume(Date{1100});

  EXPECT_TRUE(session->running());
  EXPECT_EQ(30.5f, session->totalDuration());
  EXPECT_EQ(Date{1030.5}, session->lastPauseTime());
  EXPECT_EQ(Date{1100}, session->lastResumeTime());

  session->pause(Date{1107});

  EXPECT_EQ(37.5f, session->totalDuration());
  expectLines({});
}

TEST_F(ZLNSessionTest, TheDurationIsSummedUpInDoublePrecision) {
  const auto early = sessionAt(0);
  early->setTotalDuration(16777216.0f);

  early->pause(Date{1.00000001});

  EXPECT_EQ(16777218.0f, early->totalDuration());
}

TEST_F(ZLNSessionTest, PausingBeforeTheLastResumeTakesTimeAway) {
  session->pause(Date{900});

  EXPECT_EQ(-100.0f, session->totalDuration());
  EXPECT_FALSE(session->running());
}

TEST_F(ZLNSessionTest, PausingAPausedOrStoppedSessionIsAWarningAndChangesNothing) {
  setLevel(1);
  const auto stopped = sessionAt(1000);
  stopped->stop(Date{1030});
  session->pause(Date{1030});

  for (const auto& each : {session, stopped}) {
    each->pause(Date{1060});

    expectLines({"pausing a paused session?"});
    EXPECT_EQ(Date{1030}, each->lastPauseTime());
    EXPECT_EQ(30.0f, each->totalDuration());
    EXPECT_FALSE(each->running());
  }
}

TEST_F(ZLNSessionTest, PausingWithoutAResumeTimeKeepsThePauseTimeOnly) {
  setLevel(0);
  session->setLastResumeTime(std::nullopt);

  session->pause(Date{1030});

  expectLines({"session has no resume time"});
  EXPECT_EQ(Date{1030}, session->lastPauseTime());
  EXPECT_EQ(0.0f, session->totalDuration());
  EXPECT_TRUE(session->running());
}

TEST_F(ZLNSessionTest, ResumingARunningSessionIsAWarningAndChangesNothing) {
  setLevel(1);

  session->resume(Date{1100});

  expectLines({"resuming a running session?"});
  EXPECT_EQ(Date{1000}, session->lastResumeTime());
  EXPECT_TRUE(session->running());

  session->setStopTime(Date{1030});
  session->resume(Date{1100});

  expectLines({"resuming a running session?"});
}

TEST_F(ZLNSessionTest, ResumingAStoppedSessionIsRefused) {
  setLevel(0);
  session->stop(Date{1030});

  session->resume(Date{1100});

  expectLines({"refusing to resume stopped session"});
  EXPECT_FALSE(session->running());
  EXPECT_EQ(Date{1000}, session->lastResumeTime());
}

// Stopping.

TEST_F(ZLNSessionTest, AFreshSessionStoppedAtItsLastPauseIsValid) {
  EXPECT_TRUE(session->stop(*session->lastPauseTime()));
  EXPECT_EQ(Date{1000}, session->stopTime());
  EXPECT_EQ(0.0f, session->totalDuration());
  EXPECT_FALSE(session->running());
  expectLines({});
}

TEST_F(ZLNSessionTest, StoppingARunningSessionPausesItFirst) {
  EXPECT_TRUE(session->stop(Date{1030}));
  EXPECT_FALSE(session->running());
  EXPECT_EQ(30.0f, session->totalDuration());
  EXPECT_EQ(Date{1030}, session->lastPauseTime());
  EXPECT_EQ(Date{1030}, session->stopTime());
}

TEST_F(ZLNSessionTest, StoppingARunningSessionHasTheMessagesOfPausing) {
  session->setLastResumeTime(std::nullopt);

  EXPECT_TRUE(session->stop(Date{1030}));
  expectLines({"session has no resume time"});
  EXPECT_TRUE(session->running());
  EXPECT_EQ(Date{1030}, session->stopTime());
}

TEST_F(ZLNSessionTest, StoppingAPausedSessionAddsNoTimeAndAgainChecksAgain) {
  session->pause(Date{1030});

  EXPECT_TRUE(session->stop(Date{1090}));
  EXPECT_EQ(30.0f, session->totalDuration());
  EXPECT_EQ(Date{1030}, session->lastPauseTime());
  EXPECT_EQ(Date{1090}, session->stopTime());
  expectLines({});

  EXPECT_FALSE(session->stop(Date{1010}));
  EXPECT_EQ(Date{1010}, session->stopTime());
}

TEST_F(ZLNSessionTest, FiveSecondsMoreThanTheWallClockAreToleratedAMillisecondMoreIsNot) {
  setLevel(0);
  const auto later = sessionAt(1700000000);
  later->pause(Date{1700000010});
  later->setTotalDuration(15.0f);

  EXPECT_TRUE(later->stop(Date{1700000010}));
  expectLines({});

  later->setTotalDuration(15.001f);

  EXPECT_FALSE(later->stop(Date{1700000010}));
  expectLines(
      {"invalid session: [2023-11-14 22:13:20 +0000 - 2023-11-14 22:13:30 +0000], "
       "10.000000, 15.001000 sec."});
  EXPECT_EQ(Date{1700000010}, later->stopTime());
}

TEST_F(ZLNSessionTest, TheToleranceIsMeasuredInDoublePrecision) {
  const auto early = sessionAt(0);
  early->pause(Date{10});
  // The next float above 15. As a float the tolerated time would be the same number.
  early->setTotalDuration(15.00000095367431640625f);

  EXPECT_FALSE(early->stop(Date{10.0000009}));
}

TEST_F(ZLNSessionTest, ANegativeTotalIsInvalid) {
  setLevel(0);
  const auto later = sessionAt(1700000000);
  later->pause(Date{1699999900});

  EXPECT_FALSE(later->stop(Date{1700000010}));
  expectLines(
      {"invalid session2: [2023-11-14 22:13:20 +0000 - 2023-11-14 22:13:30 +0000], "
       "10.000000, -100.000000 sec."});
  EXPECT_EQ(Date{1700000010}, later->stopTime());
  EXPECT_FALSE(later->running());
}

TEST_F(ZLNSessionTest, ASessionWhoseTimesAreInvalidTwiceIsLoggedOnce) {
  const auto later = sessionAt(1700000000);
  later->setRunning(false);
  later->setTotalDuration(-50.0f);

  EXPECT_FALSE(later->stop(Date{1699999900}));
  expectLines(
      {"invalid session: [2023-11-14 22:13:20 +0000 - 2023-11-14 22:11:40 +0000], "
       "-100.000000, -50.000000 sec."});
}

TEST_F(ZLNSessionTest, TheTextOfASessionShowsItsTimesAndDuration) {
  const auto later = sessionAt(1700000000);

  EXPECT_EQ("session: [2023-11-14 22:13:20 +0000 - (null)] 0.000000 sec.", later->description());

  later->stop(Date{1700000030.5});

  EXPECT_EQ("session: [2023-11-14 22:13:20 +0000 - 2023-11-14 22:13:50 +0000] 30.500000 sec.",
            later->description());
}

}  // namespace
}  // namespace zln
