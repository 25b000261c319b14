#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "reports/ZLNReportAdAttempt.h"
#include "reports/ZLNReportAdZoneAttempt.h"
#include "reports/ZLNReportFactory.h"
#include "support/endpoints.h"
#include "tests/reports/reports_in_tests.h"
#include "tests/support/host_fixture.h"

namespace zln {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

constexpr char kFirstId[] = "00000000-0000-4000-8000-000000000001";
constexpr char kSecondId[] = "00000000-0000-4000-8000-000000000002";

class AdReportTest : public HostTest {
 protected:
  AdReportTest() { env.defaults.set("com.zelnor.sessionUserId", "USER"); }

  static std::vector<std::string> keysOf(const AdReport& report) {
    std::vector<std::string> keys;
    const std::optional<Dictionary> dictionary = report.toDictionary();
    for (const auto& [key, value] : dictionary->entries()) keys.push_back(key);
    return keys;
  }
};

using ZLNReportAdAttemptTest = AdReportTest;

TEST_F(ZLNReportAdAttemptTest, GoesToTheEndpointOfItsKind) {
  const auto report = ZLNReportAdAttempt::reportWithNetwork("net", "banner", false);

  EXPECT_EQ(kAdAttemptUrl, report->urlString());
  EXPECT_THAT(report->urlString(), MatchesRegex("https://[^/]+/session"));
}

TEST_F(ZLNReportAdAttemptTest, SerializesAnUnfilledBanner) {
  const auto report = ZLNReportAdAttempt::reportWithNetwork("net", "banner", false);

  EXPECT_EQ((Dictionary{{"userId", "USER"},
                        {"country", "DE"},
                        {"type", "ReportTypeAdAttempt"},
                        {"device", "iPhone14,5"},
                        {"platform", "iOS"},
                        {"bundleId", "com.example.game"},
                        {"adEventId", kFirstId},
                        {"network", "net"},
                        {"adType", "banner"},
                        {"fill", Number::boolean(false)}}),
            report->toDictionary());
}

TEST_F(ZLNReportAdAttemptTest, SerializesAFilledAttempt) {
  const auto report = ZLNReportAdAttempt::reportWithNetwork("net", "rewarded", true);

  EXPECT_TRUE(report->filled());
  EXPECT_EQ(Value(Number::boolean(true)), valueIn(*report, "fill"));
}

TEST_F(ZLNReportAdAttemptTest, SerializesItsKeysInOrder) {
  const auto report = ZLNReportAdAttempt::reportWithNetwork("net", "banner", false);

  EXPECT_THAT(keysOf(*report), ElementsAre("userId", "country", "type", "device", "platform",
                                           "bundleId", "adEventId", "network", "adType", "fill"));
}

TEST_F(ZLNReportAdAttemptTest, EveryAttemptHasAnIdentifierOfItsOwn) {
  const auto first = ZLNReportAdAttempt::reportWithNetwork("net", "banner", false);
  const auto second = ZLNReportAdAttempt::reportWithNetwork("net", "banner", false);

  EXPECT_EQ(Value(kFirstId), first->uuid());
  EXPECT_EQ(Value(kSecondId), second->uuid());
}

TEST_F(ZLNReportAdAttemptTest, AnAbsentNetworkIsAnInvalidArgument) {
  EXPECT_THROW(ZLNReportAdAttempt::reportWithNetwork(std::nullopt, "banner", false),
               std::invalid_argument);
}

TEST_F(ZLNReportAdAttemptTest, AnAbsentAdTypeIsAnInvalidArgument) {
  EXPECT_THROW(ZLNReportAdAttempt::reportWithNetwork("net", std::nullopt, false),
               std::invalid_argument);
}

TEST_F(ZLNReportAdAttemptTest, EmptyArgumentsArePresent) {
  const auto report = ZLNReportAdAttempt::reportWithNetwork("", "", false);

  EXPECT_EQ(Value(""), valueIn(*report, "network"));
  EXPECT_EQ(Value(""), valueIn(*report, "adType"));
}

TEST_F(ZLNReportAdAttemptTest, WithoutAStoredFillItIsNotFilled) {
  EXPECT_FALSE(ZLNReportAdAttempt::initWithDictionary({})->filled());
}

TEST_F(ZLNReportAdAttemptTest, AZoneInAStoredDictionaryIsNotItsOwn) {
  const auto report = ZLNReportAdAttempt::initWithDictionary({{"zoneId", "zone"}});

  EXPECT_EQ(std::nullopt, valueIn(*report, "zoneId"));
}

TEST_F(ZLNReportAdAttemptTest, ComesBackFromTheFactoryAsItWas) {
  const auto report = ZLNReportAdAttempt::reportWithNetwork("net", "banner", true);

  const auto restored = ZLNReportFactory::newReportFromDictionary(*report->toDictionary());

  EXPECT_NE(nullptr, std::dynamic_pointer_cast<ZLNReportAdAttempt>(restored));
  EXPECT_EQ(report->toDictionary(), restored->toDictionary());
}

TEST_F(ZLNReportAdAttemptTest, ItsTextIsItsKindAndItsAddress) {
  const auto report = ZLNReportAdAttempt::initWithDictionary({});

  EXPECT_THAT(report->description(), MatchesRegex("<ZLNReportAdAttempt: 0x[0-9a-f]+>"));
}

using ZLNReportAdZoneAttemptTest = AdReportTest;

TEST_F(ZLNReportAdZoneAttemptTest, GoesToTheEndpointOfItsKind) {
  const auto report = ZLNReportAdZoneAttempt::reportWithNetwork("net", "banner", "zone", false);

  EXPECT_EQ(kAdZoneAttemptUrl, report->urlString());
  EXPECT_THAT(report->urlString(), MatchesRegex("https://[^/]+/session"));
}

TEST_F(ZLNReportAdZoneAttemptTest, SerializesAFilledInterstitial) {
  const auto report =
      ZLNReportAdZoneAttempt::reportWithNetwork("net", "interstitial", "zone", true);

  EXPECT_EQ((Dictionary{{"userId", "USER"},
                        {"country", "DE"},
                        {"type", "ReportTypeAdZoneAttempt"},
                        {"device", "iPhone14,5"},
                        {"platform", "iOS"},
                        {"bundleId", "com.example.game"},
                        {"adEventId", kFirstId},
                        {"network", "net"},
                        {"adType", "interstitial"},
                        {"zoneId", "zone"},
                        {"fill", Number::boolean(true)}}),
            report->toDictionary());
}

TEST_F(ZLNReportAdZoneAttemptTest, SerializesItsKeysInOrder) {
  const auto report = ZLNReportAdZoneAttempt::reportWithNetwork("net", "banner", "zone", false);

  EXPECT_THAT(keysOf(*report),
              ElementsAre("userId", "country", "type", "device", "platform", "bundleId",
                          "adEventId", "network", "adType", "zoneId", "fill"));
}

TEST_F(ZLNReportAdZoneAttemptTest, EveryAttemptHasAnIdentifierOfItsOwn) {
  const auto first = ZLNReportAdZoneAttempt::reportWithNetwork("net", "banner", "zone", false);
  const auto second = ZLNReportAdZoneAttempt::reportWithNetwork("net", "banner", "zone", false);

  EXPECT_EQ(Value(kFirstId), first->uuid());
  EXPECT_EQ(Value(kSecondId), second->uuid());
}

TEST_F(ZLNReportAdZoneAttemptTest, EveryAbsentArgumentIsAnInvalidArgument) {
  EXPECT_THROW(ZLNReportAdZoneAttempt::reportWithNetwork(std::nullopt, "banner", "zone", false),
               std::invalid_argument);
  EXPECT_THROW(ZLNReportAdZoneAttempt::reportWithNetwork("net", std::nullopt, "zone", false),
               std::invalid_argument);
  EXPECT_THROW(ZLNReportAdZoneAttempt::reportWithNetwork("net", "banner", std::nullopt, false),
               std::invalid_argument);
}

TEST_F(ZLNReportAdZoneAttemptTest, AStoredTypeAloneRestoresAnUnknownAttempt) {
  const auto report =
      ZLNReportFactory::newReportFromDictionary({{"type", "ReportTypeAdZoneAttempt"}});

  EXPECT_EQ((Dictionary{{"userId", "USER"},
                        {"country", "DE"},
                        {"type", "ReportTypeAdZoneAttempt"},
                        {"device", "iPhone14,5"},
                        {"platform", "iOS"},
                        {"bundleId", "com.example.game"},
                        {"network", "unknown"},
                        {"adType", "unknown"},
                        {"zoneId", "unknown"},
                        {"fill", Number::boolean(false)}}),
            report->toDictionary());
  EXPECT_THAT(env.uuids.issued(), IsEmpty());
}

TEST_F(ZLNReportAdZoneAttemptTest, TheZoneIsTakenAsItIsWhateverItsKind) {
  const auto report = ZLNReportAdZoneAttempt::initWithDictionary({{"zoneId", Number::int64(12)}});

  EXPECT_EQ(Value(Number::int64(12)), report->zoneId());
  EXPECT_EQ(Value(Number::int64(12)), valueIn(*report, "zoneId"));
}

TEST_F(ZLNReportAdZoneAttemptTest, ComesBackFromTheFactoryAsItWas) {
  const auto report = ZLNReportAdZoneAttempt::reportWithNetwork("net", "banner", "zone", true);

  const auto restored = ZLNReportFactory::newReportFromDictionary(*report->toDictionary());

  EXPECT_NE(nullptr, std::dynamic_pointer_cast<ZLNReportAdZoneAttempt>(restored));
  EXPECT_EQ(report->toDictionary(), restored->toDictionary());
}

TEST_F(ZLNReportAdZoneAttemptTest, ItsTextIsItsKindAndItsAddress) {
  const auto report = ZLNReportAdZoneAttempt::initWithDictionary({});

  EXPECT_THAT(report->description(), MatchesRegex("<ZLNReportAdZoneAttempt: 0x[0-9a-f]+>"));
}

struct AdKind {
  const char* name;
  const char* reportType;
  std::shared_ptr<AdReport> (*initWithDictionary)(const Dictionary&);
  std::shared_ptr<AdReport> (*withBase)(std::optional<Value>);
};

template <typename Kind>
AdKind kindOf(const char* name, const char* reportType) {
  return AdKind{name, reportType,
                [](const Dictionary& dictionary) -> std::shared_ptr<AdReport> {
                  return Kind::initWithDictionary(dictionary);
                },
                [](std::optional<Value> base) -> std::shared_ptr<AdReport> {
                  return std::make_shared<OddReport<Kind>>(Dictionary{}, std::move(base));
                }};
}

// Of both kinds.
class ZLNReportAdTest : public AdReportTest, public testing::WithParamInterface<AdKind> {};

INSTANTIATE_TEST_SUITE_P(
    Kinds, ZLNReportAdTest,
    testing::Values(kindOf<ZLNReportAdAttempt>("Attempt", "ReportTypeAdAttempt"),
                    kindOf<ZLNReportAdZoneAttempt>("ZoneAttempt", "ReportTypeAdZoneAttempt")),
    [](const auto& parameter) { return parameter.param.name; });

TEST_P(ZLNReportAdTest, TheTypeIsThatOfTheKindWhateverIsStored) {
  const auto report = GetParam().initWithDictionary({{"type", "ReportTypeSessionStop"}});

  EXPECT_EQ(Value(GetParam().reportType), valueIn(*report, "type"));
}

TEST_P(ZLNReportAdTest, TheEnvelopeIsThatOfTheStoredDictionary) {
  const auto report = GetParam().initWithDictionary({{"userId", "EARLIER"}, {"country", "FR"}});

  EXPECT_EQ(Value("EARLIER"), valueIn(*report, "userId"));
  EXPECT_EQ(Value("FR"), valueIn(*report, "country"));
}

TEST_P(ZLNReportAdTest, DevicePlatformAndBundleAreThoseOfTheSendingInstallation) {
  const auto report = GetParam().initWithDictionary(
      {{"device", "iPad1,1"}, {"platform", "visionOS"}, {"bundleId", "com.example.other"}});

  EXPECT_EQ(Value("iPhone14,5"), valueIn(*report, "device"));
  EXPECT_EQ(Value("iOS"), valueIn(*report, "platform"));
  EXPECT_EQ(Value("com.example.game"), valueIn(*report, "bundleId"));
}

TEST_P(ZLNReportAdTest, TheDeviceIsThatOfTheMomentOfBuilding) {
  const auto report = GetParam().initWithDictionary({});

  env.device.machineName = "iPhone16,1";

  EXPECT_EQ(Value("iPhone14,5"), valueIn(*report, "device"));
}

TEST_P(ZLNReportAdTest, AnApplicationWithoutABundleIdentifierLeavesTheKeyOut) {
  env.device.bundleIdentifier = std::nullopt;

  const auto report = GetParam().initWithDictionary({{"bundleId", "com.example.other"}});

  EXPECT_EQ(std::nullopt, valueIn(*report, "bundleId"));
}

TEST_P(ZLNReportAdTest, ADeviceWhoseNameIsNoTextLeavesTheKeyOut) {
  env.device.machineName = "\xFF\xFE";

  const auto report = GetParam().initWithDictionary({});

  EXPECT_EQ(std::nullopt, valueIn(*report, "device"));
}

TEST_P(ZLNReportAdTest, AStoredReportWithoutAnIdentifierGetsNone) {
  const auto report = GetParam().initWithDictionary({{"network", "net"}});

  EXPECT_EQ(std::nullopt, report->uuid());
  EXPECT_EQ(std::nullopt, valueIn(*report, "adEventId"));
  EXPECT_THAT(env.uuids.issued(), IsEmpty());
}

TEST_P(ZLNReportAdTest, AStoredReportWithoutNetworkAndAdTypeIsUnknown) {
  const auto report = GetParam().initWithDictionary({});

  EXPECT_EQ(std::nullopt, report->network());
  EXPECT_EQ(std::nullopt, report->adType());
  EXPECT_EQ(Value("unknown"), valueIn(*report, "network"));
  EXPECT_EQ(Value("unknown"), valueIn(*report, "adType"));
}

TEST_P(ZLNReportAdTest, TextsArePassedOnByteForByte) {
  const std::string odd = "\x01\x1f\n\"'\\/<&>\u00e9\U0001F3AE" + std::string(65536, 'x');

  const auto report = GetParam().initWithDictionary({{"network", odd}, {"adType", odd}});

  EXPECT_EQ(Value(odd), valueIn(*report, "network"));
  EXPECT_EQ(Value(odd), valueIn(*report, "adType"));
}

TEST_P(ZLNReportAdTest, ABaseThatGivesNothingLeavesNoDictionary) {
  const auto report = GetParam().withBase(std::nullopt);

  EXPECT_EQ(std::nullopt, report->toDictionary());
  EXPECT_THAT(log().lines(),
              ElementsAre("ZLN Session: invalid super serialization (null) ((null))"));
}

TEST_P(ZLNReportAdTest, ABaseThatGivesNoDictionaryLeavesNone) {
  const auto report = GetParam().withBase("text");

  EXPECT_EQ(std::nullopt, report->toDictionary());
  EXPECT_THAT(log().lines(),
              ElementsAre("ZLN Session: invalid super serialization text (__NSCFString)"));
}

struct StoredValue {
  const char* name;
  Value value;
};

class ZLNReportAdStoredValueTest : public AdReportTest,
                                   public testing::WithParamInterface<StoredValue> {};

INSTANTIATE_TEST_SUITE_P(Kinds, ZLNReportAdStoredValueTest,
                         testing::Values(StoredValue{"Integer", Number::int64(49)},
                                         StoredValue{"Real", Number::float64(0.5)},
                                         StoredValue{"Boolean", Number::boolean(true)},
                                         StoredValue{"Date", Date{1700000000}},
                                         StoredValue{"Data", Data{"net"}},
                                         StoredValue{"Array", Array{"net", Number::int64(1)}},
                                         StoredValue{"Dictionary", Dictionary{{"name", "net"}}}),
                         [](const auto& parameter) { return parameter.param.name; });

TEST_P(ZLNReportAdStoredValueTest, IsTakenAsItIs) {
  const Value& value = GetParam().value;

  const auto report = ZLNReportAdAttempt::initWithDictionary(
      {{"adEventId", value}, {"network", value}, {"adType", value}});

  EXPECT_EQ(value, valueIn(*report, "adEventId"));
  EXPECT_EQ(value, valueIn(*report, "network"));
  EXPECT_EQ(value, valueIn(*report, "adType"));
}

struct StoredFill {
  const char* name;
  Value value;
  bool filled;
};

class ZLNReportAdStoredFillTest : public AdReportTest,
                                  public testing::WithParamInterface<StoredFill> {};

INSTANTIATE_TEST_SUITE_P(
    Values, ZLNReportAdStoredFillTest,
    testing::Values(
        StoredFill{"True", Number::boolean(true), true},
        StoredFill{"False", Number::boolean(false), false},
        StoredFill{"Zero", Number::int64(0), false}, StoredFill{"One", Number::int64(1), true},
        StoredFill{"Negative", Number::int64(-1), true},
        StoredFill{"Half", Number::float64(0.5), true},
        StoredFill{"RealZero", Number::float64(0), false},
        StoredFill{"NotANumber", Number::float64(std::nan("")), true},
        StoredFill{"TextYes", "YES", true}, StoredFill{"TextTrue", "true", true},
        StoredFill{"TextLowerY", "y", true}, StoredFill{"TextUpperT", "T", true},
        StoredFill{"TextOne", "1", true}, StoredFill{"TextSignedZeros", " \t-007x", true},
        StoredFill{"TextPlusNine", "+9", true}, StoredFill{"TextNo", "no", false},
        StoredFill{"TextZero", "0", false}, StoredFill{"TextZeroThenLetter", "0x1", false},
        StoredFill{"TextSignAlone", "-", false}, StoredFill{"TextBlanks", "   ", false},
        StoredFill{"TextEmpty", "", false}, StoredFill{"Date", Date{1700000000}, false},
        StoredFill{"Data", Data{"1"}, false}, StoredFill{"Array", Array{"1"}, false},
        StoredFill{"Dictionary", Dictionary{{"fill", "1"}}, false}),
    [](const auto& parameter) { return parameter.param.name; });

TEST_P(ZLNReportAdStoredFillTest, IsReadAsABoolean) {
  const auto report = ZLNReportAdAttempt::initWithDictionary({{"fill", GetParam().value}});

  EXPECT_EQ(GetParam().filled, report->filled());
  EXPECT_EQ(Value(Number::boolean(GetParam().filled)), valueIn(*report, "fill"));
}

}  // namespace
}  // namespace zln
