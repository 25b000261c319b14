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

TEST_F(AdReportTest, AnAttemptIsSerializedInOrder) {
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
  EXPECT_THAT(keysOf(*report), ElementsAre("userId", "country", "type", "device", "platform",
                                           "bundleId", "adEventId", "network", "adType", "fill"));
}

TEST_F(AdReportTest, AFilledZoneAttemptIsSerializedInOrder) {
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
  EXPECT_THAT(keysOf(*report),
              ElementsAre("userId", "country", "type", "device", "platform", "bundleId",
                          "adEventId", "network", "adType", "zoneId", "fill"));
}

TEST_F(AdReportTest, EveryAbsentArgumentIsAnInvalidArgumentAnEmptyOneIsNot) {
  const auto attempt = &ZLNReportAdAttempt::reportWithNetwork;
  const auto zoneAttempt = &ZLNReportAdZoneAttempt::reportWithNetwork;

  EXPECT_THROW(attempt(std::nullopt, "banner", false), std::invalid_argument);
  EXPECT_THROW(attempt("net", std::nullopt, false), std::invalid_argument);
  EXPECT_THROW(zoneAttempt(std::nullopt, "banner", "zone", false), std::invalid_argument);
  EXPECT_THROW(zoneAttempt("net", std::nullopt, "zone", false), std::invalid_argument);
  EXPECT_THROW(zoneAttempt("net", "banner", std::nullopt, false), std::invalid_argument);

  const auto report = attempt("", "", false);
  EXPECT_EQ(Value(""), valueIn(*report, "network"));
  EXPECT_EQ(Value(""), valueIn(*report, "adType"));
}

TEST_F(AdReportTest, AZoneInAStoredDictionaryIsNotAnAttemptsOwn) {
  const auto report = ZLNReportAdAttempt::initWithDictionary({{"zoneId", "zone"}});

  EXPECT_EQ(std::nullopt, valueIn(*report, "zoneId"));
}

TEST_F(AdReportTest, AZoneIsTakenAsItIsWhateverItsKind) {
  const auto report = ZLNReportAdZoneAttempt::initWithDictionary({{"zoneId", Number::int64(12)}});

  EXPECT_EQ(Value(Number::int64(12)), report->zoneId());
  EXPECT_EQ(Value(Number::int64(12)), valueIn(*report, "zoneId"));
}

