#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "support/endpoints.h"
#include "tests/config/config_test.h"

namespace zln {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Pair;
using testing::StartsWith;

constexpr char kSendFirst[] = "ConfigSerializationKeySendFirstSessionReports";
constexpr char kUpdateInterval[] = "ConfigSerializationKeyConfigUpdateInterval";

class ZLNReportingConfigRemoteTest : public ConfigTest {
 protected:
  // The shared object with its first request outstanding and the log empty.
  ZLNReportingConfig& beginFetching() {
    ZLNReportingConfig& config = begin();
    log().clear();
    return config;
  }
};

// The request.

TEST_F(ZLNReportingConfigRemoteTest, AsksWithTheVersionsOfTheApplicationAndTheLibrary) {
  begin();

  ASSERT_EQ(1u, env.http.requests().size());
  const HttpRequest& request = env.http.requests()[0];
  EXPECT_EQ("POST", request.method);
  EXPECT_EQ(kConfigUrl, request.url);
  EXPECT_THAT(request.url, MatchesRegex("https://[^/]+/config"));
  EXPECT_EQ(
      R"({"ConfigSerializationKeyAppVersion":"1.2.3","ConfigSerializationKeySDKVersion":"7.0.0"})",
      request.body);
  EXPECT_THAT(request.headers, ElementsAre(Pair("Content-Length", "87")));
}

TEST_F(ZLNReportingConfigRemoteTest, LeavesOutAVersionThatTheApplicationDoesNotName) {
  env.device.bundleShortVersion = std::nullopt;

  begin();

  EXPECT_EQ(R"({"ConfigSerializationKeySDKVersion":"7.0.0"})", env.http.requests()[0].body);
}

TEST_F(ZLNReportingConfigRemoteTest, LeavesOutAVersionThatTheLibraryDoesNotName) {
  env.device.libraryVersion = std::nullopt;

  begin();

  EXPECT_EQ(R"({"ConfigSerializationKeyAppVersion":"1.2.3"})", env.http.requests()[0].body);
}

TEST_F(ZLNReportingConfigRemoteTest, WithoutAnyVersionItAsksAllTheSame) {
  env.device.bundleShortVersion = std::nullopt;
  env.device.libraryVersion = std::nullopt;

  begin();

  ASSERT_EQ(1u, env.http.requests().size());
  EXPECT_EQ("{}", env.http.requests()[0].body);
  EXPECT_THAT(env.http.requests()[0].headers, ElementsAre(Pair("Content-Length", "2")));
}

TEST_F(ZLNReportingConfigRemoteTest, TheLengthCountsBytes) {
  env.device.bundleShortVersion = "\u00e9";

  begin();

  EXPECT_THAT(env.http.requests()[0].headers, ElementsAre(Pair("Content-Length", "84")));
  EXPECT_EQ(84u, env.http.requests()[0].body.size());
}

TEST_F(ZLNReportingConfigRemoteTest, SaysWhatItAsksWith) {
  begin();

  EXPECT_THAT(newLines(),
              ElementsAre("ZLN Session: Config is stale. Updating.",
                          "ZLN Session: config params: {\n    ConfigSerializationKeyAppVersion = "
                          "\"1.2.3\";\n    ConfigSerializationKeySDKVersion = \"7.0.0\";\n}"));
}

TEST_F(ZLNReportingConfigRemoteTest, AtInfoItSaysNothing) {
  setLevel(2);

  ZLNReportingConfig::sharedConfig();

  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(ZLNReportingConfigRemoteTest, TheTimeIsSetAndStoredBeforeTheReply) {
  env.clock.set(1700000050.5);

  const ZLNReportingConfig& config = begin();

  EXPECT_EQ(Date{1700000050.5}, config.configUpdateTime());
  EXPECT_EQ(Value(Number::float64(1700000050.5)), stored("lastUpdate"));
  EXPECT_EQ(1u, env.files.writeCount(kSettingsFile));
}

TEST_F(ZLNReportingConfigRemoteTest, AFileThatCannotBeWrittenDoesNotKeepItFromAsking) {
  env.files.failWrites();

  begin();

  EXPECT_THAT(newLines(), ElementsAre("ZLN Session: Config is stale. Updating.",
                                      "ZLN Session: An error occured writing config",
                                      StartsWith("ZLN Session: config params: ")));
  EXPECT_EQ(1u, env.http.requests().size());
}

// The reply.

TEST_F(ZLNReportingConfigRemoteTest, ASettingInTheReplyIsTakenAndStoredWhateverTheStatus) {
  ZLNReportingConfig& config = beginFetching();
  env.clock.advance(7);

  env.http.reply(0, 500, R"({"ConfigSerializationKeyConfigUpdateInterval":3600})");

  EXPECT_EQ(3600, config.configUpdateInterval());
  EXPECT_EQ(2u, env.files.writeCount(kSettingsFile));
  EXPECT_EQ(Value(Number::int64(3600)), stored(kUpdateInterval));
  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(ZLNReportingConfigRemoteTest, AReplyDoesNotMoveTheTime) {
  ZLNReportingConfig& config = beginFetching();
  env.clock.advance(7);

  env.http.reply(0, R"({"lastUpdate":5})");

  EXPECT_EQ(Date{1700000000}, config.configUpdateTime());
  EXPECT_EQ(Value(Number::float64(1700000000)), stored("lastUpdate"));
}

TEST_F(ZLNReportingConfigRemoteTest, AnEmptyObjectIsStoredAndChangesNothing) {
  ZLNReportingConfig& config = beginFetching();
  const Dictionary before = config.configToDictionary();

  env.http.reply(0, "{}");

  EXPECT_EQ(before, config.configToDictionary());
  EXPECT_EQ(2u, env.files.writeCount(kSettingsFile));
}

TEST_F(ZLNReportingConfigRemoteTest, OtherMembersAndOtherKindsAreIgnored) {
  ZLNReportingConfig& config = beginFetching();
  const Dictionary before = config.configToDictionary();

  env.http.reply(0, R"({"ConfigSerializationKeyReportTemporaryFailureLimit":"5","other":1,)"
                    R"("ConfigSerializationKeySendStopSessionReports":null,)"
                    R"("ConfigSerializationKeySendStartSessionReports":[false],)"
                    R"("ConfigSerializationKeyConfigUpdateInterval":{"a":1}})");

  EXPECT_EQ(before, config.configToDictionary());
  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(ZLNReportingConfigRemoteTest, AKindSwitchedOffStaysOffInTheNextProcess) {
  beginFetching();
  env.http.reply(0, R"({"ConfigSerializationKeySendFirstSessionReports":false})");

  EXPECT_FALSE(ZLNReportingConfig::sharedConfig()->sendFirstSessionReports());

  restart();

  EXPECT_FALSE(ZLNReportingConfig::sharedConfig()->sendFirstSessionReports());
}

TEST_F(ZLNReportingConfigRemoteTest, AKindSwitchedOffIsTurnedOnByALaterReply) {
  putSettings({{kSendFirst, Number::boolean(false)}});
  ZLNReportingConfig& config = begin();
  env.clock.advance(86401);
  env.app.becomeActive();

  env.http.reply(0, R"({"ConfigSerializationKeySendFirstSessionReports":true})");

  EXPECT_TRUE(config.sendFirstSessionReports());
  EXPECT_EQ(Value(Number::boolean(true)), stored(kSendFirst));
}

TEST_F(ZLNReportingConfigRemoteTest, SettingsThatCannotBeStoredAreTakenAllTheSame) {
  ZLNReportingConfig& config = beginFetching();
  env.files.failWrites();

  env.http.reply(0, R"({"ConfigSerializationKeyConfigUpdateInterval":3600})");

  EXPECT_EQ(3600, config.configUpdateInterval());
  EXPECT_THAT(newLines(), ElementsAre("ZLN Session: An error occured writing config"));
}

TEST_F(ZLNReportingConfigRemoteTest, ATransportErrorIsAWarningAndChangesNothing) {
  ZLNReportingConfig& config = beginFetching();
  const Dictionary before = config.configToDictionary();
  setLevel(1);

  env.http.fail(
      0, Error{"NSURLErrorDomain", -1009, "The Internet connection appears to be offline.", {}});

  EXPECT_THAT(newLines(),
              ElementsAre("ZLN Session: failed to update config settings with Error "
                          "Domain=NSURLErrorDomain Code=-1009 \"The Internet connection appears to "
                          "be offline.\" UserInfo={NSLocalizedDescription=The Internet connection "
                          "appears to be offline.}"));
  EXPECT_EQ(before, config.configToDictionary());
  EXPECT_EQ(1u, env.files.writeCount(kSettingsFile));
}

TEST_F(ZLNReportingConfigRemoteTest, AtErrorFailedRepliesAreNotSaid) {
  putSettings({{kUpdateInterval, Number::int32(-1)}});
  begin();
  env.app.becomeActive();
  env.app.becomeActive();
  setLevel(0);
  log().clear();

  env.http.fail(0, -1009);
  env.http.reply(1, "");
  env.http.reply(2, "[]");

  EXPECT_THAT(newLines(), IsEmpty());
}

struct NotJsonRow {
  const char* name;
  std::string body;
};

class ZLNReportingConfigNotJsonTest : public ZLNReportingConfigRemoteTest,
                                      public testing::WithParamInterface<NotJsonRow> {};

INSTANTIATE_TEST_SUITE_P(
    Replies, ZLNReportingConfigNotJsonTest,
    testing::Values(
        NotJsonRow{"Empty", ""}, NotJsonRow{"Page", "<html>"}, NotJsonRow{"BareNumber", "1"},
        NotJsonRow{"BareText", "\"a\""},
        NotJsonRow{"CutShort", R"({"ConfigSerializationKeyConfigUpdateInterval":3600)"},
        NotJsonRow{"MoreBehind", R"({"ConfigSerializationKeyConfigUpdateInterval":3600} x)"},
        NotJsonRow{"TooLargeReal", R"({"ConfigSerializationKeyConfigUpdateInterval":1e999})"},
        NotJsonRow{"DeeplyNested", std::string(100000, '[')}),
    [](const auto& parameter) { return parameter.param.name; });

TEST_P(ZLNReportingConfigNotJsonTest, IsAWarningAndChangesNothing) {
  ZLNReportingConfig& config = beginFetching();
  const Dictionary before = config.configToDictionary();
  setLevel(1);

  env.http.reply(0, GetParam().body);

  EXPECT_THAT(newLines(),
              ElementsAre(StartsWith("ZLN Session: unable to parse config json response with Error "
                                     "Domain=NSCocoaErrorDomain Code=3840 \"The data couldn’t be "
                                     "read because it isn’t in the correct format.\"")));
  EXPECT_EQ(before, config.configToDictionary());
  EXPECT_EQ(1u, env.files.writeCount(kSettingsFile));
}

TEST_F(ZLNReportingConfigRemoteTest, AListIsAWarningAndChangesNothing) {
  ZLNReportingConfig& config = beginFetching();
  const Dictionary before = config.configToDictionary();
  setLevel(1);

  env.http.reply(0, R"([{"ConfigSerializationKeyConfigUpdateInterval":3600}])");

  EXPECT_THAT(newLines(), ElementsAre("ZLN Session: invalid config data response"));
  EXPECT_EQ(before, config.configToDictionary());
  EXPECT_EQ(1u, env.files.writeCount(kSettingsFile));
}

TEST_F(ZLNReportingConfigRemoteTest, AHugeReplyIsTaken) {
  ZLNReportingConfig& config = beginFetching();

  env.http.reply(0, R"({"pad":")" + std::string(8 << 20, 'x') +
                        R"(","ConfigSerializationKeyConfigUpdateInterval":3600})");

  EXPECT_EQ(3600, config.configUpdateInterval());
}

// When the next one is due.

TEST_F(ZLNReportingConfigRemoteTest, AFailedFetchIsNotRepeatedBeforeTheIntervalIsOver) {
  beginFetching();
  setLevel(1);
  env.http.fail(0, -1009);
  env.app.becomeActive();
  env.clock.advance(86400);
  env.app.becomeActive();

  EXPECT_EQ(1u, env.http.requests().size());

  env.clock.advance(1);
  env.app.becomeActive();
  env.http.fail(1, -1009);

  EXPECT_EQ(2u, env.http.requests().size());
  EXPECT_EQ(2u, log().count("ZLN Session: failed to update config settings with Error "
                            "Domain=NSURLErrorDomain Code=-1009 \"(null)\""));
}

TEST_F(ZLNReportingConfigRemoteTest, AFetchThatIsOutstandingIsNotDoubled) {
  beginFetching();

  env.app.becomeActive();
  env.clock.advance(1000);
  env.app.becomeActive();

  EXPECT_EQ(1u, env.http.requests().size());
}

TEST_F(ZLNReportingConfigRemoteTest, WithANegativeIntervalEveryActivationFetchesAgain) {
  putSettings({{kUpdateInterval, Number::int32(-1)}});
  begin();

  env.app.becomeActive();
  env.app.becomeActive();

  EXPECT_EQ(3u, env.http.outstanding());
}

TEST_F(ZLNReportingConfigRemoteTest, WithAnIntervalOfZeroEveryLaterActivationFetchesAgain) {
  putSettings({{kUpdateInterval, Number::int32(0)}});
  begin();

  env.clock.advance(1);
  env.app.becomeActive();
  env.clock.advance(1);
  env.app.becomeActive();

  EXPECT_EQ(2u, env.http.outstanding());
}

TEST_F(ZLNReportingConfigRemoteTest, RepliesThatCrossAreTakenInTheOrderOfArrival) {
  putSettings({{kUpdateInterval, Number::int32(-1)}});
  ZLNReportingConfig& config = begin();
  env.app.becomeActive();

  env.http.reply(1, R"({"ConfigSerializationKeyReportTemporaryFailureLimit":8})");
  env.http.reply(0, R"({"ConfigSerializationKeyReportTemporaryFailureLimit":9})");

  EXPECT_EQ(9, config.reportTemporaryFailureLimit());
}

TEST_F(ZLNReportingConfigRemoteTest, AFetchKeepsTheSettingsAlive) {
  auto config = ZLNReportingConfig::init();
  const std::weak_ptr<ZLNReportingConfig> fetching = config;

  config.reset();

  EXPECT_FALSE(fetching.expired());

  env.http.reply(0, "{}");

  EXPECT_TRUE(fetching.expired());
}

}  // namespace
}  // namespace zln
