#include "reports/ZLNReportBase.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>

#include "reports/ZLNReportAdAttempt.h"
#include "reports/ZLNReportFactory.h"
#include "tests/support/host_fixture.h"

namespace zln {
namespace {

using testing::MatchesRegex;

constexpr char kUrl[] = "https://reports.example.invalid/session";
constexpr char kUserIdKey[] = "com.zelnor.sessionUserId";

class ZLNReportBaseTest : public HostTest {
 protected:
  ZLNReportBaseTest() { env.defaults.set(kUserIdKey, "USER"); }

  static void expectEnvelope(const Value& userId, const std::optional<std::string>& country,
                             const ZLNReportBase& report) {
    EXPECT_EQ(userId, report.userId());
    EXPECT_EQ(country, report.country());
  }

  static void expectNoHistory(const ZLNReportBase& report) {
    EXPECT_EQ(kUrl, report.urlString());
    EXPECT_EQ(0, report.temporaryFailureCount());
    EXPECT_FALSE(report.followRedirects());
    EXPECT_EQ(std::nullopt, report.creationTime());
    EXPECT_EQ(std::nullopt, report.sessionId());
  }
};

TEST_F(ZLNReportBaseTest, AFreshReportBelongsToTheInstallationAndTheCountryOfTheLocale) {
  const auto report = ZLNReportBase::initWithURLString(kUrl);

  expectEnvelope("USER", "DE", *report);
  expectNoHistory(*report);
}

TEST_F(ZLNReportBaseTest, TheFirstReportBringsTheSessionManagerAndAnIdentifierToLife) {
  env.defaults.erase(kUserIdKey);

  const auto report = ZLNReportBase::initWithURLString(kUrl);

  EXPECT_EQ(Value("00000000-0000-4000-8000-000000000001"), report->userId());
  EXPECT_EQ(Value("00000000-0000-4000-8000-000000000001"), env.defaults.get(kUserIdKey, nullptr));
  EXPECT_EQ(1u, env.dispatch.mainCount());
}

TEST_F(ZLNReportBaseTest, StoredTextsReplaceTheUserAndTheCountry) {
  expectEnvelope("USER", "DE", *ZLNReportBase::initWithDictionary({}, kUrl));
  expectEnvelope(
      "EARLIER", "FR",
      *ZLNReportBase::initWithDictionary({{"userId", "EARLIER"}, {"country", "FR"}}, kUrl));
  expectEnvelope("", "",
                 *ZLNReportBase::initWithDictionary({{"userId", ""}, {"country", ""}}, kUrl));
  expectEnvelope("USER", "FR", *ZLNReportBase::initWithDictionary({{"country", "FR"}}, kUrl));
}

TEST_F(ZLNReportBaseTest, AStoredValueThatIsNoTextIsIgnoredWithoutAWord) {
  setLevel(5);
  for (const Value& value :
       {Value(Number::int64(49)), Value(Number::float64(0.5)), Value(Number::boolean(true)),
        Value(Date{1700000000}), Value(Data{"DE"}), Value(Array{"DE"}),
        Value(Dictionary{{"country", "FR"}})}) {
    SCOPED_TRACE(value.description());

    const auto report =
        ZLNReportBase::initWithDictionary({{"userId", value}, {"country", value}}, kUrl);

    expectEnvelope("USER", "DE", *report);
    expectLines({});
  }
}

TEST_F(ZLNReportBaseTest, NothingElseIsReadFromAStoredDictionary) {
  const Dictionary stored{{"urlString", "https://elsewhere.invalid/"},
                          {"temporaryFailureCount", Number::int64(2)},
                          {"followRedirects", Number::boolean(true)},
                          {"creationTime", Number::int64(1700000000)},
                          {"sessionId", "SESSION"}};

  expectNoHistory(*ZLNReportBase::initWithDictionary(stored, kUrl));
}

TEST_F(ZLNReportBaseTest, TheDictionaryHoldsTheUserAndThenTheCountryWhereTheyArePresent) {
  const auto report = ZLNReportBase::initWithURLString(kUrl);

  const std::optional<Dictionary> dictionary = report->toDictionary();

  EXPECT_EQ((Dictionary{{"userId", "USER"}, {"country", "DE"}}), dictionary);
  EXPECT_EQ("userId", dictionary->entries()[0].first);

  report->setUserId(std::nullopt);

  EXPECT_EQ((Dictionary{{"country", "DE"}}), report->toDictionary());

  report->setCountry(std::nullopt);

  EXPECT_EQ(Dictionary{}, report->toDictionary());
}

TEST_F(ZLNReportBaseTest, ALocaleWithoutACountryLeavesTheKeyOut) {
  env.device.country = std::nullopt;

  const auto report = ZLNReportBase::initWithURLString(kUrl);

  EXPECT_EQ(std::nullopt, report->country());
  EXPECT_EQ((Dictionary{{"userId", "USER"}}), report->toDictionary());
}

TEST_F(ZLNReportBaseTest, TheUserAndTheCountryAloneAreInTheDictionary) {
  const auto report = ZLNReportBase::initWithURLString(kUrl);

  report->setFollowRedirects(true);
  report->setTemporaryFailureCount(-2147483647);
  report->setUrlString("https://other.invalid/session");
  report->setCreationTime(Date{1700000000.5});
  report->setUserId("OTHER");
  report->setCountry("419");

  EXPECT_TRUE(report->followRedirects());
  EXPECT_EQ(-2147483647, report->temporaryFailureCount());
  EXPECT_EQ("https://other.invalid/session", report->urlString());
  EXPECT_EQ(Date{1700000000.5}, report->creationTime());
  EXPECT_EQ((Dictionary{{"userId", "OTHER"}, {"country", "419"}}), report->toDictionary());
}

TEST_F(ZLNReportBaseTest, AStoredAndRestoredReportHasNoFailuresAgain) {
  const auto report = ZLNReportAdAttempt::reportWithNetwork("net", "banner", false);
  report->setTemporaryFailureCount(2);

  const auto restored = ZLNReportFactory::newReportFromDictionary(*report->toDictionary());

  EXPECT_EQ(0, restored->temporaryFailureCount());
}

TEST_F(ZLNReportBaseTest, ItsTextIsItsKindAndItsAddress) {
  const auto report = ZLNReportBase::initWithURLString(kUrl);
  const auto other = ZLNReportBase::initWithURLString(kUrl);

  EXPECT_THAT(report->description(), MatchesRegex("<ZLNReportBase: 0x[1-9a-f][0-9a-f]*>"));
  EXPECT_EQ(report->description(), report->description());
  EXPECT_NE(report->description(), other->description());
}

}  // namespace
}  // namespace zln
