#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/config/config_test.h"

namespace zln {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

// What a settings file looked like when another tool turned it into the binary form: the interval
// 3600, the inactivity limit 0.5, no stop reports, fetched at 1700000000.
constexpr unsigned char kBinaryFile[] = {
    0x62, 0x70, 0x6c, 0x69, 0x73, 0x74, 0x30, 0x30, 0xd4, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07,
    0x08, 0x5f, 0x10, 0x2a, 0x43, 0x6f, 0x6e, 0x66, 0x69, 0x67, 0x53, 0x65, 0x72, 0x69, 0x61, 0x6c,
    0x69, 0x7a, 0x61, 0x74, 0x69, 0x6f, 0x6e, 0x4b, 0x65, 0x79, 0x43, 0x6f, 0x6e, 0x66, 0x69, 0x67,
    0x55, 0x70, 0x64, 0x61, 0x74, 0x65, 0x49, 0x6e, 0x74, 0x65, 0x72, 0x76, 0x61, 0x6c, 0x5f, 0x10,
    0x2c, 0x43, 0x6f, 0x6e, 0x66, 0x69, 0x67, 0x53, 0x65, 0x72, 0x69, 0x61, 0x6c, 0x69, 0x7a, 0x61,
    0x74, 0x69, 0x6f, 0x6e, 0x4b, 0x65, 0x79, 0x53, 0x65, 0x6e, 0x64, 0x53, 0x74, 0x6f, 0x70, 0x53,
    0x65, 0x73, 0x73, 0x69, 0x6f, 0x6e, 0x52, 0x65, 0x70, 0x6f, 0x72, 0x74, 0x73, 0x5f, 0x10, 0x30,
    0x43, 0x6f, 0x6e, 0x66, 0x69, 0x67, 0x53, 0x65, 0x72, 0x69, 0x61, 0x6c, 0x69, 0x7a, 0x61, 0x74,
    0x69, 0x6f, 0x6e, 0x4b, 0x65, 0x79, 0x53, 0x65, 0x73, 0x73, 0x69, 0x6f, 0x6e, 0x49, 0x6e, 0x61,
    0x63, 0x74, 0x69, 0x76, 0x69, 0x74, 0x79, 0x54, 0x69, 0x6d, 0x65, 0x4c, 0x69, 0x6d, 0x69, 0x74,
    0x5a, 0x6c, 0x61, 0x73, 0x74, 0x55, 0x70, 0x64, 0x61, 0x74, 0x65, 0x11, 0x0e, 0x10, 0x08, 0x23,
    0x3f, 0xe0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x23, 0x41, 0xd9, 0x54, 0xfc, 0x40, 0x00, 0x00,
    0x00, 0x08, 0x11, 0x3e, 0x6d, 0xa0, 0xab, 0xae, 0xaf, 0xb8, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
    0x01, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x09, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
    0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xc1};

using ZLNReportingConfigFileTest = ConfigTest;

// Writing.

TEST_F(ZLNReportingConfigFileTest, IsAPropertyListOfElevenEntries) {
  ZLNReportingConfig& config = beginFresh();
  config.setConfigUpdateTime(Date{1700000100.25});
  config.setSessionInactivityTimeLimit(0.1f);
  config.setSendStopSessionReports(false);

  config.saveConfig();

  EXPECT_EQ(R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
	<key>ConfigSerializationKeyConfigUpdateInterval</key>
	<integer>86400</integer>
	<key>ConfigSerializationKeyReportTemporaryFailureLimit</key>
	<integer>3</integer>
	<key>ConfigSerializationKeySendFirstSessionReports</key>
	<true/>
	<key>ConfigSerializationKeySendStartSessionReports</key>
	<true/>
	<key>ConfigSerializationKeySendStopSessionReports</key>
	<false/>
	<key>ConfigSerializationKeySessionInactivityTimeLimit</key>
	<real>0.10000000149011612</real>
	<key>ConfigSerializationKeyTransmitReportsImmediately</key>
	<true/>
	<key>ConfigSerializationKeyTransmitReportsOnApplicationBackgrounding</key>
	<true/>
	<key>ConfigSerializationKeyTransmitReportsOnApplicationForegrounding</key>
	<true/>
	<key>ConfigSerializationKeyUserSessionBackgroundTimeoutSeconds</key>
	<real>60</real>
	<key>lastUpdate</key>
	<real>1700000100.25</real>
</dict>
</plist>
)",
            env.files.contents(kSettingsFile));
  expectLines({});
}

TEST_F(ZLNReportingConfigFileTest, WithoutAFetchTheTimeIsZero) {
  ZLNReportingConfig& config = beginFresh();
  config.setConfigUpdateTime(std::nullopt);

  config.saveConfig();

  EXPECT_EQ(Value(Number::float64(0)), stored("lastUpdate"));
}

