#include "tests/host/collected_game.h"

#include <gmock/gmock.h>

#include <set>
#include <string>
#include <vector>

namespace zln {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Le;
using testing::SizeIs;

// The library sends so many reports at once.
constexpr std::size_t kAtOnce = 3;
// Until the fault is removed.
constexpr int kForever = 600;

class CollectedReportsTest : public CollectedGameTest {
 protected:
  // Nobody gets an answer until the fault with the returned identifier is removed.
  int keepEveryoneWaiting() {
    return collector.addFault({{"effect", "delay"}, {"seconds", kForever}});
  }

  // The host that the latest report has gone to.
  std::string latestHost() const {
    std::string latest;
    for (const std::string& host : proxy.hosts()) {
      if (host != "config.invalid:443") latest = host;
    }
    return latest;
  }

  // What makes a report the same one when it comes again.
  static std::string identityOf(const Json& report) {
    if (report["event"].is_string()) return report["event"];
    return report["kind"].get<std::string>() + " " + report["session"].get<std::string>();
  }
  static std::set<std::string> identitiesOf(const std::vector<Json>& reports) {
    std::set<std::string> identities;
    for (const Json& report : reports) identities.insert(identityOf(report));
    return identities;
  }
};

TEST_F(CollectedReportsTest, AFirstLaunchReportsTheFirstSession) {
  launchAndStart();

  const std::vector<Json> bodies = waitForReports(1);

  ASSERT_EQ(1u, bodies.size());
  EXPECT_EQ("ReportTypeSessionFirst", bodies[0]["type"]);
  EXPECT_EQ("DE", bodies[0]["country"]);
  EXPECT_EQ("com.example.game", bodies[0]["bundleId"]);
  EXPECT_EQ("1.2.3", bodies[0]["appVersion"]);
  EXPECT_EQ("engine-5", bodies[0]["mwVersion"]);
  EXPECT_EQ("0.0.0", bodies[0]["sdkVersion"]);
  EXPECT_EQ("7.0.0", bodies[0]["reportingVersion"]);
  EXPECT_EQ("iOS", bodies[0]["platform"]);
  EXPECT_EQ(36u, bodies[0]["userId"].get<std::string>().size());
  EXPECT_EQ(36u, bodies[0]["sessionId"].get<std::string>().size());
  EXPECT_TRUE(bodies[0]["startTime"].is_number_float());
  EXPECT_FALSE(bodies[0].contains("totalDuration"));
}

TEST_F(CollectedReportsTest, EveryKindOfAdAttemptArrivesAtItsEndpoint) {
  launchAndStart();
  std::size_t count = waitForReports(1).size();

  std::vector<std::string> seen;
  for (const char* call :
       {"ad n1 video 1", "banner n2 0", "interstitial n3 1", "rewarded n4 1", "zone n5 video z5 1",
        "banner-zone n6 z6 0", "interstitial-zone n7 z7 1", "rewarded-zone n8 z8 1"}) {
    tell(call);
    const Json body = waitForReports(++count).back();
    seen.push_back(latestHost() + " " + body["type"].get<std::string>() + " " +
                   body["network"].get<std::string>() + " " + body["adType"].get<std::string>() +
                   " " + body.value("zoneId", "-") + " " + body["fill"].dump());
  }

  EXPECT_THAT(seen,
              ElementsAre("ad-attempt.invalid:443 ReportTypeAdAttempt n1 video - true",
                          "ad-attempt.invalid:443 ReportTypeAdAttempt n2 banner - false",
                          "ad-attempt.invalid:443 ReportTypeAdAttempt n3 interstitial - true",
                          "ad-attempt.invalid:443 ReportTypeAdAttempt n4 rewarded - true",
                          "ad-zone-attempt.invalid:443 ReportTypeAdZoneAttempt n5 video z5 true",
                          "ad-zone-attempt.invalid:443 ReportTypeAdZoneAttempt n6 banner z6 false",
                          "ad-zone-attempt.invalid:443 ReportTypeAdZoneAttempt n7 interstitial z7 "
                          "true",
                          "ad-zone-attempt.invalid:443 ReportTypeAdZoneAttempt n8 rewarded z8 "
                          "true"));
}

TEST_F(CollectedReportsTest, UnusualTextArrivesUnchangedAndBrokenTextMended) {
  launchAndStart();
  waitForReports(1);
  const std::string longText(65536, 'x');

  tell("banner %01%22%5c%f0%9f%8e%ae%7f%3c%26 1");
  tell("rewarded " + longText + " 1");
  tell("interstitial a%ff%fez 1");

  const std::vector<Json> bodies = waitForReports(4);
  ASSERT_EQ(4u, bodies.size());
  EXPECT_EQ("\x01\"\\\xf0\x9f\x8e\xae\x7f<&",
            having(bodies, "adType", "banner").at(0)["network"].get<std::string>());
  EXPECT_EQ(longText, having(bodies, "adType", "rewarded").at(0)["network"].get<std::string>());
  EXPECT_EQ("a\xef\xbf\xbd\xef\xbf\xbdz",
            having(bodies, "adType", "interstitial").at(0)["network"].get<std::string>());
}

TEST_F(CollectedReportsTest, APhoneCallPausesTheSessionAndTerminationReportsItsStop) {
  launchAndStart();
  waitForReports(1);

  tell("resign");
  tell("active");
  tell("resign");
  tell("background");
  tell("terminate");

  const std::vector<Json> bodies = waitForReports(2);
  ASSERT_EQ(2u, bodies.size());
  EXPECT_EQ("ReportTypeSessionStop", bodies[1]["type"]);
  EXPECT_EQ(bodies[0]["sessionId"], bodies[1]["sessionId"]);
  EXPECT_GE(bodies[1]["stopTime"].get<double>(), bodies[0]["startTime"].get<double>());
  EXPECT_GE(bodies[1]["totalDuration"].get<double>(), 0.0);
  EXPECT_FALSE(bodies[1].contains("lastPauseTime"));
}

TEST_F(CollectedReportsTest, AReportThatFailsForNowIsSentThreeTimesThenHeldUntilTheForeground) {
  launchAndStart();
  waitForReports(1);
  const int busy = collector.addFault(
      {{"effect", "garbage"}, {"status", 500}, {"match", {{"network", "patient"}}}});

  tell("level 3");
  tell("banner patient 1");
  collector.waitFor(3, {{"network", "patient"}});
  awaitLine("ZLN Session: report added to temporary error holding");
  EXPECT_EQ(3u, waitForReportsHaving("network", "patient", 3).size());
  collector.removeFault(busy);
  tell("foreground");

  const std::vector<Json> reports = collector.waitFor(4, {{"network", "patient"}});
  EXPECT_THAT(outcomesOf(reports), ElementsAre("other", "other", "other", "accepted"));
  EXPECT_THAT(verdictsOf(reports), ElementsAre("valid", "duplicate", "duplicate", "duplicate"));
  EXPECT_THAT(identitiesOf(reports), SizeIs(1));
}

TEST_F(CollectedReportsTest, AReportWhoseReplyIsLostComesAgainAndIsADuplicate) {
  launchAndStart();
  waitForReports(1);
  collector.addFault({{"effect", "cut-after"}, {"match", {{"network", "twice"}}}, {"times", 1}});

  tell("banner twice 1");

  const std::vector<Json> reports = collector.waitFor(2, {{"network", "twice"}});
  EXPECT_THAT(outcomesOf(reports), ElementsAre("cut", "accepted"));
  EXPECT_THAT(verdictsOf(reports), ElementsAre("valid", "duplicate"));
  EXPECT_THAT(identitiesOf(reports), SizeIs(1));
}

TEST_F(CollectedReportsTest, CallsReturnWhileTheServerKeepsEveryoneWaiting) {
  const int fault = keepEveryoneWaiting();

  launchAndStart();
  for (int call = 0; call < 20; ++call) tell("banner waiting 1");
  tell("resign");
  tell("background");
  tell("foreground");
  tell("active");
  const std::string description = tell("describe");

  EXPECT_THAT(description, HasSubstr("UUID: "));
  EXPECT_THAT(collector.reports(), SizeIs(Le(kAtOnce)));
  collector.removeFault(fault);
  EXPECT_EQ(20u, waitForReportsHaving("network", "waiting", 20).size());
}

TEST_F(CollectedReportsTest, SettingsFromTheServerTakeEffect) {
  collector.setSettings({{"ConfigSerializationKeyUserSessionBackgroundTimeoutSeconds", 1}});
  launchAndStart();
  const std::string key = "UserSessionBackgroundTimeoutSeconds</key>\n\t<real>1</real>";
  ASSERT_TRUE(awaitContents(settingsFile(), [&](const std::string& settings) {
    return settings.find(key) != std::string::npos;
  }));

  tell("resign");
  tell("background");

  // The session stops in the background, after the one second that the server has set.
  EXPECT_EQ(1u, waitForReportsHaving("type", "ReportTypeSessionStop", 1).size());
}

}  // namespace
}  // namespace zln
