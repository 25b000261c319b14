#include "config/ZLNReportingConfig.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/config/config_test.h"

namespace zln {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr std::int32_t kSmallest = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t kLargest = std::numeric_limits<std::int32_t>::max();

class ZLNReportingConfigTest : public ConfigTest {
 protected:
  // The three that no key stands for, and all others through their keys.
  static void expectSettings(const ZLNReportingConfig& config, float transferTimeout, bool partial,
                             bool orientation, const Dictionary& keyed) {
    EXPECT_EQ(transferTimeout, config.jsonTransferTimeout());
    EXPECT_EQ(partial, config.sendPartialReportsOnBackgrounding());
    EXPECT_EQ(orientation, config.attemptToEnforceOrientation());
    EXPECT_EQ(keyed, config.configToDictionary());
  }

  static void expectDefaults(const ZLNReportingConfig& config) {
    expectSettings(config, 10.0f, true, true,
                   {{kImmediately, Number::boolean(true)},
                    {kOnBackgrounding, Number::boolean(true)},
                    {kOnForegrounding, Number::boolean(true)},
                    {kFailureLimit, Number::int32(3)},
                    {kInactivityLimit, Number::float32(600)},
                    {kUpdateInterval, Number::int32(86400)},
                    {kBackgroundTimeout, Number::float32(60)},
                    {kSendStart, Number::boolean(true)},
                    {kSendStop, Number::boolean(true)},
                    {kSendFirst, Number::boolean(true)}});
  }

  // Gives every setting a value that is not its default.
  static void setAll(ZLNReportingConfig& config) {
    config.setReportTemporaryFailureLimit(-7);
    config.setJsonTransferTimeout(-0.5f);
    config.setSessionInactivityTimeLimit(0.1f);
    config.setConfigUpdateInterval(kSmallest);
    config.setUserSessionBackgroundTimeoutSeconds(-1.0f);
    config.setSendStartSessionReports(false);
    config.setSendStopSessionReports(false);
    config.setSendFirstSessionReports(false);
    config.setTransmitReportsImmediately(false);
    config.setSendPartialReportsOnBackgrounding(false);
    config.setTransmitReportsOnApplicationBackgrounding(false);
    config.setTransmitReportsOnApplicationForegrounding(false);
    config.setAttemptToEnforceOrientation(false);
  }