TEST_F(ZLNReportingConfigFileTest, AFailedWriteIsToldAndTheOldFileStays) {
  ZLNReportingConfig& config = beginFresh();
  setLevel(0);
  config.setConfigUpdateInterval(5);
  env.files.failWrites();

  config.saveConfig();

  expectLines({"An error occured writing config"});
  EXPECT_EQ((Dictionary{{"lastUpdate", Number::float64(1700000000)}}), stored());
}

// Reading.

TEST_F(ZLNReportingConfigFileTest, WithoutAFileNothingIsLoadedOrDeleted) {
  ZLNReportingConfig& config = beginFresh();
  env.files.remove(kSettingsFile, nullptr);
  config.setConfigUpdateTime(std::nullopt);

  EXPECT_FALSE(config.loadStoredConfig());
  config.deleteConfig();

  EXPECT_EQ(std::nullopt, config.configUpdateTime());
  expectLines({});
}

TEST_F(ZLNReportingConfigFileTest, AFileOfADictionaryIsLoaded) {
  ZLNReportingConfig& config = beginFresh();
  putFile({{kSendStop, Number::boolean(false)}, {"lastUpdate", Number::float64(1700000128)}});

  EXPECT_TRUE(config.loadStoredConfig());
  EXPECT_FALSE(config.sendStopSessionReports());
  EXPECT_EQ(Date{1700000128}, config.configUpdateTime());
  expectLines({});
}

TEST_F(ZLNReportingConfigFileTest, WhatIsSavedIsLoadedAgain) {
  ZLNReportingConfig& config = beginFresh();
  config.setReportTemporaryFailureLimit(-5);
  config.setUserSessionBackgroundTimeoutSeconds(0.1f);
  config.setTransmitReportsImmediately(false);
  config.saveConfig();

  restart();
  const ZLNReportingConfig& next = begin();

  EXPECT_EQ(-5, next.reportTemporaryFailureLimit());
  EXPECT_EQ(0.1f, next.userSessionBackgroundTimeoutSeconds());
  EXPECT_FALSE(next.transmitReportsImmediately());
  EXPECT_EQ(Date{1700000000}, next.configUpdateTime());
}

TEST_F(ZLNReportingConfigFileTest, TheBinaryFormIsReadToo) {
  env.files.put(kSettingsFile, std::string(std::begin(kBinaryFile), std::end(kBinaryFile)));

  const ZLNReportingConfig& config = begin();

  EXPECT_EQ(3600, config.configUpdateInterval());
  EXPECT_EQ(0.5f, config.sessionInactivityTimeLimit());
  EXPECT_FALSE(config.sendStopSessionReports());
  EXPECT_EQ(Date{1700000000}, config.configUpdateTime());
}

// It comes back as the nearest multiple of 128 seconds, ties to even.
TEST_F(ZLNReportingConfigFileTest, AStoredTimeIsReadAsA32BitFloat) {
  ZLNReportingConfig& config = beginFresh();
  for (const auto& [storedTime, restored] :
       std::vector<std::pair<Number, double>>{{Number::float64(1700000100), 1700000128},
                                              {Number::float64(1700000050), 1700000000},
                                              {Number::float64(1700000064), 1700000000},
                                              {Number::float64(1700000192), 1700000256},
                                              {Number::int64(1700000100), 1700000128},
                                              {Number::float64(0), 0},
                                              {Number::float64(100.5), 100.5},
                                              {Number::int64(-1), -1},
                                              {Number::boolean(true), 1}}) {
    putFile({{"lastUpdate", storedTime}});

    EXPECT_TRUE(config.loadStoredConfig());
    EXPECT_EQ(Date{restored}, config.configUpdateTime());
  }
}

TEST_F(ZLNReportingConfigFileTest, WithoutAStoredTimeTheTimeStaysAsItWas) {
  ZLNReportingConfig& config = beginFresh();
  putFile({{kSendStop, Number::boolean(false)}});

  EXPECT_TRUE(config.loadStoredConfig());
  EXPECT_EQ(Date{1700000000}, config.configUpdateTime());
  EXPECT_FALSE(config.sendStopSessionReports());
}

