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
using testing::Pair;

constexpr char kImmediately[] = "ConfigSerializationKeyTransmitReportsImmediately";
constexpr char kOnBackgrounding[] =
    "ConfigSerializationKeyTransmitReportsOnApplicationBackgrounding";
constexpr char kOnForegrounding[] =
    "ConfigSerializationKeyTransmitReportsOnApplicationForegrounding";
constexpr char kFailureLimit[] = "ConfigSerializationKeyReportTemporaryFailureLimit";
constexpr char kInactivityLimit[] = "ConfigSerializationKeySessionInactivityTimeLimit";
constexpr char kUpdateInterval[] = "ConfigSerializationKeyConfigUpdateInterval";
constexpr char kBackgroundTimeout[] = "ConfigSerializationKeyUserSessionBackgroundTimeoutSeconds";
constexpr char kSendStart[] = "ConfigSerializationKeySendStartSessionReports";
constexpr char kSendStop[] = "ConfigSerializationKeySendStopSessionReports";
constexpr char kSendFirst[] = "ConfigSerializationKeySendFirstSessionReports";

using ZLNReportingConfigTest = ConfigTest;

void expectDefaults(const ZLNReportingConfig& config) {
  EXPECT_EQ(3, config.reportTemporaryFailureLimit());
  EXPECT_EQ(10.0f, config.jsonTransferTimeout());
  EXPECT_EQ(600.0f, config.sessionInactivityTimeLimit());
  EXPECT_EQ(86400, config.configUpdateInterval());
  EXPECT_EQ(60.0f, config.userSessionBackgroundTimeoutSeconds());
  EXPECT_TRUE(config.sendStartSessionReports());
  EXPECT_TRUE(config.sendStopSessionReports());
  EXPECT_TRUE(config.sendFirstSessionReports());
  EXPECT_TRUE(config.transmitReportsImmediately());
  EXPECT_TRUE(config.sendPartialReportsOnBackgrounding());
  EXPECT_TRUE(config.transmitReportsOnApplicationBackgrounding());
  EXPECT_TRUE(config.transmitReportsOnApplicationForegrounding());
  EXPECT_TRUE(config.attemptToEnforceOrientation());
}

