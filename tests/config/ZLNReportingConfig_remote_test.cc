#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "support/endpoints.h"
#include "tests/config/config_test.h"

namespace zln {
namespace {

using testing::ElementsAre;
using testing::MatchesRegex;
using testing::Pair;
using testing::SizeIs;
using testing::StartsWith;

class ZLNReportingConfigRemoteTest : public ConfigTest {
 protected:
  // The shared object with its first request outstanding and the log empty.
  ZLNReportingConfig& beginFetching() {
    ZLNReportingConfig& config = begin();
    newLines();
    return config;
  }
};

// The request.

TEST_F(ZLNReportingConfigRemoteTest, AsksWithTheVersionsOfTheApplicationAndTheLibrary) {
  env.journal.begin();

  begin();

  expectCalls({kReadsFile, "log: Config is stale. Updating.", kWritesFile,
               "log: config params: {\n    ConfigSerializationKeyAppVersion = \"1.2.3\";\n"
               "    ConfigSerializationKeySDKVersion = \"7.0.0\";\n}",
               std::string("request ") + kConfigUrl});
  ASSERT_THAT(env.http.requests(), SizeIs(1));
  const HttpRequest& request = env.http.requests()[0];
  EXPECT_EQ("POST", request.method);
  EXPECT_EQ(kConfigUrl, request.url);
  EXPECT_THAT(request.url, MatchesRegex("https://[^/]+/config"));
  EXPECT_EQ(
      R"({"ConfigSerializationKeyAppVersion":"1.2.3","ConfigSerializationKeySDKVersion":"7.0.0"})",
      request.body);
  EXPECT_THAT(request.headers, ElementsAre(Pair("Content-Length", "87")));
}

TEST_F(ZLNReportingConfigRemoteTest, LeavesOutAVersionThatIsNotNamedAndCountsBytes) {
  struct Row {
    std::optional<std::string> application;
    std::optional<std::string> library;
    const char* body;
    const char* length;
  };
  for (const auto& [application, library, body, length] : std::vector<Row>{
           {std::nullopt, "7.0.0", R"({"ConfigSerializationKeySDKVersion":"7.0.0"})", "44"},
           {"1.2.3", std::nullopt, R"({"ConfigSerializationKeyAppVersion":"1.2.3"})", "44"},
           {std::nullopt, std::nullopt, "{}", "2"},
           {"\u00e9", std::nullopt, "{\"ConfigSerializationKeyAppVersion\":\"\u00e9\"}", "41"}}) {
    env.device.bundleShortVersion = application;
    env.device.libraryVersion = library;
    env.clock.advance(86401);
    restart();

    begin();

    EXPECT_EQ(body, env.http.requests().back().body);
    EXPECT_THAT(env.http.requests().back().headers, ElementsAre(Pair("Content-Length", length)));
  }
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

  EXPECT_THAT(newLines(),
              ElementsAre("Config is stale. Updating.", "An error occured writing config",
                          StartsWith("config params: ")));
  EXPECT_THAT(env.http.requests(), SizeIs(1));
}

// The reply.

TEST_F(ZLNReportingConfigRemoteTest, ASettingInTheReplyIsTakenAndStoredWhateverTheStatus) {
  ZLNReportingConfig& config = beginFetching();

  env.http.reply(0, 500, R"({"ConfigSerializationKeyConfigUpdateInterval":3600})");

  EXPECT_EQ(3600, config.configUpdateInterval());
  EXPECT_EQ(2u, env.files.writeCount(kSettingsFile));
  EXPECT_EQ(Value(Number::int64(3600)), stored(kUpdateInterval));
  expectLines({});
}

TEST_F(ZLNReportingConfigRemoteTest, AReplyWithoutSettingsIsStoredAndChangesNothingNotEvenTheTime) {
  const ZLNReportingConfig& config = beginFetching();
  const Dictionary before = config.configToDictionary();
  env.clock.advance(7);

  env.http.reply(0, R"({"ConfigSerializationKeyReportTemporaryFailureLimit":"5","other":1,)"
                    R"("ConfigSerializationKeySendStopSessionReports":null,)"
                    R"("ConfigSerializationKeySendStartSessionReports":[false],)"
                    R"("ConfigSerializationKeyConfigUpdateInterval":{"a":1},"lastUpdate":5})");

  EXPECT_EQ(before, config.configToDictionary());
  EXPECT_EQ(2u, env.files.writeCount(kSettingsFile));
  EXPECT_EQ(Date{1700000000}, config.configUpdateTime());
  EXPECT_EQ(Value(Number::float64(1700000000)), stored("lastUpdate"));
  expectLines({});
}

TEST_F(ZLNReportingConfigRemoteTest, AKindSwitchedOffStaysOffUntilALaterReplyTurnsItOn) {
  beginFetching();
  env.http.reply(0, R"({"ConfigSerializationKeySendFirstSessionReports":false})");

  EXPECT_FALSE(ZLNReportingConfig::sharedConfig()->sendFirstSessionReports());

  restart();
  ZLNReportingConfig& config = begin();

  EXPECT_FALSE(config.sendFirstSessionReports());

  env.clock.advance(86401);
  env.app.becomeActive();
  env.http.reply(1, R"({"ConfigSerializationKeySendFirstSessionReports":true})");

  EXPECT_TRUE(config.sendFirstSessionReports());
  EXPECT_EQ(Value(Number::boolean(true)), stored(kSendFirst));
}

TEST_F(ZLNReportingConfigRemoteTest, SettingsThatCannotBeStoredAreTakenAllTheSame) {
  ZLNReportingConfig& config = beginFetching();
  env.files.failWrites();

  env.http.reply(0, R"({"ConfigSerializationKeyConfigUpdateInterval":3600})");

  EXPECT_EQ(3600, config.configUpdateInterval());
  expectLines({"An error occured writing config"});
}

TEST_F(ZLNReportingConfigRemoteTest, ATransportErrorIsAWarningAndChangesNothing) {
  ZLNReportingConfig& config = beginFetching();
  const Dictionary before = config.configToDictionary();
  setLevel(1);

  env.http.fail(
      0, Error{"NSURLErrorDomain", -1009, "The Internet connection appears to be offline.", {}});

  expectLines(
      {"failed to update config settings with Error Domain=NSURLErrorDomain Code=-1009 "
       "\"The Internet connection appears to be offline.\" "
       "UserInfo={NSLocalizedDescription=The Internet connection appears to be offline.}"});
  EXPECT_EQ(before, config.configToDictionary());
  EXPECT_EQ(1u, env.files.writeCount(kSettingsFile));
}

TEST_F(ZLNReportingConfigRemoteTest, AReplyThatIsNoObjectIsAWarningAndChangesNothing) {
  struct Row {
    std::string body;
    const char* line;
  };
  constexpr char kNotJson[] =
      "unable to parse config json response with Error Domain=NSCocoaErrorDomain Code=3840 \"The "
      "data couldn’t be read because it isn’t in the correct format.\"";
  putSettings({{kUpdateInterval, Number::int32(-1)}});
  const ZLNReportingConfig& config = beginFetching();
  const Dictionary before = config.configToDictionary();
  setLevel(1);
  for (const auto& [body, line] :
       std::vector<Row>{{"", kNotJson},
                        {"<html>", kNotJson},
                        {"1", kNotJson},
                        {"\"a\"", kNotJson},
                        {R"({"ConfigSerializationKeyConfigUpdateInterval":3600)", kNotJson},
                        {R"({"ConfigSerializationKeyConfigUpdateInterval":3600} x)", kNotJson},
                        {R"({"ConfigSerializationKeyConfigUpdateInterval":1e999})", kNotJson},
                        {std::string(100000, '['), kNotJson},
                        {R"([{"ConfigSerializationKeyConfigUpdateInterval":3600}])",
                         "invalid config data response"}}) {
    SCOPED_TRACE(body.substr(0, 100));
    env.app.becomeActive();
    const std::size_t writes = env.files.writeCount(kSettingsFile);

    env.http.reply(env.http.requests().size() - 1, body);

    EXPECT_THAT(newLines(), ElementsAre(StartsWith(line)));
    EXPECT_EQ(before, config.configToDictionary());
    EXPECT_EQ(writes, env.files.writeCount(kSettingsFile));
  }
}

TEST_F(ZLNReportingConfigRemoteTest, AHugeReplyIsTaken) {
  ZLNReportingConfig& config = beginFetching();

  env.http.reply(0, R"({"pad":")" + std::string(8 << 20, 'x') +
                        R"(","ConfigSerializationKeyConfigUpdateInterval":3600})");