TEST_F(ZLNReportingConfigFileTest, ATimeThatIsNoNumberRemovesTheFileWhoseOtherSettingsAreTaken) {
  ZLNReportingConfig& config = beginFresh();
  setLevel(2);
  for (const auto& [value, text] :
       std::vector<std::pair<Value, std::string>>{{"1700000000", "1700000000"},
                                                  {Date{1700000000}, "2023-11-14 22:13:20 +0000"},
                                                  {Data{"ab"}, "{length = 2, bytes = 0x6162}"},
                                                  {Array{}, "(\n)"},
                                                  {Dictionary{}, "{\n}"}}) {
    config.setSendStopSessionReports(true);
    putFile({{kSendStop, Number::boolean(false)}, {"lastUpdate", value}});
    env.journal.when("remove", [&] { EXPECT_TRUE(config.sendStopSessionReports()); });
    env.journal.begin();

    EXPECT_TRUE(config.loadStoredConfig());

    expectCalls({kReadsFile, "log: Config timestamp was incorrect class " + text,
                 std::string("exists ") + kSettingsFile, std::string("remove ") + kSettingsFile});
    EXPECT_EQ(std::nullopt, env.files.contents(kSettingsFile));
    EXPECT_FALSE(config.sendStopSessionReports());
    EXPECT_EQ(Date{1700000000}, config.configUpdateTime());
  }
}

TEST_F(ZLNReportingConfigFileTest, AnOddTimeMakesTheNextCheckStale) {
  putFile({{kSendStop, Number::boolean(false)}, {"lastUpdate", "1700000000"}});

  const ZLNReportingConfig& config = begin();

  EXPECT_THAT(newLines(), ElementsAre("Config timestamp was incorrect class 1700000000",
                                      "Config is stale. Updating.", StartsWith("config params: ")));
  EXPECT_THAT(env.http.requests(), SizeIs(1));
  EXPECT_FALSE(config.sendStopSessionReports());
  EXPECT_THAT(env.files.removed(), ElementsAre(kSettingsFile));
}

TEST_F(ZLNReportingConfigFileTest, AnUnreadableFileChangesNothingIsAcceptedAndStaysUntilASave) {
  ZLNReportingConfig& config = beginFresh();
  for (const std::string& bytes :
       {std::string(), std::string("This is no property list."),
        std::string(R"({"ConfigSerializationKeyConfigUpdateInterval":5})"),
        std::string(R"(<plist version="1.0"><array><integer>5</integer></array></plist>)"),
        std::string(R"(<plist version="1.0"><dict>)"
                    R"(<key>ConfigSerializationKeyConfigUpdateInterval</key><integer>5</integer>)"
                    R"(<key>lastUpdate</key><real>x</real></dict></plist>)"),
        std::string(R"(<plist version="1.0"><dict>)"
                    R"(<key>ConfigSerializationKeyConfigUpdateInterval</key><integer>5)"),
        std::string(std::begin(kBinaryFile), std::end(kBinaryFile) - 1)}) {
    SCOPED_TRACE(bytes);
    config.setConfigUpdateTime(std::nullopt);
    env.files.put(kSettingsFile, bytes);

    EXPECT_TRUE(config.loadStoredConfig());

    EXPECT_EQ(86400, config.configUpdateInterval());
    EXPECT_EQ(std::nullopt, config.configUpdateTime());
    EXPECT_EQ(bytes, env.files.contents(kSettingsFile));
    expectLines({});

    config.saveConfig();

    EXPECT_EQ(Value(Number::int64(86400)), stored(kUpdateInterval));
  }
}

TEST_F(ZLNReportingConfigFileTest, AFileOfOneMegabyteIsTakenALargerOneIsNot) {
  for (const auto& [size, interval] :
       std::vector<std::pair<std::size_t, int>>{{1048576, 3600}, {1048577, 86400}}) {
    restart();
    putSettings({{kUpdateInterval, Number::int32(3600)}});
    std::string bytes = env.files.contents(kSettingsFile).value();
    bytes.resize(size, '\n');
    env.files.put(kSettingsFile, bytes);

    EXPECT_EQ(interval, begin().configUpdateInterval());
  }
}

TEST_F(ZLNReportingConfigFileTest, AFileThatCannotBeReadStaysAndIsReadAtTheNextCheck) {
  putSettings({{kUpdateInterval, Number::int32(3600)}});
  const auto before = env.files.contents(kSettingsFile);
  env.files.failRead(kSettingsFile);

  ZLNReportingConfig& config = begin();

  expectLines({"Config is stale. Updating.", "An error occured writing config",
               "config params: {\n    ConfigSerializationKeyAppVersion = \"1.2.3\";\n"
               "    ConfigSerializationKeySDKVersion = \"7.0.0\";\n}"});
  EXPECT_EQ(86400, config.configUpdateInterval());
  EXPECT_EQ(before, env.files.contents(kSettingsFile));

  env.files.failRead(kSettingsFile, false);
  env.app.becomeActive();

  expectLines({"Config is not stale. Update skipped."});
  EXPECT_EQ(3600, config.configUpdateInterval());
}

