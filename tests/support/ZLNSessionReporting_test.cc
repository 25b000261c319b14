#include "ZLNSessionReporting/ZLNSessionReporting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <initializer_list>
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

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

// A game that uses the library through its C functions.
class ZLNSessionReportingTest : public HostTest {
 protected:
  static std::string sessionDescription() {
    char* text = ZLNGetSessionDescription();
    std::string copy = text;
    ZLNReleaseString(text);
    return copy;
  }

  // Initialized, with a session under way and all that is sent accepted.
  void start() {
    env.http.always([](const HttpRequest&) { return okReply("{\"success\":true}"); });
    ZLNInitializeReporting("1.0");
    ZLNStartSessionReporting();
    env.dispatch.runAll();
  }

  // Has everything sent, and compares the types of all session reports that were.
  void expectSent(std::initializer_list<std::string> kinds) {
    env.dispatch.runAll();
    std::vector<std::string> types;
    for (const std::string& kind : kinds) types.push_back("ReportTypeSession" + kind);
    EXPECT_EQ(types, sentTypes(env.http));
  }

  // The one report that is no session report.
  SentReport adReport() {
    env.dispatch.runAll();
    std::vector<SentReport> found = sentReports(env.http);
    std::erase_if(found, [](const SentReport& report) {
      return textOf(report.body, "type").starts_with("ReportTypeSession");
    });
    EXPECT_EQ(1u, found.size());
    return found.size() == 1 ? found[0] : SentReport{};
  }

  void expectNothingStarted() {
    EXPECT_EQ(0u, env.dispatch.mainCount());
    EXPECT_EQ(0u, env.dispatch.globalCount());
    EXPECT_THAT(env.http.requests(), IsEmpty());
    EXPECT_THAT(env.defaults.values(), IsEmpty());
    EXPECT_THAT(env.uuids.issued(), IsEmpty());
    expectLines({});
  }
};

TEST_F(ZLNSessionReportingTest, TheVersionIsSeven) {
  EXPECT_STREQ("@(#)PROGRAM:ZLNSessionReporting  PROJECT:ZLNSessionReporting-7\n",
               reinterpret_cast<const char*>(ZLNSessionReportingVersionString));
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
  EXPECT_NO_THROW(ZLNSendAdAttemptReport(nullptr, nullptr, true));
  EXPECT_NO_THROW(ZLNSendAdZoneAttemptReport(nullptr, nullptr, nullptr, true));
  ZLNClearCache();

  EXPECT_EQ("[Encountered error]", sessionDescription());
  expectNothingStarted();
}

TEST_F(ZLNSessionReportingTest, InitializingMakesTheFoldersAndStartsNothing) {
  setLevel(5);

  ZLNInitializeReporting("1.0");

  EXPECT_TRUE(ZLNReportingUtils::isEnabled());
  EXPECT_THAT(env.files.excluded(),
              ElementsAre("/support/com.zelnor.sdk", "/support/com.zelnor.sdk/data",
                          "/support/com.zelnor.sdk/reporting"));
  expectNothingStarted();
}

TEST_F(ZLNSessionReportingTest, InitializingEnablesFirstAndKeepsTheEngineVersionLast) {
  env.journal.when("exists /support/com.zelnor.sdk",
                   [] { EXPECT_TRUE(ZLNReportingUtils::isEnabled()); });
  env.journal.when("exclude /support/com.zelnor.sdk/data",
                   [] { EXPECT_EQ("0.0.0", ZLNReportingUtils::getMarlwickVersion()); });

  ZLNInitializeReporting("1.0");

  EXPECT_EQ("1.0", ZLNReportingUtils::getMarlwickVersion());
}

TEST_F(ZLNSessionReportingTest, InitializingKeepsTheEngineVersionAndMendsIt) {
  ZLNInitializeReporting("1.0");
  EXPECT_EQ("1.0", ZLNReportingUtils::getMarlwickVersion());

  ZLNInitializeReporting("1.\xFF");
  EXPECT_EQ("1.\uFFFD", ZLNReportingUtils::getMarlwickVersion());

  ZLNInitializeReporting(nullptr);
  EXPECT_EQ(std::nullopt, ZLNReportingUtils::getMarlwickVersion());
}

TEST_F(ZLNSessionReportingTest, InitializingAgainMakesMissingFoldersAndReplacesTheEngineVersion) {
  ZLNInitializeReporting("1.0");
  env.files.remove("/support/com.zelnor.sdk/data", nullptr);

  ZLNInitializeReporting("2.0");

  EXPECT_TRUE(env.files.exists("/support/com.zelnor.sdk/data"));
  EXPECT_EQ("2.0", ZLNReportingUtils::getMarlwickVersion());
  EXPECT_TRUE(ZLNReportingUtils::isEnabled());
}

