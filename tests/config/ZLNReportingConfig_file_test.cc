#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/config/config_test.h"

namespace zln {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

constexpr char kSendStop[] = "ConfigSerializationKeySendStopSessionReports";
constexpr char kUpdateInterval[] = "ConfigSerializationKeyConfigUpdateInterval";

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

TEST_F(ZLNReportingConfigFileTest, LiesInTheDataFolder) {
  EXPECT_EQ("/support/com.zelnor.sdk/data/config.dat", ZLNReportingConfig::savePath());
}

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
  EXPECT_THAT(newLines(), IsEmpty());
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

  EXPECT_THAT(newLines(), ElementsAre("ZLN Session: An error occured writing config"));
  EXPECT_EQ((Dictionary{{"lastUpdate", Number::float64(1700000000)}}), stored());
}

TEST_F(ZLNReportingConfigFileTest, WithoutItsFolderTheWriteFails) {
  ZLNReportingConfig& config = beginFresh();
  env.files.remove("/support/com.zelnor.sdk/data", nullptr);

  config.saveConfig();

  EXPECT_THAT(newLines(), ElementsAre("ZLN Session: An error occured writing config"));
}

// Reading.

TEST_F(ZLNReportingConfigFileTest, WithoutAFileNothingIsLoaded) {
  ZLNReportingConfig& config = beginFresh();
  env.files.remove(kSettingsFile, nullptr);
  config.setConfigUpdateTime(std::nullopt);

  EXPECT_FALSE(config.loadStoredConfig());
  EXPECT_EQ(std::nullopt, config.configUpdateTime());
  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(ZLNReportingConfigFileTest, AFileOfADictionaryIsLoaded) {
  ZLNReportingConfig& config = beginFresh();
  putFile({{kSendStop, Number::boolean(false)}, {"lastUpdate", Number::float64(1700000128)}});

  EXPECT_TRUE(config.loadStoredConfig());
  EXPECT_FALSE(config.sendStopSessionReports());
  EXPECT_EQ(Date{1700000128}, config.configUpdateTime());
  EXPECT_THAT(newLines(), IsEmpty());
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

struct TimeRow {
  const char* name;
  Number stored;
  double restored;
};

class ZLNReportingConfigTimeTest : public ConfigTest,
                                   public testing::WithParamInterface<TimeRow> {};

// A stored time comes back as the nearest multiple of 128 seconds, ties to even.
INSTANTIATE_TEST_SUITE_P(
    Times, ZLNReportingConfigTimeTest,
    testing::Values(TimeRow{"Up", Number::float64(1700000100), 1700000128},
                    TimeRow{"Down", Number::float64(1700000050), 1700000000},
                    TimeRow{"TieToEven", Number::float64(1700000064), 1700000000},
                    TimeRow{"TieToEvenAbove", Number::float64(1700000192), 1700000256},
                    TimeRow{"Integer", Number::int64(1700000100), 1700000128},
                    TimeRow{"Zero", Number::float64(0), 0},
                    TimeRow{"Small", Number::float64(100.5), 100.5},
                    TimeRow{"Negative", Number::int64(-1), -1},
                    TimeRow{"Boolean", Number::boolean(true), 1}),
    [](const auto& parameter) { return parameter.param.name; });

TEST_P(ZLNReportingConfigTimeTest, IsReadAsA32BitFloat) {
  ZLNReportingConfig& config = beginFresh();
  putFile({{"lastUpdate", GetParam().stored}});

  EXPECT_TRUE(config.loadStoredConfig());
  EXPECT_EQ(Date{GetParam().restored}, config.configUpdateTime());
}

TEST_F(ZLNReportingConfigFileTest, WithoutAStoredTimeTheTimeStaysAsItWas) {
  ZLNReportingConfig& config = beginFresh();
  putFile({{kSendStop, Number::boolean(false)}});

  EXPECT_TRUE(config.loadStoredConfig());
  EXPECT_EQ(Date{1700000000}, config.configUpdateTime());
  EXPECT_FALSE(config.sendStopSessionReports());
}

struct OddTime {
  const char* name;
  Value value;
  const char* line;
};

class ZLNReportingConfigOddTimeTest : public ConfigTest,
                                      public testing::WithParamInterface<OddTime> {};

INSTANTIATE_TEST_SUITE_P(
    Kinds, ZLNReportingConfigOddTimeTest,
    testing::Values(OddTime{"Text", "1700000000",
                            "ZLN Session: Config timestamp was incorrect class 1700000000"},
                    OddTime{"Date", Date{1700000000},
                            "ZLN Session: Config timestamp was incorrect class 2023-11-14 22:13:20 "
                            "+0000"},
                    OddTime{"Data", Data{"ab"},
                            "ZLN Session: Config timestamp was incorrect class {length = 2, bytes "
                            "= 0x6162}"},
                    OddTime{"List", Array{},
                            "ZLN Session: Config timestamp was incorrect class (\n)"},
                    OddTime{"Dictionary", Dictionary{},
                            "ZLN Session: Config timestamp was incorrect class {\n}"}),
    [](const auto& parameter) { return parameter.param.name; });

TEST_P(ZLNReportingConfigOddTimeTest, RemovesTheFileWhoseOtherSettingsAreTaken) {
  ZLNReportingConfig& config = beginFresh();
  setLevel(2);
  putFile({{kSendStop, Number::boolean(false)}, {"lastUpdate", GetParam().value}});

  EXPECT_TRUE(config.loadStoredConfig());

  EXPECT_THAT(newLines(), ElementsAre(GetParam().line));
  EXPECT_EQ(std::nullopt, env.files.contents(kSettingsFile));
  EXPECT_FALSE(config.sendStopSessionReports());
  EXPECT_EQ(Date{1700000000}, config.configUpdateTime());
}

TEST_F(ZLNReportingConfigFileTest, AnOddTimeMakesTheNextCheckStale) {
  putFile({{kSendStop, Number::boolean(false)}, {"lastUpdate", "1700000000"}});

  ZLNReportingConfig& config = begin();

  EXPECT_EQ(
      (std::vector<std::string>{"ZLN Session: Config timestamp was incorrect class 1700000000",
                                "ZLN Session: Config is stale. Updating."}),
      (std::vector<std::string>{log().lines()[0], log().lines()[1]}));
  EXPECT_EQ(1u, env.http.requests().size());
  EXPECT_FALSE(config.sendStopSessionReports());
  EXPECT_THAT(env.files.removed(), ElementsAre(kSettingsFile));
}

struct UnreadableFile {
  const char* name;
  std::string bytes;
};

class ZLNReportingConfigUnreadableFileTest : public ConfigTest,
                                             public testing::WithParamInterface<UnreadableFile> {};

INSTANTIATE_TEST_SUITE_P(
    Files, ZLNReportingConfigUnreadableFileTest,
    testing::Values(
        UnreadableFile{"Empty", ""}, UnreadableFile{"Text", "This is no property list."},
        UnreadableFile{"Json", R"({"ConfigSerializationKeyConfigUpdateInterval":5})"},
        UnreadableFile{"Array",
                       R"(<plist version="1.0"><array><integer>5</integer></array></plist>)"},
        UnreadableFile{"OneBadNumber",
                       R"(<plist version="1.0"><dict>)"
                       R"(<key>ConfigSerializationKeyConfigUpdateInterval</key>)"
                       R"(<integer>5</integer><key>lastUpdate</key><real>x</real></dict></plist>)"},
        UnreadableFile{"CutShort",
                       R"(<plist version="1.0"><dict>)"
                       R"(<key>ConfigSerializationKeyConfigUpdateInterval</key><integer>5)"},
        UnreadableFile{"BinaryCutShort",
                       std::string(std::begin(kBinaryFile), std::end(kBinaryFile) - 1)}),
    [](const auto& parameter) { return parameter.param.name; });

TEST_P(ZLNReportingConfigUnreadableFileTest, ChangesNothingIsAcceptedAndStays) {
  ZLNReportingConfig& config = beginFresh();
  config.setConfigUpdateTime(std::nullopt);
  env.files.put(kSettingsFile, GetParam().bytes);

  EXPECT_TRUE(config.loadStoredConfig());

  EXPECT_EQ(86400, config.configUpdateInterval());
  EXPECT_EQ(std::nullopt, config.configUpdateTime());
  EXPECT_EQ(GetParam().bytes, env.files.contents(kSettingsFile));
  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_P(ZLNReportingConfigUnreadableFileTest, IsOverwrittenByTheNextSave) {
  ZLNReportingConfig& config = beginFresh();
  env.files.put(kSettingsFile, GetParam().bytes);

  config.saveConfig();

  EXPECT_EQ(Value(Number::int64(86400)), stored(kUpdateInterval));
}

// Removing.

TEST_F(ZLNReportingConfigFileTest, DeletingRemovesTheFileAndKeepsTheSettings) {
  ZLNReportingConfig& config = beginFresh();
  config.setConfigUpdateInterval(5);

  config.deleteConfig();

  EXPECT_EQ(std::nullopt, env.files.contents(kSettingsFile));
  EXPECT_EQ(5, config.configUpdateInterval());
  EXPECT_EQ(Date{1700000000}, config.configUpdateTime());
  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(ZLNReportingConfigFileTest, DeletingWithoutAFileDoesNothing) {
  ZLNReportingConfig& config = beginFresh();
  env.files.remove(kSettingsFile, nullptr);

  config.deleteConfig();

  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(ZLNReportingConfigFileTest, AFailedRemovalIsToldWithThePathFirst) {
  ZLNReportingConfig& config = beginFresh();
  setLevel(2);
  env.files.failRemove(kSettingsFile);

  config.deleteConfig();

  EXPECT_THAT(
      newLines(),
      ElementsAre(StartsWith(
          "ZLN Session: Could not delete config /support/com.zelnor.sdk/data/config.dat at Error "
          "Domain=NSCocoaErrorDomain Code=513 \"“config.dat” couldn’t be removed because you don’t "
          "have permission to access it.\" UserInfo={")));
  EXPECT_EQ((Dictionary{{"lastUpdate", Number::float64(1700000000)}}), stored());
}

TEST_F(ZLNReportingConfigFileTest, AtWarnAnOddTimeAndAFailedRemovalAreNotSaid) {
  ZLNReportingConfig& config = beginFresh();
  setLevel(1);
  putFile({{"lastUpdate", "odd"}});
  env.files.failRemove(kSettingsFile);

  config.loadStoredConfig();

  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(ZLNReportingConfigFileTest, AFileThatCannotBeRemovedIsStillTaken) {
  ZLNReportingConfig& config = beginFresh();
  putFile({{kSendStop, Number::boolean(false)}, {"lastUpdate", "odd"}});
  env.files.failRemove(kSettingsFile);

  EXPECT_TRUE(config.loadStoredConfig());
  EXPECT_FALSE(config.sendStopSessionReports());
}

// Staleness.

struct StaleRow {
  const char* name;
  std::optional<Date> updated;
  std::int32_t interval;
  double now;
  bool stale;
};

class ZLNReportingConfigStaleTest : public ConfigTest,
                                    public testing::WithParamInterface<StaleRow> {};

INSTANTIATE_TEST_SUITE_P(
    Times, ZLNReportingConfigStaleTest,
    testing::Values(StaleRow{"NeverFetched", std::nullopt, 86400, 1700000000, true},
                    StaleRow{"NeverFetchedLongInterval", std::nullopt,
                             std::numeric_limits<int>::max(), 1700000000, true},
                    StaleRow{"NeverFetchedAtTheBeginning", std::nullopt, 86400, 0, false},
                    StaleRow{"NeverFetchedJustAfterTheBeginning", std::nullopt, 86400, 0.5, true},
                    StaleRow{"TenSecondsBack", Date{1700000000}, 86400, 1700000010, false},
                    StaleRow{"Equal", Date{1700000000}, 86400, 1700086400, false},
                    StaleRow{"JustAfter", Date{1700000000}, 86400, 1700086400.5, true},
                    StaleRow{"JustBefore", Date{1700000000}, 86400, 1700086399.5, false},
                    StaleRow{"IntervalZeroSameInstant", Date{1700000000}, 0, 1700000000, false},
                    StaleRow{"IntervalZeroLater", Date{1700000000}, 0, 1700000000.25, true},
                    StaleRow{"NegativeIntervalSameInstant", Date{1700000000}, -1, 1700000000, true},
                    StaleRow{"SmallestInterval", Date{1700000000}, std::numeric_limits<int>::min(),
                             1700000000, true},
                    StaleRow{"LargestInterval", Date{1700000000}, std::numeric_limits<int>::max(),
                             1800000000, false},
                    StaleRow{"ClockSetBack", Date{1700000000}, 86400, 1600000000, false}),
    [](const auto& parameter) { return parameter.param.name; });

TEST_P(ZLNReportingConfigStaleTest, IsStrictlyAfterTheDueTime) {
  ZLNReportingConfig& config = beginFresh();
  config.setConfigUpdateTime(GetParam().updated);
  config.setConfigUpdateInterval(GetParam().interval);
  env.clock.set(GetParam().now);

  EXPECT_EQ(GetParam().stale, config.shouldUpdateFromRemote());
}

TEST_F(ZLNReportingConfigFileTest, WithoutAFileTheFirstCheckIsStale) {
  begin();

  EXPECT_EQ("ZLN Session: Config is stale. Updating.", log().lines().at(0));
  EXPECT_EQ(1u, env.http.requests().size());
}

TEST_F(ZLNReportingConfigFileTest, AFileOfTenSecondsAgoIsNotStale) {
  putFile({{"lastUpdate", Number::float64(1700000000)}});
  env.clock.set(1700000010);

  begin();

  EXPECT_THAT(newLines(), ElementsAre("ZLN Session: Config is not stale. Update skipped."));
  EXPECT_THAT(env.http.requests(), IsEmpty());
}

TEST_F(ZLNReportingConfigFileTest, AtInfoNothingIsSaidOfFreshSettings) {
  putSettings({});
  setLevel(2);

  ZLNReportingConfig::sharedConfig();

  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(ZLNReportingConfigFileTest, AFileOfOneMegabyteIsTaken) {
  putSettings({{kUpdateInterval, Number::int32(3600)}});
  std::string bytes = env.files.contents(kSettingsFile).value();
  env.files.put(kSettingsFile, bytes + std::string(1048576 - bytes.size(), '\n'));

  EXPECT_EQ(3600, begin().configUpdateInterval());
}

TEST_F(ZLNReportingConfigFileTest, ALargerFileIsNotRead) {
  putSettings({{kUpdateInterval, Number::int32(3600)}});
  std::string bytes = env.files.contents(kSettingsFile).value();
  env.files.put(kSettingsFile, bytes + std::string(1048577 - bytes.size(), '\n'));

  EXPECT_EQ(86400, begin().configUpdateInterval());
}

TEST_F(ZLNReportingConfigFileTest, AnUnreadableFileIsStaleAndOverwrittenByTheFetch) {
  env.files.put(kSettingsFile, "This is no property list.");

  begin();

  EXPECT_EQ("ZLN Session: Config is stale. Updating.", log().lines().at(0));
  EXPECT_EQ(Value(Number::float64(1700000000)), stored("lastUpdate"));
}

}  // namespace
}  // namespace zln