TEST_F(AdReportTest, AStoredTypeAloneRestoresAnUnknownZoneAttempt) {
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

struct AdKind {
  const char* name;
  const char* reportType;
  const char* url;
  const char* text;
  std::shared_ptr<AdReport> (*make)(bool filled);
  std::shared_ptr<AdReport> (*initWithDictionary)(const Dictionary&);
  std::shared_ptr<AdReport> (*withBase)(std::optional<Value>);
};

std::shared_ptr<AdReport> makeAttempt(bool filled) {
  return ZLNReportAdAttempt::reportWithNetwork("net", "banner", filled);
}

std::shared_ptr<AdReport> makeZoneAttempt(bool filled) {
  return ZLNReportAdZoneAttempt::reportWithNetwork("net", "banner", "zone", filled);
}

template <typename Kind>
AdKind kindOf(const char* name, const char* reportType, const char* url, const char* text,
              std::shared_ptr<AdReport> (*make)(bool)) {
  return AdKind{name,
                reportType,
                url,
                text,
                make,
                [](const Dictionary& dictionary) -> std::shared_ptr<AdReport> {
                  return Kind::initWithDictionary(dictionary);
                },
                [](std::optional<Value> base) -> std::shared_ptr<AdReport> {
                  return std::make_shared<OddReport<Kind>>(Dictionary{}, std::move(base));
                }};
}

// Of both kinds.
class ZLNReportAdTest : public AdReportTest, public testing::WithParamInterface<AdKind> {};

const AdKind kAdKinds[] = {
    kindOf<ZLNReportAdAttempt>("Attempt", "ReportTypeAdAttempt", kAdAttemptUrl,
                               "<ZLNReportAdAttempt: 0x[0-9a-f]+>", &makeAttempt),
    kindOf<ZLNReportAdZoneAttempt>("ZoneAttempt", "ReportTypeAdZoneAttempt", kAdZoneAttemptUrl,
                                   "<ZLNReportAdZoneAttempt: 0x[0-9a-f]+>", &makeZoneAttempt)};

INSTANTIATE_TEST_SUITE_P(Kinds, ZLNReportAdTest, testing::ValuesIn(kAdKinds),
                         [](const auto& parameter) { return parameter.param.name; });

TEST_P(ZLNReportAdTest, GoesToTheEndpointOfItsKindWithAnIdentifierOfItsOwn) {
  const auto report = GetParam().make(false);

  EXPECT_EQ(GetParam().url, report->urlString());
  EXPECT_THAT(report->urlString(), MatchesRegex("https://[^/]+/session"));
  EXPECT_THAT(report->description(), MatchesRegex(GetParam().text));
  EXPECT_EQ(Value(kFirstId), report->uuid());
  EXPECT_EQ(Value(kSecondId), GetParam().make(false)->uuid());
}

TEST_P(ZLNReportAdTest, ComesBackFromTheFactoryAsItWas) {
  for (const bool filled : {true, false}) {
    const auto report = GetParam().make(filled);

    const auto restored = ZLNReportFactory::newReportFromDictionary(*report->toDictionary());

    EXPECT_EQ(filled, report->filled());
    EXPECT_THAT(restored->description(), MatchesRegex(GetParam().text));
    EXPECT_EQ(report->toDictionary(), restored->toDictionary());
  }
}

TEST_P(ZLNReportAdTest, TheEnvelopeIsThatOfTheStoredDictionaryTheTypeThatOfTheKind) {
  const auto report = GetParam().initWithDictionary(
      {{"userId", "EARLIER"}, {"country", "FR"}, {"type", "ReportTypeSessionStop"}});

  EXPECT_EQ(Value("EARLIER"), valueIn(*report, "userId"));
  EXPECT_EQ(Value("FR"), valueIn(*report, "country"));
  EXPECT_EQ(Value(GetParam().reportType), valueIn(*report, "type"));
}

TEST_P(ZLNReportAdTest, DevicePlatformAndBundleAreThoseOfTheMomentOfBuilding) {
  const auto report = GetParam().initWithDictionary(
      {{"device", "iPad1,1"}, {"platform", "visionOS"}, {"bundleId", "com.example.other"}});
  env.device.machineName = "iPhone16,1";

  EXPECT_EQ(Value("iPhone14,5"), valueIn(*report, "device"));
  EXPECT_EQ(Value("iOS"), valueIn(*report, "platform"));
  EXPECT_EQ(Value("com.example.game"), valueIn(*report, "bundleId"));
}

TEST_P(ZLNReportAdTest, ADeviceAndABundleWithoutATextLeaveTheirKeysOut) {
  env.device.bundleIdentifier = std::nullopt;
  env.device.machineName = "\xFF\xFE";

  const auto report = GetParam().initWithDictionary({{"bundleId", "com.example.other"}});

  EXPECT_EQ(std::nullopt, valueIn(*report, "bundleId"));
  EXPECT_EQ(std::nullopt, valueIn(*report, "device"));
}

TEST_P(ZLNReportAdTest, AStoredReportThatNamesNothingIsUnknownUnfilledAndWithoutAnIdentifier) {
  const auto report = GetParam().initWithDictionary({});

  EXPECT_EQ(std::nullopt, report->uuid());
  EXPECT_EQ(std::nullopt, valueIn(*report, "adEventId"));
  EXPECT_THAT(env.uuids.issued(), IsEmpty());
  EXPECT_EQ(std::nullopt, report->network());
  EXPECT_EQ(std::nullopt, report->adType());
  EXPECT_EQ(Value("unknown"), valueIn(*report, "network"));
  EXPECT_EQ(Value("unknown"), valueIn(*report, "adType"));
  EXPECT_FALSE(report->filled());
}

TEST_P(ZLNReportAdTest, TextsArePassedOnByteForByte) {
  const std::string odd = "\x01\x1f\n\"'\\/<&>\u00e9\U0001F3AE" + std::string(65536, 'x');

  const auto report = GetParam().initWithDictionary({{"network", odd}, {"adType", odd}});

  EXPECT_EQ(Value(odd), valueIn(*report, "network"));
  EXPECT_EQ(Value(odd), valueIn(*report, "adType"));
}

TEST_P(ZLNReportAdTest, ABaseThatGivesNoDictionaryLeavesNone) {
  EXPECT_EQ(std::nullopt, GetParam().withBase(std::nullopt)->toDictionary());
  EXPECT_EQ(std::nullopt, GetParam().withBase("text")->toDictionary());
  expectLines({"invalid super serialization (null) ((null))",
               "invalid super serialization text (__NSCFString)"});
}

TEST_F(AdReportTest, AStoredValueIsTakenAsItIsWhateverItsKind) {
  for (const Value& value :
       {Value(Number::int64(49)), Value(Number::float64(0.5)), Value(Number::boolean(true)),
        Value(Date{1700000000}), Value(Data{"net"}), Value(Array{"net", Number::int64(1)}),
        Value(Dictionary{{"name", "net"}})}) {
    const auto report = ZLNReportAdAttempt::initWithDictionary(
        {{"adEventId", value}, {"network", value}, {"adType", value}});

    for (const char* key : {"adEventId", "network", "adType"}) {
      EXPECT_EQ(value, valueIn(*report, key)) << key << " " << value.description();
    }
  }
}

TEST_F(AdReportTest, AStoredFillIsReadAsABoolean) {
  const std::vector<std::pair<Value, bool>> rows = {{Number::boolean(true), true},
                                                    {Number::boolean(false), false},
                                                    {Number::int64(0), false},
                                                    {Number::int64(1), true},
                                                    {Number::int64(-1), true},
                                                    {Number::float64(0.5), true},
                                                    {Number::float64(0), false},
                                                    {Number::float64(std::nan("")), true},
                                                    {"YES", true},
                                                    {"true", true},
                                                    {"y", true},
                                                    {"T", true},
                                                    {"1", true},
                                                    {" \t-007x", true},
                                                    {"+9", true},
                                                    {"no", false},
                                                    {"0", false},
                                                    {"0x1", false},
                                                    {"-", false},
                                                    {"   ", false},
                                                    {"", false},
                                                    {Date{1700000000}, false},
                                                    {Data{"1"}, false},
                                                    {Array{"1"}, false},
                                                    {Dictionary{{"fill", "1"}}, false}};
  for (const auto& [value, filled] : rows) {
    SCOPED_TRACE(value.description());

    const auto report = ZLNReportAdAttempt::initWithDictionary({{"fill", value}});

    EXPECT_EQ(filled, report->filled());
    EXPECT_EQ(Value(Number::boolean(filled)), valueIn(*report, "fill"));
  }
}

}  // namespace
}  // namespace zln