TEST_F(ZLNSessionReportingTest, StartingMakesSettingsThenReportingAndThenSessions) {
  ZLNInitializeReporting("4.5.6");
  env.journal.begin();

  ZLNStartSessionReporting();

  // The stored reports and the first session wait for their threads.
  expectCalls({"read /support/com.zelnor.sdk/data/config.dat",
               "write /support/com.zelnor.sdk/data/config.dat",
               "request https://config.invalid/config", "global async",
               "get com.zelnor.sessionUserId", "set com.zelnor.sessionUserId", "synchronize",
               "main async"});

  expectSent({"First"});
  EXPECT_EQ("4.5.6", textOf(sentReports(env.http)[0].body, "mwVersion"));
}

TEST_F(ZLNSessionReportingTest, StartingAgainDoesNothingNew) {
  start();
  const std::string before = sessionDescription();

  ZLNStartSessionReporting();

  EXPECT_EQ(0u, env.dispatch.mainCount());
  EXPECT_EQ(0u, env.dispatch.globalCount());
  EXPECT_EQ(before, sessionDescription());
  EXPECT_EQ(2u, env.http.requests().size());
}

TEST_F(ZLNSessionReportingTest, StoppingQueuesTheStopReportAndTheNextActivationStartsANewSession) {
  start();

  ZLNStopSessionReporting();

  expectSent({"First", "Stop"});

  env.app.becomeActive();

  expectSent({"First", "Stop", "Start"});
}

TEST_F(ZLNSessionReportingTest, StoppingWithoutStartingBringsSessionsToLife) {
  ZLNInitializeReporting("1.0");

  ZLNStopSessionReporting();

  expectSent({"First"});
}

// The functions that record an attempt, and what each sends.
TEST_F(ZLNSessionReportingTest, EachFunctionForAttemptsSendsItsReport) {
  struct Row {
    std::function<void(bool filled)> send;
    const char* type;
    const char* url;
    const char* adType;
    bool hasZone;
  };
  const std::vector<Row> rows = {
      {[](bool filled) { ZLNSendAdAttemptReport("N", "native", filled); }, "ReportTypeAdAttempt",
       "https://ad-attempt.invalid/session", "native", false},
      {[](bool filled) { ZLNSendBannerAdAttemptReport("N", filled); }, "ReportTypeAdAttempt",
       "https://ad-attempt.invalid/session", "banner", false},
      {[](bool filled) { ZLNSendInterstitialAdAttemptReport("N", filled); }, "ReportTypeAdAttempt",
       "https://ad-attempt.invalid/session", "interstitial", false},
      {[](bool filled) { ZLNSendRewardedAdAttemptReport("N", filled); }, "ReportTypeAdAttempt",
       "https://ad-attempt.invalid/session", "rewarded", false},
      {[](bool filled) { ZLNSendAdZoneAttemptReport("N", "native", "Z", filled); },
       "ReportTypeAdZoneAttempt", "https://ad-zone-attempt.invalid/session", "native", true},
      {[](bool filled) { ZLNSendBannerAdZoneAttemptReport("N", "Z", filled); },
       "ReportTypeAdZoneAttempt", "https://ad-zone-attempt.invalid/session", "banner", true},
      {[](bool filled) { ZLNSendInterstitialAdZoneAttemptReport("N", "Z", filled); },
       "ReportTypeAdZoneAttempt", "https://ad-zone-attempt.invalid/session", "interstitial", true},
      {[](bool filled) { ZLNSendRewardedAdZoneAttemptReport("N", "Z", filled); },
       "ReportTypeAdZoneAttempt", "https://ad-zone-attempt.invalid/session", "rewarded", true}};
  start();
  for (const auto& [send, type, url, adType, hasZone] : rows) {
    for (const bool filled : {true, false}) {
      send(filled);
      env.dispatch.runAll();

      const SentReport sent = sentReports(env.http).back();
      const Dictionary& body = sent.body;
      EXPECT_EQ(url, sent.url);
      EXPECT_EQ(type, textOf(body, "type"));
      EXPECT_EQ("N", textOf(body, "network"));
      EXPECT_EQ(adType, textOf(body, "adType"));
      EXPECT_EQ(Value(Number::boolean(filled)), *body.find("fill"));
      if (hasZone) {
        EXPECT_EQ("Z", textOf(body, "zoneId"));
      } else {
        EXPECT_EQ(nullptr, body.find("zoneId"));
      }
    }
  }
}

