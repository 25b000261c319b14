#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <memory>
#include <regex>
#include <thread>

#include "tests/host/played_game.h"

namespace zln {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::UnorderedElementsAre;

class EndToEndTest : public PlayedGameTest {
 protected:
  static unsigned modeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(0, stat(path.c_str(), &status)) << path;
    return status.st_mode & 0777u;
  }

  static std::string contentsOf(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  // Lets the game log until the line has come.
  void awaitLine(const std::string& line) {
    while (game->errors().find(line) == std::string::npos) std::this_thread::yield();
  }

  static std::string attributeOf(const std::string& path) {
    char value[64] = {};
    getxattr(path.c_str(), "user.xdg.robots.backup", value, sizeof value - 1);
    return value;
  }
};

TEST_F(EndToEndTest, AFirstLaunchAsksForSettingsAndReportsTheFirstSession) {
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

TEST_F(EndToEndTest, AReportCarriesTheHeadersThatTheLibrarySetsAndNoOthersOfItsKind) {
  launchAndStart();
  server.waitForRequests(2);  // A report and the request for settings.

  for (const ReceivedRequest& request : server.requests()) {
    EXPECT_EQ("POST", request.method);
    EXPECT_EQ(std::to_string(request.body.size()), request.header("Content-Length"));
    EXPECT_FALSE(request.hasHeader("Expect"));
    if (isReport(request)) {
      EXPECT_EQ("application/json", request.header("Content-Type"));
      EXPECT_EQ("session-first.invalid", hostOf(request));
    } else {
      EXPECT_EQ("/config", request.target);
      EXPECT_FALSE(request.hasHeader("Content-Type"));
      EXPECT_EQ("config.invalid", hostOf(request));
      EXPECT_EQ(Json::parse(request.body), (Json{{"ConfigSerializationKeyAppVersion", "1.2.3"},
                                                 {"ConfigSerializationKeySDKVersion", "7.0.0"}}));
    }
  }
}

TEST_F(EndToEndTest, EveryKindOfAdAttemptArrivesAtItsEndpoint) {
  launchAndStart();
  waitForReports(1);

  tell("ad n1 video 1");
  tell("banner n2 0");
  tell("interstitial n3 1");
  tell("rewarded n4 1");
  tell("zone n5 video z5 1");
  tell("banner-zone n6 z6 0");
  tell("interstitial-zone n7 z7 1");
  tell("rewarded-zone n8 z8 1");

  std::vector<std::string> seen;
  waitForReports(9);
  for (const ReceivedRequest& request : server.requests()) {
    if (!isReport(request)) continue;
    const Json body = Json::parse(request.body);
    if (!body.contains("network")) continue;
    seen.push_back(hostOf(request) + " " + body["type"].get<std::string>() + " " +
                   body["network"].get<std::string>() + " " + body["adType"].get<std::string>() +
                   " " + body.value("zoneId", "-") + " " + body["fill"].dump());
  }
  EXPECT_THAT(seen, UnorderedElementsAre(
                        "ad-attempt.invalid ReportTypeAdAttempt n1 video - true",
                        "ad-attempt.invalid ReportTypeAdAttempt n2 banner - false",
                        "ad-attempt.invalid ReportTypeAdAttempt n3 interstitial - true",
                        "ad-attempt.invalid ReportTypeAdAttempt n4 rewarded - true",
                        "ad-zone-attempt.invalid ReportTypeAdZoneAttempt n5 video z5 true",
                        "ad-zone-attempt.invalid ReportTypeAdZoneAttempt n6 banner z6 false",
                        "ad-zone-attempt.invalid ReportTypeAdZoneAttempt n7 interstitial z7 true",
                        "ad-zone-attempt.invalid ReportTypeAdZoneAttempt n8 rewarded z8 true"));
}

TEST_F(EndToEndTest, UnusualTextArrivesUnchangedAndBrokenTextMended) {
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

TEST_F(EndToEndTest, AnAbsentNetworkIsRefusedToACallerThatCatches) {
  launchAndStart();
  waitForReports(1);

  EXPECT_EQ("refused\n", tell("refused -"));
  EXPECT_EQ("accepted\n", tell("refused network"));

  EXPECT_EQ(1u, having(waitForReports(2), "network", "network").size());
  EXPECT_EQ(2u, reports().size());
}

TEST_F(EndToEndTest, APhoneCallPausesTheSessionAndTerminationReportsItsStop) {
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

TEST_F(EndToEndTest, ALaterLaunchIsTheSameUserWithASessionStart) {
  launchAndStart();
  const std::string user = waitForReports(1).at(0)["userId"];
  tell("terminate");
  waitForReports(2);
  game->send("exit");
  game->waitForEnd(std::chrono::seconds(10));

  launchAndStart();

  EXPECT_EQ(user, waitForReportsHaving("type", "ReportTypeSessionStart", 1).at(0)["userId"]);
}

TEST_F(EndToEndTest, AReportThatIsRejectedForGoodIsNotSentAgain) {
  launchAndStart();
  waitForReports(1);
  server.answer([](const ReceivedRequest& request) {
    return replyWith(200, request.body.find("\"bad\"") != std::string::npos
                              ? R"({"success":false,"errorIsPermanent":true,"error":"no"})"
                              : R"({"success":true})");
  });

  tell("banner bad 1");
  waitForReports(2);
  tell("banner good 1");

  waitForReports(3);
  tell("foreground");
  tell("banner last 1");
  EXPECT_EQ(1u, having(waitForReports(4), "network", "bad").size());
}

TEST_F(EndToEndTest, AReportThatFailsForNowIsSentThreeTimesThenHeldUntilTheForeground) {
  launchAndStart();
  waitForReports(1);
  std::atomic<bool> accepting{false};
  server.answer([&](const ReceivedRequest& request) {
    const bool busy = !accepting && request.body.find("patient") != std::string::npos;
    return replyWith(500, busy ? "busy" : R"({"success":true})");
  });

  tell("level 3");
  tell("banner patient 1");
  const std::vector<Json> tried = waitForReportsHaving("network", "patient", 3);
  awaitLine("ZLN Session: report added to temporary error holding");
  accepting = true;
  tell("foreground");

  const std::vector<Json> all = waitForReportsHaving("network", "patient", 4);
  ASSERT_EQ(3u, tried.size());
  ASSERT_EQ(4u, all.size());
  EXPECT_EQ(tried[0]["adEventId"], all[3]["adEventId"]);
}

TEST_F(EndToEndTest, CallsReturnWhileTheServerKeepsEveryoneWaiting) {
  std::promise<void> release;
  std::shared_future<void> released = release.get_future().share();
  server.answer([released](const ReceivedRequest&) {
    released.wait();
    return replyWith(200, R"({"success":true})");
  });

  launchAndStart();
  for (int call = 0; call < 20; ++call) tell("banner waiting 1");
  tell("resign");
  tell("background");
  tell("foreground");
  tell("active");
  const std::string description = tell("describe");

  EXPECT_THAT(description, HasSubstr("UUID: "));
  EXPECT_TRUE(having(reports(), "network", "waiting").size() <= 3u);
  release.set_value();
  EXPECT_EQ(20u, having(waitForReports(21), "network", "waiting").size());
}

TEST_F(EndToEndTest, EachReportHasAConnectionOfItsOwn) {
  launchAndStart();
  waitForReports(1);
  for (int call = 0; call < 5; ++call) tell("banner n 1");
  server.waitForRequests(7);  // Six reports and the request for settings.

  EXPECT_EQ(static_cast<int>(server.requests().size()), server.connections());
}

TEST_F(EndToEndTest, SettingsFromTheServerTakeEffect) {
  server.answer([](const ReceivedRequest& request) {
    return replyWith(200, request.target == "/config"
                              ? R"({"ConfigSerializationKeyUserSessionBackgroundTimeoutSeconds":1})"
                              : R"({"success":true})");
  });
  launchAndStart();
  const std::string key = "UserSessionBackgroundTimeoutSeconds</key>\n\t<real>1</real>";
  while (contentsOf(folder() + "/data/config.dat").find(key) == std::string::npos) {
    std::this_thread::yield();
  }

  tell("resign");
  tell("background");

  // The session stops in the background, after the one second that the server has set.
  EXPECT_EQ(1u, waitForReportsHaving("type", "ReportTypeSessionStop", 1).size());
}

TEST_F(EndToEndTest, FilesArePrivateToTheUserAndKeptOutOfBackups) {
  launchAndStart();
  waitForReports(1);

  for (const char* part : {"", "/reporting", "/data"}) {
    EXPECT_EQ(0700u, modeOf(folder() + part));
    EXPECT_EQ("false", attributeOf(folder() + part));
  }
  EXPECT_EQ(0600u, modeOf(folder() + "/reporting/reports.json"));
  EXPECT_EQ(0600u, modeOf(folder() + "/data/config.dat"));
  EXPECT_EQ(0600u, modeOf(home.path() + "/config/com.example.game.plist"));
}

TEST_F(EndToEndTest, WithoutFoldersTheFailuresAreLoggedAndReportsAreSentAllTheSame) {
  std::ofstream(home.path() + "/file") << "no folder";
  environment["XDG_DATA_HOME"] = home.path() + "/file";
  environment["XDG_CONFIG_HOME"] = home.path() + "/file";
  launch();
  tell("level 1");
  tell("app com.example.game 1.2.3");
  tell("initialize engine-5");
  tell("start");

  tell("banner brave 1");

  EXPECT_EQ(1u, having(waitForReports(2), "network", "brave").size());
  const std::string errors = game->errors();
  EXPECT_THAT(errors, HasSubstr("ZLN Session: unable to create root path!\n"));
  EXPECT_THAT(errors, HasSubstr("ZLN Session: unable to create previews path!\n"));
  EXPECT_THAT(errors, HasSubstr("ZLN Session: unable to create data path!\n"));
  EXPECT_THAT(errors,
              HasSubstr("ZLN Session: Error: Unable to exclude directory from backup: Error "
                        "Domain=NSCocoaErrorDomain Code="));
  EXPECT_THAT(errors, HasSubstr("ZLN Session: An error occured writing config\n"));
  EXPECT_THAT(errors, HasSubstr("pending reports!\n"));
}

TEST_F(EndToEndTest, AnUntrustedServerGetsNothing) {
  HttpsServer stranger;
  environment["SSL_CERT_FILE"] = stranger.caFile();
  launch();
  tell("level 2");
  tell("initialize engine-5");
  tell("start");
  awaitLine("Code=-1202");

  EXPECT_TRUE(server.requests().empty());
}

TEST_F(EndToEndTest, LogLinesGoToTheErrorOutputInThePlatformsFormatOrToTheSink) {
  launch();
  tell("log to-stderr");
  tell("sink");
  const std::string answer = tell("log to-sink");

  EXPECT_TRUE(std::regex_match(
      game->errors(),
      std::regex(
          R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6}[+-]\d{4} game\[\d+:\d+\] ZLN Session: to-stderr)"
          "\n")))
      << game->errors();
  EXPECT_EQ("sink: ZLN Session: to-sink\n", answer);
}

TEST_F(EndToEndTest, WhatAKilledGameOwedIsSentByTheNext) {
  std::promise<void> release;
  std::shared_future<void> released = release.get_future().share();
  const auto deaf = std::make_shared<std::atomic<bool>>(true);
  server.answer([deaf, released](const ReceivedRequest&) {
    if (*deaf) released.wait();
    return replyWith(200, R"({"success":true})");
  });
  launchAndStart();
  for (int call = 0; call < 10; ++call) tell("banner owed 1");
  game->kill();
  const std::size_t before = server.requests().size();
  *deaf = false;
  release.set_value();

  launchAndStart();

  // The first session, ten ads and the start of this launch; settings come as well.
  std::vector<Json> later;
  while (later.size() < 12) {
    server.waitForRequests(before + 12);
    later.clear();
    const auto requests = server.requests();
    for (std::size_t at = before; at < requests.size(); ++at) {
      if (isReport(requests[at])) later.push_back(Json::parse(requests[at].body));
    }
    std::this_thread::yield();
  }
  EXPECT_EQ(10u, having(later, "network", "owed").size());
  EXPECT_EQ(1u, having(later, "type", "ReportTypeSessionFirst").size());
  EXPECT_EQ(1u, having(later, "type", "ReportTypeSessionStart").size());
}

}  // namespace
}  // namespace zln