// Gives every setting a value that is not its default.
void setAll(ZLNReportingConfig& config) {
  config.setReportTemporaryFailureLimit(-7);
  config.setJsonTransferTimeout(-0.5f);
  config.setSessionInactivityTimeLimit(0.1f);
  config.setConfigUpdateInterval(std::numeric_limits<std::int32_t>::min());
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

TEST_F(ZLNReportingConfigTest, ThereIsOne) {
  EXPECT_EQ(ZLNReportingConfig::sharedConfig(), ZLNReportingConfig::sharedConfig());
}

TEST_F(ZLNReportingConfigTest, WithoutAFileItHoldsTheDefaults) { expectDefaults(begin()); }

TEST_F(ZLNReportingConfigTest, LoadingTheDefaultsReplacesEverySetting) {
  ZLNReportingConfig& config = beginFresh();
  setAll(config);

  config.loadDefaultConfig();

  expectDefaults(config);
}

TEST_F(ZLNReportingConfigTest, LoadingTheDefaultsKeepsTheTimeOfTheLastFetch) {
  ZLNReportingConfig& config = beginFresh();

  config.loadDefaultConfig();

  EXPECT_EQ(Date{1700000000}, config.configUpdateTime());
}

TEST_F(ZLNReportingConfigTest, EverySettingIsStoredAsItIsGiven) {
  ZLNReportingConfig& config = beginFresh();

  setAll(config);

  EXPECT_EQ(-7, config.reportTemporaryFailureLimit());
  EXPECT_EQ(-0.5f, config.jsonTransferTimeout());
  EXPECT_EQ(0.1f, config.sessionInactivityTimeLimit());
  EXPECT_EQ(std::numeric_limits<std::int32_t>::min(), config.configUpdateInterval());
  EXPECT_EQ(-1.0f, config.userSessionBackgroundTimeoutSeconds());
  EXPECT_FALSE(config.sendStartSessionReports());
  EXPECT_FALSE(config.sendStopSessionReports());
  EXPECT_FALSE(config.sendFirstSessionReports());
  EXPECT_FALSE(config.transmitReportsImmediately());
  EXPECT_FALSE(config.sendPartialReportsOnBackgrounding());
  EXPECT_FALSE(config.transmitReportsOnApplicationBackgrounding());
  EXPECT_FALSE(config.transmitReportsOnApplicationForegrounding());
  EXPECT_FALSE(config.attemptToEnforceOrientation());
}

TEST_F(ZLNReportingConfigTest, SettingSomethingStoresNothing) {
  setAll(beginFresh());

  EXPECT_EQ(0u, env.files.writeCount(kSettingsFile));
  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(ZLNReportingConfigTest, TheDictionaryHoldsTheTenKeyedSettingsInOrder) {
  EXPECT_THAT(beginFresh().configToDictionary().entries(),
              ElementsAre(Pair(kImmediately, Value(Number::boolean(true))),
                          Pair(kOnBackgrounding, Value(Number::boolean(true))),
                          Pair(kOnForegrounding, Value(Number::boolean(true))),
                          Pair(kFailureLimit, Value(Number::int32(3))),
                          Pair(kInactivityLimit, Value(Number::float32(600))),
                          Pair(kUpdateInterval, Value(Number::int32(86400))),
                          Pair(kBackgroundTimeout, Value(Number::float32(60))),
                          Pair(kSendStart, Value(Number::boolean(true))),
                          Pair(kSendStop, Value(Number::boolean(true))),
                          Pair(kSendFirst, Value(Number::boolean(true)))));
}

TEST_F(ZLNReportingConfigTest, TheDictionaryHoldsWhatIsSet) {
  ZLNReportingConfig& config = beginFresh();
  setAll(config);

  EXPECT_EQ((Dictionary{{kImmediately, Number::boolean(false)},
                        {kOnBackgrounding, Number::boolean(false)},
                        {kOnForegrounding, Number::boolean(false)},
                        {kFailureLimit, Number::int32(-7)},
                        {kInactivityLimit, Number::float32(0.1f)},
                        {kUpdateInterval, Number::int32(-2147483647 - 1)},
                        {kBackgroundTimeout, Number::float32(-1)},
                        {kSendStart, Number::boolean(false)},
                        {kSendStop, Number::boolean(false)},
                        {kSendFirst, Number::boolean(false)}}),
            config.configToDictionary());
}

TEST_F(ZLNReportingConfigTest, ADictionaryTakesTheKeyedSettingsToAnotherObject) {
  ZLNReportingConfig& config = beginFresh();
  const auto other = ZLNReportingConfig::init();
  setAll(config);

  const Dictionary dictionary = config.configToDictionary();

  EXPECT_TRUE(other->processConfigDictionary(&dictionary));
  EXPECT_EQ(dictionary, other->configToDictionary());
  EXPECT_EQ(10.0f, other->jsonTransferTimeout());
  EXPECT_TRUE(other->sendPartialReportsOnBackgrounding());
  EXPECT_TRUE(other->attemptToEnforceOrientation());
}

TEST_F(ZLNReportingConfigTest, AnAbsentDictionaryChangesNothingAndIsAccepted) {
  ZLNReportingConfig& config = beginFresh();

  EXPECT_TRUE(config.processConfigDictionary(nullptr));
  expectDefaults(config);
}

TEST_F(ZLNReportingConfigTest, AnEmptyDictionaryChangesNothingAndIsAccepted) {
  ZLNReportingConfig& config = beginFresh();
  const Dictionary empty;

  EXPECT_TRUE(config.processConfigDictionary(&empty));
  expectDefaults(config);
}

TEST_F(ZLNReportingConfigTest, UnknownKeysChangeNothingAndAreAccepted) {
  ZLNReportingConfig& config = beginFresh();
  const Dictionary unknown{
      {"ConfigSerializationKeyJsonTransferTimeout", Number::int64(1)},
      {"ConfigSerializationKeySendPartialReportsOnBackgrounding", Number::boolean(false)},
      {"ConfigSerializationKeyAttemptToEnforceOrientation", Number::boolean(false)},
      {"configserializationkeysendstopsessionreports", Number::boolean(false)},
      {"sendStopSessionReports", Number::boolean(false)},
      {"lastUpdate", Number::int64(1)},
      {"", Number::int64(1)}};

  EXPECT_TRUE(config.processConfigDictionary(&unknown));
  expectDefaults(config);
  EXPECT_EQ(Date{1700000000}, config.configUpdateTime());
  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(ZLNReportingConfigTest, AllTenKeysAreTakenAtOnce) {
  ZLNReportingConfig& config = beginFresh();
  const Dictionary reply{
      {kImmediately, Number::boolean(false)},     {kOnBackgrounding, Number::boolean(false)},
      {kOnForegrounding, Number::boolean(false)}, {kFailureLimit, Number::int64(4)},
      {kInactivityLimit, Number::float64(30.5)},  {kUpdateInterval, Number::int64(3600)},
      {kBackgroundTimeout, Number::int64(15)},    {kSendStart, Number::boolean(false)},
      {kSendStop, Number::boolean(false)},        {kSendFirst, Number::boolean(false)}};

  EXPECT_TRUE(config.processConfigDictionary(&reply));

  EXPECT_FALSE(config.transmitReportsImmediately());
  EXPECT_FALSE(config.transmitReportsOnApplicationBackgrounding());
  EXPECT_FALSE(config.transmitReportsOnApplicationForegrounding());
  EXPECT_EQ(4, config.reportTemporaryFailureLimit());
  EXPECT_EQ(30.5f, config.sessionInactivityTimeLimit());
  EXPECT_EQ(3600, config.configUpdateInterval());
  EXPECT_EQ(15.0f, config.userSessionBackgroundTimeoutSeconds());
  EXPECT_FALSE(config.sendStartSessionReports());
  EXPECT_FALSE(config.sendStopSessionReports());
  EXPECT_FALSE(config.sendFirstSessionReports());
}

TEST_F(ZLNReportingConfigTest, AnAbsentKeyLeavesItsSettingAsItWas) {
  ZLNReportingConfig& config = beginFresh();
  setAll(config);
  const Dictionary one{{kFailureLimit, Number::int64(5)}};

  config.processConfigDictionary(&one);

  EXPECT_EQ(5, config.reportTemporaryFailureLimit());
  EXPECT_EQ(0.1f, config.sessionInactivityTimeLimit());
  EXPECT_FALSE(config.sendStopSessionReports());
}

// How a number becomes a setting.

struct BooleanRow {
  const char* name;
  Number number;
  bool expected;
};

class ZLNReportingConfigBooleanTest : public ConfigTest,
                                      public testing::WithParamInterface<BooleanRow> {};

INSTANTIATE_TEST_SUITE_P(Numbers, ZLNReportingConfigBooleanTest,
                         testing::Values(BooleanRow{"False", Number::boolean(false), false},
                                         BooleanRow{"True", Number::boolean(true), true},
                                         BooleanRow{"Zero", Number::int64(0), false},
                                         BooleanRow{"RealZero", Number::float64(0), false},
                                         BooleanRow{"MinusOne", Number::int64(-1), true},
                                         BooleanRow{"Half", Number::float64(0.5), true},
                                         BooleanRow{"Beyond32Bits", Number::int64(4294967296),
                                                    true}),
                         [](const auto& parameter) { return parameter.param.name; });

TEST_P(ZLNReportingConfigBooleanTest, IsTrueWhenTheNumberIsNotZero) {
  using Getter = bool (ZLNReportingConfig::*)() const;
  using Setter = void (ZLNReportingConfig::*)(bool);
  struct Row {
    const char* key;
    Getter get;
    Setter set;
  };
  const Row rows[] = {
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
  ZLNReportingConfig& config = beginFresh();

  for (const Row& row : rows) {
    (config.*row.set)(!GetParam().expected);
    const Dictionary dictionary{{row.key, GetParam().number}};

    EXPECT_TRUE(config.processConfigDictionary(&dictionary)) << row.key;
    EXPECT_EQ(GetParam().expected, (config.*row.get)()) << row.key;
  }
}

struct IntegerRow {
  const char* name;
  Number number;
  std::int32_t expected;
};

class ZLNReportingConfigIntegerTest : public ConfigTest,
                                      public testing::WithParamInterface<IntegerRow> {};

INSTANTIATE_TEST_SUITE_P(
    Numbers, ZLNReportingConfigIntegerTest,
    testing::Values(IntegerRow{"Zero", Number::int64(0), 0},
                    IntegerRow{"Negative", Number::int64(-1), -1},
                    IntegerRow{"Fraction", Number::float64(2.9), 2},
                    IntegerRow{"NegativeFraction", Number::float64(-2.9), -2},
                    IntegerRow{"True", Number::boolean(true), 1},
                    IntegerRow{"False", Number::boolean(false), 0},
                    IntegerRow{"TooLargeInteger", Number::int64(4294967301), 5},
                    IntegerRow{"JustTooLargeInteger", Number::int64(2147483648),
                               std::numeric_limits<std::int32_t>::min()},
                    IntegerRow{"TooLargeReal", Number::float64(1e18),
                               std::numeric_limits<std::int32_t>::max()},
                    IntegerRow{"TooSmallReal", Number::float64(-1e18),
                               std::numeric_limits<std::int32_t>::min()},
                    IntegerRow{"NotANumber", Number::float64(std::nan("")), 0}),
    [](const auto& parameter) { return parameter.param.name; });

TEST_P(ZLNReportingConfigIntegerTest, IsTheNumberIn32Bits) {
  ZLNReportingConfig& config = beginFresh();
  const Dictionary dictionary{{kFailureLimit, GetParam().number},
                              {kUpdateInterval, GetParam().number}};

  EXPECT_TRUE(config.processConfigDictionary(&dictionary));
  EXPECT_EQ(GetParam().expected, config.reportTemporaryFailureLimit());
  EXPECT_EQ(GetParam().expected, config.configUpdateInterval());
}

struct FloatRow {
  const char* name;
  Number number;
  float expected;
};

class ZLNReportingConfigFloatTest : public ConfigTest,
                                    public testing::WithParamInterface<FloatRow> {};

INSTANTIATE_TEST_SUITE_P(Numbers, ZLNReportingConfigFloatTest,
                         testing::Values(FloatRow{"Integer", Number::int64(30), 30.0f},
                                         FloatRow{"Zero", Number::int64(0), 0.0f},
                                         FloatRow{"Negative", Number::float64(-2.5), -2.5f},
                                         FloatRow{"True", Number::boolean(true), 1.0f},
                                         FloatRow{"Narrowed", Number::float64(0.1), 0.1f},
                                         FloatRow{"NarrowedInteger", Number::int64(1700000100),
                                                  1700000128.0f},
                                         FloatRow{"TooLarge", Number::float64(1e300),
                                                  std::numeric_limits<float>::infinity()}),
                         [](const auto& parameter) { return parameter.param.name; });

TEST_P(ZLNReportingConfigFloatTest, IsTheNumberAsA32BitFloat) {
  ZLNReportingConfig& config = beginFresh();
  const Dictionary dictionary{{kInactivityLimit, GetParam().number},
                              {kBackgroundTimeout, GetParam().number}};

  EXPECT_TRUE(config.processConfigDictionary(&dictionary));
  EXPECT_EQ(GetParam().expected, config.sessionInactivityTimeLimit());
  EXPECT_EQ(GetParam().expected, config.userSessionBackgroundTimeoutSeconds());
}

struct OddValue {
  const char* name;
  Value value;
};

class ZLNReportingConfigOddValueTest : public ConfigTest,
                                       public testing::WithParamInterface<OddValue> {};

INSTANTIATE_TEST_SUITE_P(
    Kinds, ZLNReportingConfigOddValueTest,
    testing::Values(OddValue{"Text", "0"}, OddValue{"Null", Null{}},
                    OddValue{"Date", Date{1700000000}}, OddValue{"Data", Data{"0"}},
                    OddValue{"List", Array{Number::int64(0)}},
                    OddValue{"Dictionary", Dictionary{{"a", Number::int64(0)}}}),
    [](const auto& parameter) { return parameter.param.name; });

TEST_P(ZLNReportingConfigOddValueTest, LeavesEverySettingAsItWas) {
  ZLNReportingConfig& config = beginFresh();
  Dictionary dictionary;
  for (const char* key :
       {kImmediately, kOnBackgrounding, kOnForegrounding, kFailureLimit, kInactivityLimit,
        kUpdateInterval, kBackgroundTimeout, kSendStart, kSendStop, kSendFirst}) {
    dictionary.set(key, GetParam().value);
  }

  EXPECT_TRUE(config.processConfigDictionary(&dictionary));
  expectDefaults(config);
  EXPECT_THAT(newLines(), IsEmpty());
}

// Creation and the application's activation.

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

TEST_F(ZLNReportingConfigTest, StaleSettingsAreFetchedAtCreation) {
  begin();

  EXPECT_EQ(1u, env.http.requests().size());
}

TEST_F(ZLNReportingConfigTest, FreshSettingsAreNotFetchedAtCreation) {
  beginFresh();

  EXPECT_THAT(env.http.requests(), IsEmpty());
}

TEST_F(ZLNReportingConfigTest, ActivationLooksWhetherTheSettingsAreStale) {
  beginFresh();

  env.app.becomeActive();

  EXPECT_THAT(newLines(), ElementsAre("ZLN Session: Config is not stale. Update skipped."));
}

TEST_F(ZLNReportingConfigTest, ActivationFetchesStaleSettings) {
  beginFresh();
  env.clock.advance(86401);

  env.app.becomeActive();

  EXPECT_EQ(1u, env.http.requests().size());
}

TEST_F(ZLNReportingConfigTest, OtherEventsDoNotConcernIt) {
  beginFresh();
  env.clock.advance(86401);

  env.app.resignActive();
  env.app.enterBackground();
  env.app.enterForeground();
  env.app.terminate();

  EXPECT_THAT(newLines(), IsEmpty());
  EXPECT_THAT(env.http.requests(), IsEmpty());
}

TEST_F(ZLNReportingConfigTest, OneThatIsGoneFollowsTheApplicationNoLonger) {
  putSettings({});
  auto config = ZLNReportingConfig::init();
  setLevel(3);

  config.reset();
  env.app.becomeActive();

  EXPECT_THAT(newLines(), IsEmpty());
}

}  // namespace
}  // namespace zln