TEST_F(ZLNSessionReportingTest, AnAttemptNeedsInitializationAlone) {
  ZLNInitializeReporting("1.0");

  ZLNSendBannerAdAttemptReport("N", true);
  env.dispatch.runAll();

  // The attempt has brought the session to life.
  EXPECT_THAT(sentTypes(env.http),
              testing::UnorderedElementsAre("ReportTypeAdAttempt", "ReportTypeSessionFirst"));
}

TEST_F(ZLNSessionReportingTest, AnAttemptIsStoredUntilItIsDeliveredUnderAnIdentifierOfItsOwn) {
  ZLNInitializeReporting("1.0");

  ZLNSendBannerAdAttemptReport("N", true);
  ZLNSendBannerAdAttemptReport("N", true);

  const std::vector<Dictionary> stored = storedReports(env.files);
  ASSERT_EQ(2u, stored.size());
  EXPECT_EQ("ReportTypeAdAttempt", textOf(stored[0], "type"));
  EXPECT_EQ("banner", textOf(stored[0], "adType"));
  EXPECT_EQ(Value(Number::boolean(true)), *stored[0].find("fill"));
  EXPECT_NE(textOf(stored[0], "adEventId"), textOf(stored[1], "adEventId"));
}

TEST_F(ZLNSessionReportingTest, TextsOfAnAttemptAreCopiedAndMendedDuringTheCall) {
  ZLNInitializeReporting("1.0");
  char network[] = "n\xFF";

  ZLNSendAdZoneAttemptReport(network, "t\xC3", "\x80z", true);
  network[0] = 'X';

  const Dictionary report = adReport().body;
  EXPECT_EQ("n\uFFFD", textOf(report, "network"));
  EXPECT_EQ("t\uFFFD", textOf(report, "adType"));
  EXPECT_EQ("\uFFFDz", textOf(report, "zoneId"));
}

TEST_F(ZLNSessionReportingTest, EmptyTextsOfAnAttemptAreNotAbsent) {
  ZLNInitializeReporting("1.0");

  ZLNSendAdZoneAttemptReport("", "", "", true);

  const Dictionary report = adReport().body;
  for (const char* key : {"network", "adType", "zoneId"}) EXPECT_EQ("", textOf(report, key));
}

TEST_F(ZLNSessionReportingTest, AnAttemptWithAnAbsentArgumentFailsInTheCallerAndQueuesNothing) {
  setLevel(5);
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
  env.dispatch.runAll();

  EXPECT_THAT(env.http.requests(), IsEmpty());
  EXPECT_EQ(std::nullopt, env.files.contents("/support/com.zelnor.sdk/reporting/reports.json"));
  expectLines({});
}

TEST_F(ZLNSessionReportingTest, ClearingTheCacheLogsEachFileAndLeavesIt) {
  ZLNInitializeReporting("1.0");
  env.files.put("/support/com.zelnor.sdk/reporting/reports.json", "reports");
  env.files.put("/support/com.zelnor.sdk/data/config.dat", "config");

  ZLNClearCache();

  EXPECT_THAT(
      newLines(),
      ElementsAre(
          StartsWith("Failed to remove file /support/com.zelnor.sdk/reportingreports.json: Error "),
          StartsWith("Failed to remove file /support/com.zelnor.sdk/dataconfig.dat: Error ")));
  EXPECT_EQ("reports", env.files.contents("/support/com.zelnor.sdk/reporting/reports.json"));
  EXPECT_EQ("config", env.files.contents("/support/com.zelnor.sdk/data/config.dat"));
}

TEST_F(ZLNSessionReportingTest, TheDescriptionIsThatOfTheCurrentSession) {
  start();

  EXPECT_THAT(sessionDescription(), StartsWith("Start: 1700000000.000000\nStop: 0.000000\n"));
  EXPECT_EQ(ZLNSessionManager::sharedManager()->sessionDescription(), sessionDescription());
}

TEST_F(ZLNSessionReportingTest, TheDescriptionNeedsInitializationAloneAndMayBeGivenBackWithFree) {
  ZLNInitializeReporting("1.0");

  char* first = ZLNGetSessionDescription();
  char* second = ZLNGetSessionDescription();

  EXPECT_STREQ(
      "Start: \nStop: \nLast Pause: \nLastResume: \nTotal Duration: \nCurrent Time: \nUUID: \n"
      "OS: \nMWVersion: ",
      first);
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
