#include "ZLNSessionReporting/ZLNSessionReporting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "session/ZLNSessionManager.h"
#include "support/ZLNReportingUtils.h"
#include "tests/support/host_fixture.h"
#include "tests/support/sent_reports.h"

namespace zln {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

// A game that uses the library through its C functions.
class ZLNSessionReportingTest : public HostTest {
 protected:
  static std::string sessionDescription() {
    char* text = ZLNGetSessionDescription();
    std::string copy = text;
    ZLNReleaseString(text);
    return copy;
  }

  // The body of the one report that is no session report.
  Dictionary adReport() {
    env.dispatch.runAll();
    std::vector<Dictionary> found;
    for (const SentReport& report : sentReports(env.http)) {
      if (!textOf(report.body, "type").starts_with("ReportTypeSession")) {
        found.push_back(report.body);
      }
    }
    EXPECT_EQ(1u, found.size());
    return found.size() == 1 ? found[0] : Dictionary{};
  }

  // Answers everything that goes out, so that all that is queued is sent.
  void answerEverything() {
    env.http.always([](const HttpRequest&) { return okReply("{\"success\":true}"); });
  }
};

TEST_F(ZLNSessionReportingTest, TheVersionStringIsTheMarkOfVersionSeven) {
  EXPECT_STREQ("@(#)PROGRAM:ZLNSessionReporting  PROJECT:ZLNSessionReporting-7\n",
               reinterpret_cast<const char*>(ZLNSessionReportingVersionString));
}

TEST_F(ZLNSessionReportingTest, TheVersionNumberIsSeven) {
  EXPECT_EQ(7.0, ZLNSessionReportingVersionNumber);
}

TEST_F(ZLNSessionReportingTest, BeforeInitializationTheGuardedFunctionsDoNothing) {
  env.files.put("/support/com.zelnor.sdk/data/config.dat", "config");
  setLevel(5);

  ZLNStartSessionReporting();
  ZLNStopSessionReporting();
  ZLNSendAdAttemptReport("N", "T", true);
  ZLNSendBannerAdAttemptReport("N", true);
  ZLNSendInterstitialAdAttemptReport("N", true);
  ZLNSendRewardedAdAttemptReport("N", true);
  ZLNSendAdZoneAttemptReport("N", "T", "Z", true);
  ZLNSendBannerAdZoneAttemptReport("N", "Z", true);
  ZLNSendInterstitialAdZoneAttemptReport("N", "Z", true);
  ZLNSendRewardedAdZoneAttemptReport("N", "Z", true);
  ZLNClearCache();
  ZLNReleaseString(ZLNGetSessionDescription());

  EXPECT_EQ(0u, env.dispatch.mainCount());
  EXPECT_EQ(0u, env.dispatch.globalCount());
  EXPECT_THAT(env.http.requests(), IsEmpty());
  EXPECT_THAT(env.defaults.values(), IsEmpty());
  EXPECT_THAT(env.uuids.issued(), IsEmpty());
  EXPECT_THAT(log().lines(), IsEmpty());
}

TEST_F(ZLNSessionReportingTest, BeforeInitializationAbsentArgumentsAreNoError) {
  EXPECT_NO_THROW(ZLNSendAdAttemptReport(nullptr, nullptr, true));
  EXPECT_NO_THROW(ZLNSendAdZoneAttemptReport(nullptr, nullptr, nullptr, true));
}

TEST_F(ZLNSessionReportingTest, BeforeInitializationThereIsNoDescription) {
  EXPECT_EQ("[Encountered error]", sessionDescription());
}

TEST_F(ZLNSessionReportingTest, InitializingSwitchesTheLibraryOn) {
  ZLNInitializeReporting("1.0");

  EXPECT_TRUE(ZLNReportingUtils::isEnabled());
}

TEST_F(ZLNSessionReportingTest, InitializingMakesTheFolders) {
  ZLNInitializeReporting("1.0");

  EXPECT_THAT(env.files.excluded(),
              ElementsAre("/support/com.zelnor.sdk", "/support/com.zelnor.sdk/data",
                          "/support/com.zelnor.sdk/reporting"));
}

TEST_F(ZLNSessionReportingTest, InitializingKeepsTheEngineVersion) {
  ZLNInitializeReporting("1.0");

  EXPECT_EQ("1.0", ZLNReportingUtils::getMarlwickVersion());
}

TEST_F(ZLNSessionReportingTest, InitializingWithoutAnEngineVersionMakesItAbsent) {
  ZLNInitializeReporting(nullptr);

  EXPECT_EQ(std::nullopt, ZLNReportingUtils::getMarlwickVersion());
}

TEST_F(ZLNSessionReportingTest, AnEngineVersionThatIsNotUtf8IsMended) {
  ZLNInitializeReporting("1.\xFF");

  EXPECT_EQ("1.\uFFFD", ZLNReportingUtils::getMarlwickVersion());
}

TEST_F(ZLNSessionReportingTest, InitializingAloneStartsNothing) {
  ZLNInitializeReporting("1.0");

  EXPECT_EQ(0u, env.dispatch.mainCount());
  EXPECT_EQ(0u, env.dispatch.globalCount());
  EXPECT_THAT(env.http.requests(), IsEmpty());
  EXPECT_THAT(env.defaults.values(), IsEmpty());
}

TEST_F(ZLNSessionReportingTest, InitializingAgainMakesMissingFoldersAndReplacesTheEngineVersion) {
  ZLNInitializeReporting("1.0");
  env.files.remove("/support/com.zelnor.sdk/data", nullptr);

  ZLNInitializeReporting("2.0");

  EXPECT_TRUE(env.files.exists("/support/com.zelnor.sdk/data"));
  EXPECT_EQ("2.0", ZLNReportingUtils::getMarlwickVersion());
  EXPECT_TRUE(ZLNReportingUtils::isEnabled());
}

TEST_F(ZLNSessionReportingTest, StartingMakesSettingsReportingAndSessions) {
  ZLNInitializeReporting("1.0");

  ZLNStartSessionReporting();

  // The settings are fetched, the stored reports and the first session wait for their threads.
  ASSERT_EQ(1u, env.http.requests().size());
  EXPECT_EQ("https://config.invalid/config", env.http.requests()[0].url);
  EXPECT_EQ(1u, env.dispatch.globalCount());
  EXPECT_EQ(1u, env.dispatch.mainCount());
}

TEST_F(ZLNSessionReportingTest, TheFirstSessionCarriesTheEngineVersion) {
  ZLNInitializeReporting("4.5.6");

  ZLNStartSessionReporting();
  env.dispatch.runAll();

  ASSERT_THAT(sentTypes(env.http), ElementsAre("ReportTypeSessionFirst"));
  EXPECT_EQ("4.5.6", textOf(sentReports(env.http)[0].body, "mwVersion"));
}

TEST_F(ZLNSessionReportingTest, StartingAgainDoesNothingNew) {
  answerEverything();
  ZLNInitializeReporting("1.0");
  ZLNStartSessionReporting();
  env.dispatch.runAll();
  const std::string before = sessionDescription();

  ZLNStartSessionReporting();

  EXPECT_EQ(0u, env.dispatch.mainCount());
  EXPECT_EQ(0u, env.dispatch.globalCount());
  EXPECT_EQ(before, sessionDescription());
  EXPECT_EQ(2u, env.http.requests().size());
}

TEST_F(ZLNSessionReportingTest, StoppingQueuesTheStopReport) {
  answerEverything();
  ZLNInitializeReporting("1.0");
  ZLNStartSessionReporting();
  env.dispatch.runAll();

  ZLNStopSessionReporting();
  env.dispatch.runAll();

  EXPECT_THAT(sentTypes(env.http), ElementsAre("ReportTypeSessionFirst", "ReportTypeSessionStop"));
}

TEST_F(ZLNSessionReportingTest, StoppingLeavesTheNextActivationToStartANewSession) {
  answerEverything();
  ZLNInitializeReporting("1.0");
  ZLNStartSessionReporting();
  env.dispatch.runAll();
  ZLNStopSessionReporting();
  env.dispatch.runAll();

  env.app.becomeActive();
  env.dispatch.runAll();

  EXPECT_THAT(sentTypes(env.http), ElementsAre("ReportTypeSessionFirst", "ReportTypeSessionStop",
                                               "ReportTypeSessionStart"));
}

TEST_F(ZLNSessionReportingTest, StoppingARunningSessionThatWasPausedStopsItAtThatPause) {
  answerEverything();
  ZLNInitializeReporting("1.0");
  ZLNStartSessionReporting();
  env.dispatch.runAll();
  env.clock.advance(30);
  env.app.resignActive();
  env.clock.advance(10);
  env.app.becomeActive();
  env.clock.advance(160);

  ZLNStopSessionReporting();
  env.dispatch.runAll();

  ASSERT_THAT(sentTypes(env.http), ElementsAre("ReportTypeSessionFirst", "ReportTypeSessionStop"));
  const Dictionary stop = sentReports(env.http)[1].body;
  EXPECT_EQ(1700000030.0, numberOf(stop, "stopTime"));
  // 30 seconds of use, and the interval from the resume at 40 back to the pause at 30.
  EXPECT_EQ(20.0, numberOf(stop, "totalDuration"));
}

TEST_F(ZLNSessionReportingTest, StoppingWithANegativeTotalQueuesNoStopReport) {
  answerEverything();
  ZLNInitializeReporting("1.0");
  ZLNStartSessionReporting();
  env.dispatch.runAll();
  env.clock.advance(30);
  env.app.resignActive();
  env.clock.advance(70);
  env.app.becomeActive();
  env.clock.advance(100);
  log().clear();

  ZLNStopSessionReporting();
  env.dispatch.runAll();

  EXPECT_THAT(sentTypes(env.http), ElementsAre("ReportTypeSessionFirst"));
  EXPECT_THAT(log().lines(),
              ElementsAre("ZLN Session: invalid session2: [2023-11-14 22:13:20 +0000 - 2023-11-14 "
                          "22:13:50 +0000], 30.000000, -40.000000 sec."));
}

TEST_F(ZLNSessionReportingTest, StoppingWithoutStartingBringsSessionsToLife) {
  ZLNInitializeReporting("1.0");

  ZLNStopSessionReporting();
  env.dispatch.runAll();

  EXPECT_THAT(sentTypes(env.http), ElementsAre("ReportTypeSessionFirst"));
}

struct AdAttempt {
  const char* name;
  std::function<void(bool filled)> send;
  const char* url;
  const char* type;
  const char* adType;
  const char* zone;
};

// The functions that record an attempt, and what each sends.
const std::vector<AdAttempt>& adAttempts() {
  static const std::vector<AdAttempt>& attempts = *new std::vector<AdAttempt>{
      {"ZLNSendAdAttemptReport", [](bool filled) { ZLNSendAdAttemptReport("N", "native", filled); },
       "https://ad-attempt.invalid/session", "ReportTypeAdAttempt", "native", nullptr},
      {"ZLNSendBannerAdAttemptReport",
       [](bool filled) { ZLNSendBannerAdAttemptReport("N", filled); },
       "https://ad-attempt.invalid/session", "ReportTypeAdAttempt", "banner", nullptr},
      {"ZLNSendInterstitialAdAttemptReport",
       [](bool filled) { ZLNSendInterstitialAdAttemptReport("N", filled); },
       "https://ad-attempt.invalid/session", "ReportTypeAdAttempt", "interstitial", nullptr},
      {"ZLNSendRewardedAdAttemptReport",
       [](bool filled) { ZLNSendRewardedAdAttemptReport("N", filled); },
       "https://ad-attempt.invalid/session", "ReportTypeAdAttempt", "rewarded", nullptr},
      {"ZLNSendAdZoneAttemptReport",
       [](bool filled) { ZLNSendAdZoneAttemptReport("N", "native", "Z", filled); },
       "https://ad-zone-attempt.invalid/session", "ReportTypeAdZoneAttempt", "native", "Z"},
      {"ZLNSendBannerAdZoneAttemptReport",
       [](bool filled) { ZLNSendBannerAdZoneAttemptReport("N", "Z", filled); },
       "https://ad-zone-attempt.invalid/session", "ReportTypeAdZoneAttempt", "banner", "Z"},
      {"ZLNSendInterstitialAdZoneAttemptReport",
       [](bool filled) { ZLNSendInterstitialAdZoneAttemptReport("N", "Z", filled); },
       "https://ad-zone-attempt.invalid/session", "ReportTypeAdZoneAttempt", "interstitial", "Z"},
      {"ZLNSendRewardedAdZoneAttemptReport",
       [](bool filled) { ZLNSendRewardedAdZoneAttemptReport("N", "Z", filled); },
       "https://ad-zone-attempt.invalid/session", "ReportTypeAdZoneAttempt", "rewarded", "Z"},
  };
  return attempts;
}

class ZLNSessionReportingAdAttemptTest : public ZLNSessionReportingTest,
                                         public testing::WithParamInterface<std::size_t> {
 protected:
  const AdAttempt& attempt() const { return adAttempts()[GetParam()]; }
};

TEST_P(ZLNSessionReportingAdAttemptTest, SendsAReportOfTheAttempt) {
  answerEverything();
  ZLNInitializeReporting("1.0");

  attempt().send(true);
  env.dispatch.runAll();

  std::vector<SentReport> found;
  for (const SentReport& report : sentReports(env.http)) {
    if (report.url == attempt().url) found.push_back(report);
  }
  ASSERT_EQ(1u, found.size());
  const Dictionary& body = found[0].body;
  EXPECT_EQ(attempt().type, textOf(body, "type"));
  EXPECT_EQ("N", textOf(body, "network"));
  EXPECT_EQ(attempt().adType, textOf(body, "adType"));
  if (attempt().zone == nullptr) {
    EXPECT_EQ(nullptr, body.find("zoneId"));
  } else {
    EXPECT_EQ(attempt().zone, textOf(body, "zoneId"));
  }
}

TEST_P(ZLNSessionReportingAdAttemptTest, SaysThatTheAttemptWasFilled) {
  ZLNInitializeReporting("1.0");

  attempt().send(true);

  const Dictionary report = adReport();
  ASSERT_NE(nullptr, report.find("fill"));
  EXPECT_EQ(Value(Number::boolean(true)), *report.find("fill"));
}

TEST_P(ZLNSessionReportingAdAttemptTest, SaysThatTheAttemptWasNotFilled) {
  ZLNInitializeReporting("1.0");

  attempt().send(false);

  const Dictionary report = adReport();
  ASSERT_NE(nullptr, report.find("fill"));
  EXPECT_EQ(Value(Number::boolean(false)), *report.find("fill"));
}

INSTANTIATE_TEST_SUITE_P(Functions, ZLNSessionReportingAdAttemptTest,
                         testing::Range<std::size_t>(0, 8), [](const auto& function) {
                           return std::string(adAttempts()[function.param].name);
                         });

TEST_F(ZLNSessionReportingTest, AnAttemptNeedsInitializationAlone) {
  answerEverything();
  ZLNInitializeReporting("1.0");

  ZLNSendBannerAdAttemptReport("N", true);
  env.dispatch.runAll();

  // The attempt has brought the session to life.
  EXPECT_THAT(sentTypes(env.http),
              testing::UnorderedElementsAre("ReportTypeAdAttempt", "ReportTypeSessionFirst"));
}

TEST_F(ZLNSessionReportingTest, EachAttemptHasAnIdentifierOfItsOwn) {
  ZLNInitializeReporting("1.0");

  ZLNSendBannerAdAttemptReport("N", true);
  ZLNSendBannerAdAttemptReport("N", true);

  const std::vector<Dictionary> stored = storedReports(env.files);
  ASSERT_EQ(2u, stored.size());
  EXPECT_NE(textOf(stored[0], "adEventId"), textOf(stored[1], "adEventId"));
}

TEST_F(ZLNSessionReportingTest, AnAttemptIsStoredUntilItIsDelivered) {
  ZLNInitializeReporting("1.0");

  ZLNSendBannerAdAttemptReport("N", true);

  const std::vector<Dictionary> stored = storedReports(env.files);
  ASSERT_EQ(1u, stored.size());
  EXPECT_EQ("ReportTypeAdAttempt", textOf(stored[0], "type"));
  EXPECT_EQ("banner", textOf(stored[0], "adType"));
  ASSERT_NE(nullptr, stored[0].find("fill"));
  EXPECT_EQ(Value(Number::boolean(true)), *stored[0].find("fill"));
}

TEST_F(ZLNSessionReportingTest, TextsAreCopiedDuringTheCall) {
  ZLNInitializeReporting("1.0");
  char network[] = "first";

  ZLNSendBannerAdAttemptReport(network, true);
  network[0] = 'X';

  EXPECT_EQ("first", textOf(adReport(), "network"));
}

TEST_F(ZLNSessionReportingTest, TextsOfAnAttemptThatAreNotUtf8AreMended) {
  ZLNInitializeReporting("1.0");

  ZLNSendAdZoneAttemptReport("n\xFF", "t\xC3", "\x80z", true);

  const Dictionary report = adReport();
  EXPECT_EQ("n\uFFFD", textOf(report, "network"));
  EXPECT_EQ("t\uFFFD", textOf(report, "adType"));
  EXPECT_EQ("\uFFFDz", textOf(report, "zoneId"));
}

TEST_F(ZLNSessionReportingTest, EmptyTextsOfAnAttemptAreNotAbsent) {
  ZLNInitializeReporting("1.0");

  ZLNSendAdZoneAttemptReport("", "", "", true);

  const Dictionary report = adReport();
  EXPECT_EQ("", textOf(report, "network"));
  EXPECT_EQ("", textOf(report, "adType"));
  EXPECT_EQ("", textOf(report, "zoneId"));
}

TEST_F(ZLNSessionReportingTest, AnAttemptWithAnAbsentArgumentFailsInTheCaller) {
  ZLNInitializeReporting("1.0");

  EXPECT_THROW(ZLNSendAdAttemptReport(nullptr, "T", true), std::invalid_argument);
  EXPECT_THROW(ZLNSendAdAttemptReport("N", nullptr, true), std::invalid_argument);
  EXPECT_THROW(ZLNSendBannerAdAttemptReport(nullptr, true), std::invalid_argument);
  EXPECT_THROW(ZLNSendInterstitialAdAttemptReport(nullptr, true), std::invalid_argument);
  EXPECT_THROW(ZLNSendRewardedAdAttemptReport(nullptr, true), std::invalid_argument);
  EXPECT_THROW(ZLNSendAdZoneAttemptReport(nullptr, "T", "Z", true), std::invalid_argument);
  EXPECT_THROW(ZLNSendAdZoneAttemptReport("N", nullptr, "Z", true), std::invalid_argument);
  EXPECT_THROW(ZLNSendAdZoneAttemptReport("N", "T", nullptr, true), std::invalid_argument);
  EXPECT_THROW(ZLNSendBannerAdZoneAttemptReport(nullptr, "Z", true), std::invalid_argument);
  EXPECT_THROW(ZLNSendBannerAdZoneAttemptReport("N", nullptr, true), std::invalid_argument);
  EXPECT_THROW(ZLNSendInterstitialAdZoneAttemptReport(nullptr, "Z", true), std::invalid_argument);
  EXPECT_THROW(ZLNSendInterstitialAdZoneAttemptReport("N", nullptr, true), std::invalid_argument);
  EXPECT_THROW(ZLNSendRewardedAdZoneAttemptReport(nullptr, "Z", true), std::invalid_argument);
  EXPECT_THROW(ZLNSendRewardedAdZoneAttemptReport("N", nullptr, true), std::invalid_argument);
}

TEST_F(ZLNSessionReportingTest, AnAttemptWithAnAbsentArgumentQueuesNothing) {
  setLevel(5);
  ZLNInitializeReporting("1.0");

  EXPECT_THROW(ZLNSendAdAttemptReport("N", nullptr, true), std::invalid_argument);
  EXPECT_THROW(ZLNSendAdZoneAttemptReport("N", "T", nullptr, true), std::invalid_argument);
  env.dispatch.runAll();

  EXPECT_THAT(env.http.requests(), IsEmpty());
  EXPECT_EQ(std::nullopt, env.files.contents("/support/com.zelnor.sdk/reporting/reports.json"));
  EXPECT_THAT(log().lines(), IsEmpty());
}

TEST_F(ZLNSessionReportingTest, ClearingTheCacheLogsEachFileAndLeavesIt) {
  ZLNInitializeReporting("1.0");
  env.files.put("/support/com.zelnor.sdk/reporting/reports.json", "reports");
  env.files.put("/support/com.zelnor.sdk/data/config.dat", "config");

  ZLNClearCache();

  ASSERT_EQ(2u, log().lines().size());
  EXPECT_TRUE(log().lines()[0].starts_with(
      "ZLN Session: Failed to remove file /support/com.zelnor.sdk/reportingreports.json: Error "));
  EXPECT_TRUE(log().lines()[1].starts_with(
      "ZLN Session: Failed to remove file /support/com.zelnor.sdk/dataconfig.dat: Error "));
  EXPECT_EQ("reports", env.files.contents("/support/com.zelnor.sdk/reporting/reports.json"));
  EXPECT_EQ("config", env.files.contents("/support/com.zelnor.sdk/data/config.dat"));
}

TEST_F(ZLNSessionReportingTest, TheDescriptionIsThatOfTheCurrentSession) {
  ZLNInitializeReporting("4.5.6");
  ZLNStartSessionReporting();
  env.dispatch.runMain();

  EXPECT_EQ(
      "Start: 1700000000.000000\n"
      "Stop: 0.000000\n"
      "Last Pause: 1700000000.000000\n"
      "LastResume: 1700000000.000000\n"
      "Total Duration: 0.000000\n"
      "Current Time: 1700000000.000000\n"
      "UUID: 00000000-0000-4000-8000-000000000002\n"
      "OS: 17.5.1\n"
      "MWVersion: 4.5.6",
      sessionDescription());
}

TEST_F(ZLNSessionReportingTest, TheDescriptionNeedsInitializationAlone) {
  ZLNInitializeReporting("1.0");

  EXPECT_EQ(
      "Start: \nStop: \nLast Pause: \nLastResume: \nTotal Duration: \nCurrent Time: \nUUID: \n"
      "OS: \nMWVersion: ",
      sessionDescription());
}

TEST_F(ZLNSessionReportingTest, ADescriptionMayBeGivenBackWithFree) {
  ZLNInitializeReporting("1.0");

  char* first = ZLNGetSessionDescription();
  char* second = ZLNGetSessionDescription();

  EXPECT_NE(first, second);
  std::free(first);
  std::free(second);
}

TEST_F(ZLNSessionReportingTest, NoTextNeedsNoGivingBack) { ZLNReleaseString(nullptr); }

TEST_F(ZLNSessionReportingTest, TheLevelsAreSetBeforeInitialization) {
  ZLNSessionReportingSetLogLevelToSuperVerbose();
  EXPECT_EQ(5u, processState().currentLogLevel.get());
  ZLNSessionReportingSetLogLevelToVerbose();
  EXPECT_EQ(4u, processState().currentLogLevel.get());
  ZLNSessionReportingSetLogLevelToDebug();
  EXPECT_EQ(3u, processState().currentLogLevel.get());
  ZLNSessionReportingSetLogLevelToInfo();
  EXPECT_EQ(2u, processState().currentLogLevel.get());
  ZLNSessionReportingSetLogLevelToWarn();
  EXPECT_EQ(1u, processState().currentLogLevel.get());
  ZLNSessionReportingSetLogLevelToError();
  EXPECT_EQ(0u, processState().currentLogLevel.get());
}

}  // namespace
}  // namespace zln