TEST_F(ZLNReportingConfigFileTest, AReplyIsAddedToAFileThatCanBeReadAgain) {
  putFile({{kUpdateInterval, Number::int32(3600)},
           {kFailureLimit, Number::int32(5)},
           {"lastUpdate", Number::float64(1600000000)}});
  env.files.failRead(kSettingsFile);
  begin();
  env.files.failRead(kSettingsFile, false);

  env.http.reply(0, R"({"ConfigSerializationKeyReportTemporaryFailureLimit":7})");

  EXPECT_EQ(Value(Number::int64(3600)), stored(kUpdateInterval));
  EXPECT_EQ(Value(Number::int64(7)), stored(kFailureLimit));
  EXPECT_EQ(Value(Number::float64(1700000000)), stored("lastUpdate"));
}

// Removing.

TEST_F(ZLNReportingConfigFileTest, DeletingRemovesTheFileAndKeepsTheSettings) {
  ZLNReportingConfig& config = beginFresh();
  config.setConfigUpdateInterval(5);

  config.deleteConfig();

  EXPECT_EQ(std::nullopt, env.files.contents(kSettingsFile));
  EXPECT_EQ(5, config.configUpdateInterval());
  EXPECT_EQ(Date{1700000000}, config.configUpdateTime());
  expectLines({});
}

TEST_F(ZLNReportingConfigFileTest, AFailedRemovalIsToldWithThePathFirst) {
  ZLNReportingConfig& config = beginFresh();
  setLevel(2);
  env.files.failRemove(kSettingsFile);

  config.deleteConfig();

  EXPECT_THAT(newLines(),
              ElementsAre(StartsWith(
                  "Could not delete config /support/com.zelnor.sdk/data/config.dat at Error "
                  "Domain=NSCocoaErrorDomain Code=513 \"“config.dat” couldn’t be removed because "
                  "you don’t have permission to access it.\" UserInfo={")));
  EXPECT_EQ((Dictionary{{"lastUpdate", Number::float64(1700000000)}}), stored());
}

TEST_F(ZLNReportingConfigFileTest, AFileThatCannotBeRemovedIsTakenAllTheSame) {
  ZLNReportingConfig& config = beginFresh();
  putFile({{kSendStop, Number::boolean(false)}, {"lastUpdate", "odd"}});
  env.files.failRemove(kSettingsFile);

  EXPECT_TRUE(config.loadStoredConfig());
  EXPECT_FALSE(config.sendStopSessionReports());
}

// Staleness.

TEST_F(ZLNReportingConfigFileTest, IsStaleStrictlyAfterTheDueTime) {
  struct Row {
    std::optional<Date> updated;
    std::int32_t interval;
    double now;
    bool stale;
  };
  constexpr std::int32_t kLargest = std::numeric_limits<std::int32_t>::max();
  constexpr std::int32_t kSmallest = std::numeric_limits<std::int32_t>::min();
  const std::vector<Row> rows = {{std::nullopt, 86400, 1700000000, true},
                                 {std::nullopt, kLargest, 1700000000, true},
                                 {std::nullopt, 86400, 0, false},
                                 {std::nullopt, 86400, 0.5, true},
                                 {Date{1700000000}, 86400, 1700000010, false},
                                 {Date{1700000000}, 86400, 1700086400, false},
                                 {Date{1700000000}, 86400, 1700086400.5, true},
                                 {Date{1700000000}, 86400, 1700086399.5, false},
                                 {Date{1700000000}, 0, 1700000000, false},
                                 {Date{1700000000}, 0, 1700000000.25, true},
                                 {Date{1700000000}, -1, 1700000000, true},
                                 {Date{1700000000}, kSmallest, 1700000000, true},
                                 {Date{1700000000}, kLargest, 1800000000, false},
                                 {Date{1700000000}, 86400, 1600000000, false}};
  ZLNReportingConfig& config = beginFresh();
  for (std::size_t row = 0; row < rows.size(); ++row) {
    config.setConfigUpdateTime(rows[row].updated);
    config.setConfigUpdateInterval(rows[row].interval);
    env.clock.set(rows[row].now);

    EXPECT_EQ(rows[row].stale, config.shouldUpdateFromRemote()) << row;
  }
}

TEST_F(ZLNReportingConfigFileTest, AFileOfTenSecondsAgoIsNotStale) {
  putSettings({});
  env.clock.set(1700000010);

  begin();

  expectLines({"Config is not stale. Update skipped."});
  EXPECT_THAT(env.http.requests(), IsEmpty());
}

TEST_F(ZLNReportingConfigFileTest, AnUnreadableFileIsStaleAndOverwrittenByTheFetch) {
  env.files.put(kSettingsFile, "This is no property list.");

  begin();

  EXPECT_EQ("Config is stale. Updating.", newLines().at(0));
  EXPECT_EQ(Value(Number::float64(1700000000)), stored("lastUpdate"));
}

}  // namespace
}  // namespace zln