  static void process(ZLNReportingConfig& config, const Dictionary& dictionary) {
    EXPECT_TRUE(config.processConfigDictionary(&dictionary));
  }
};

TEST_F(ZLNReportingConfigTest, ThereIsOne) {
  EXPECT_EQ(ZLNReportingConfig::sharedConfig(), ZLNReportingConfig::sharedConfig());
}

TEST_F(ZLNReportingConfigTest, LoadingTheDefaultsReplacesEverySettingButTheTimeOfTheLastFetch) {
  ZLNReportingConfig& config = beginFresh();
  setAll(config);

  config.loadDefaultConfig();

  expectDefaults(config);
  EXPECT_EQ(Date{1700000000}, config.configUpdateTime());
}

TEST_F(ZLNReportingConfigTest, EverySettingIsKeptAsItIsGivenAndNothingStored) {
  ZLNReportingConfig& config = beginFresh();

  setAll(config);

  EXPECT_EQ(-7, config.reportTemporaryFailureLimit());
  EXPECT_EQ(0.1f, config.sessionInactivityTimeLimit());
  EXPECT_EQ(kSmallest, config.configUpdateInterval());
  EXPECT_EQ(-1.0f, config.userSessionBackgroundTimeoutSeconds());
  expectSettings(config, -0.5f, false, false,
                 {{kImmediately, Number::boolean(false)},
                  {kOnBackgrounding, Number::boolean(false)},
                  {kOnForegrounding, Number::boolean(false)},
                  {kFailureLimit, Number::int32(-7)},
                  {kInactivityLimit, Number::float32(0.1f)},
                  {kUpdateInterval, Number::int32(kSmallest)},
                  {kBackgroundTimeout, Number::float32(-1)},
                  {kSendStart, Number::boolean(false)},
                  {kSendStop, Number::boolean(false)},
                  {kSendFirst, Number::boolean(false)}});
  EXPECT_EQ(0u, env.files.writeCount(kSettingsFile));
  expectLines({});
}

TEST_F(ZLNReportingConfigTest, TheDictionaryHoldsTheTenKeyedSettingsInOrder) {
  const Dictionary dictionary = beginFresh().configToDictionary();

  std::vector<std::string> keys;
  for (const auto& [key, value] : dictionary.entries()) keys.push_back(key);
  EXPECT_THAT(keys, ElementsAre(kImmediately, kOnBackgrounding, kOnForegrounding, kFailureLimit,
                                kInactivityLimit, kUpdateInterval, kBackgroundTimeout, kSendStart,
                                kSendStop, kSendFirst));
}

TEST_F(ZLNReportingConfigTest, ADictionaryTakesTheKeyedSettingsToAnotherObject) {
  ZLNReportingConfig& config = beginFresh();
  const auto other = ZLNReportingConfig::init();
  setAll(config);

  process(*other, config.configToDictionary());

  expectSettings(*other, 10.0f, true, true, config.configToDictionary());
}

TEST_F(ZLNReportingConfigTest, AbsentEmptyAndUnknownKeysChangeNothingAndAreAccepted) {
  ZLNReportingConfig& config = beginFresh();

  EXPECT_TRUE(config.processConfigDictionary(nullptr));
  process(config, {});
  process(config,
          {{"ConfigSerializationKeyJsonTransferTimeout", Number::int64(1)},
           {"ConfigSerializationKeySendPartialReportsOnBackgrounding", Number::boolean(false)},
           {"ConfigSerializationKeyAttemptToEnforceOrientation", Number::boolean(false)},
           {"configserializationkeysendstopsessionreports", Number::boolean(false)},
           {"sendStopSessionReports", Number::boolean(false)},
           {"lastUpdate", Number::int64(1)},
           {"", Number::int64(1)}});

  expectDefaults(config);
  EXPECT_EQ(Date{1700000000}, config.configUpdateTime());
  expectLines({});
}

TEST_F(ZLNReportingConfigTest, AnAbsentKeyLeavesItsSettingAsItWas) {
  ZLNReportingConfig& config = beginFresh();
  setAll(config);

  process(config, {{kFailureLimit, Number::int64(5)}});

  EXPECT_EQ(5, config.reportTemporaryFailureLimit());
  EXPECT_EQ(0.1f, config.sessionInactivityTimeLimit());
  EXPECT_FALSE(config.sendStopSessionReports());
}

// How a number becomes a setting.

TEST_F(ZLNReportingConfigTest, ABooleanSettingIsTrueWhenTheNumberIsNotZero) {
  struct Setting {
    const char* key;
    bool (ZLNReportingConfig::*get)() const;
    void (ZLNReportingConfig::*set)(bool);
  };
  constexpr Setting kSettings[] = {
      {kImmediately, &ZLNReportingConfig::transmitReportsImmediately,
       &ZLNReportingConfig::setTransmitReportsImmediately},
      {kOnBackgrounding, &ZLNReportingConfig::transmitReportsOnApplicationBackgrounding,
       &ZLNReportingConfig::setTransmitReportsOnApplicationBackgrounding},
      {kOnForegrounding, &ZLNReportingConfig::transmitReportsOnApplicationForegrounding,
       &ZLNReportingConfig::setTransmitReportsOnApplicationForegrounding},
      {kSendStart, &ZLNReportingConfig::sendStartSessionReports,
       &ZLNReportingConfig::setSendStartSessionReports},
      {kSendStop, &ZLNReportingConfig::sendStopSessionReports,
       &ZLNReportingConfig::setSendStopSessionReports},
      {kSendFirst, &ZLNReportingConfig::sendFirstSessionReports,
       &ZLNReportingConfig::setSendFirstSessionReports}};
  const std::vector<std::pair<Number, bool>> numbers = {
      {Number::boolean(false), false},  {Number::boolean(true), true}, {Number::int64(0), false},
      {Number::float64(0), false},      {Number::int64(-1), true},     {Number::float64(0.5), true},
      {Number::int64(4294967296), true}};
  ZLNReportingConfig& config = beginFresh();

  for (const auto& [key, get, set] : kSettings) {
    for (const auto& [number, expected] : numbers) {
      (config.*set)(!expected);
      process(config, {{key, number}});

      EXPECT_EQ(expected, (config.*get)()) << key << " " << Value(number).description();
    }
  }
}

TEST_F(ZLNReportingConfigTest, AnIntegerSettingIsTheNumberIn32Bits) {
  ZLNReportingConfig& config = beginFresh();
  for (const auto& [number, expected] :
       std::vector<std::pair<Number, std::int32_t>>{{Number::int64(0), 0},
                                                    {Number::int64(-1), -1},
                                                    {Number::float64(2.9), 2},
                                                    {Number::float64(-2.9), -2},
                                                    {Number::boolean(true), 1},
                                                    {Number::boolean(false), 0},
                                                    {Number::int64(4294967301), 5},
                                                    {Number::int64(2147483648), kSmallest},
                                                    {Number::float64(1e18), kLargest},
                                                    {Number::float64(-1e18), kSmallest},
                                                    {Number::float64(std::nan("")), 0}}) {
    process(config, {{kFailureLimit, number}, {kUpdateInterval, number}});

    EXPECT_EQ(expected, config.reportTemporaryFailureLimit());
    EXPECT_EQ(expected, config.configUpdateInterval());
  }
}

TEST_F(ZLNReportingConfigTest, ARealSettingIsTheNumberAsA32BitFloat) {
  ZLNReportingConfig& config = beginFresh();
  for (const auto& [number, expected] : std::vector<std::pair<Number, float>>{
           {Number::int64(30), 30.0f},
           {Number::int64(0), 0.0f},
           {Number::float64(-2.5), -2.5f},
           {Number::boolean(true), 1.0f},
           {Number::float64(0.1), 0.1f},
           {Number::int64(1700000100), 1700000128.0f},
           {Number::float64(1e300), std::numeric_limits<float>::infinity()}}) {
    process(config, {{kInactivityLimit, number}, {kBackgroundTimeout, number}});

    EXPECT_EQ(expected, config.sessionInactivityTimeLimit());
    EXPECT_EQ(expected, config.userSessionBackgroundTimeoutSeconds());
  }
}

TEST_F(ZLNReportingConfigTest, AValueThatIsNoNumberLeavesItsSettingAsItWas) {
  ZLNReportingConfig& config = beginFresh();
  for (const Value& value :
       {Value("0"), Value(Null{}), Value(Date{1700000000}), Value(Data{"0"}),
        Value(Array{Number::int64(0)}), Value(Dictionary{{"a", Number::int64(0)}})}) {
    SCOPED_TRACE(value.description());
    Dictionary dictionary;
    for (const char* key :
         {kImmediately, kOnBackgrounding, kOnForegrounding, kFailureLimit, kInactivityLimit,
          kUpdateInterval, kBackgroundTimeout, kSendStart, kSendStop, kSendFirst}) {
      dictionary.set(key, value);
    }

    process(config, dictionary);

    expectDefaults(config);
    expectLines({});
  }
}

// Creation and the application's activation.

TEST_F(ZLNReportingConfigTest, WithoutAFileItHoldsTheDefaultsAndFetchesAtCreation) {
  expectDefaults(begin());

  EXPECT_THAT(env.http.requests(), SizeIs(1));
}

TEST_F(ZLNReportingConfigTest, SubscribesThenLoadsTheFileAndThenChecksWhetherItIsStale) {
  putSettings({});
  // So early that not even settings that were never fetched are stale.
  env.clock.set(0);
  env.journal.when(kReadsFile, [&] { env.app.becomeActive(); });
  env.journal.begin();

  begin();

  expectCalls({kReadsFile, "log: Config is not stale. Update skipped.",
               "log: Config is not stale. Update skipped."});
}

TEST_F(ZLNReportingConfigTest, TheFileOverridesTheDefaultsOfTheKeyedSettings) {
  putSettings({{kSendStop, Number::boolean(false)}, {kInactivityLimit, Number::int64(30)}});

  const ZLNReportingConfig& config = begin();

  EXPECT_FALSE(config.sendStopSessionReports());
  EXPECT_EQ(30.0f, config.sessionInactivityTimeLimit());
  EXPECT_TRUE(config.sendStartSessionReports());
  EXPECT_EQ(3, config.reportTemporaryFailureLimit());
  EXPECT_EQ(10.0f, config.jsonTransferTimeout());
  EXPECT_EQ(Date{1700000000}, config.configUpdateTime());
}

TEST_F(ZLNReportingConfigTest, ActivationAloneFetchesAndOnlyStaleSettings) {
  beginFresh();

  env.app.becomeActive();

  expectLines({"Config is not stale. Update skipped."});
  EXPECT_THAT(env.http.requests(), IsEmpty());

  env.clock.advance(86401);
  env.app.resignActive();
  env.app.enterBackground();
  env.app.enterForeground();
  env.app.terminate();

  expectLines({});
  EXPECT_THAT(env.http.requests(), IsEmpty());

  env.app.becomeActive();

  EXPECT_THAT(env.http.requests(), SizeIs(1));
}

TEST_F(ZLNReportingConfigTest, OneThatIsGoneFollowsTheApplicationNoLonger) {
  putSettings({});
  auto config = ZLNReportingConfig::init();
  setLevel(3);

  config.reset();
  env.app.becomeActive();

  expectLines({});
}

}  // namespace
}  // namespace zln