  EXPECT_EQ(3600, config.configUpdateInterval());
}

// When the next one is due.

TEST_F(ZLNReportingConfigRemoteTest, AFetchIsNotRepeatedBeforeTheIntervalIsOverEvenIfItFails) {
  beginFetching();
  setLevel(1);
  env.app.becomeActive();

  EXPECT_THAT(env.http.requests(), SizeIs(1));

  env.http.fail(0, -1009);
  env.clock.advance(86400);
  env.app.becomeActive();

  EXPECT_THAT(env.http.requests(), SizeIs(1));

  env.clock.advance(1);
  env.app.becomeActive();
  env.http.fail(1, -1009);

  EXPECT_THAT(env.http.requests(), SizeIs(2));
  constexpr char kFailed[] =
      "failed to update config settings with Error Domain=NSURLErrorDomain Code=-1009 \"(null)\"";
  expectLines({kFailed, kFailed});
}

TEST_F(ZLNReportingConfigRemoteTest, WithANegativeIntervalEveryActivationFetchesAgain) {
  putSettings({{kUpdateInterval, Number::int32(-1)}});
  ZLNReportingConfig& config = begin();

  env.app.becomeActive();
  env.app.becomeActive();

  EXPECT_EQ(3u, env.http.outstanding());

  // Replies that cross are taken in the order of arrival.
  env.http.reply(1, R"({"ConfigSerializationKeyReportTemporaryFailureLimit":8})");
  env.http.reply(0, R"({"ConfigSerializationKeyReportTemporaryFailureLimit":9})");

  EXPECT_EQ(9, config.reportTemporaryFailureLimit());
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
