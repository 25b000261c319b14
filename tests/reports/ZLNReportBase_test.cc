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

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Pair;

constexpr char kUrl[] = "https://reports.example.invalid/session";
constexpr char kUserIdKey[] = "com.zelnor.sessionUserId";

class ZLNReportBaseTest : public HostTest {
 protected:
  ZLNReportBaseTest() { env.defaults.set(kUserIdKey, "USER"); }
};

TEST_F(ZLNReportBaseTest, AFreshReportHasItsEndpointAndNoHistory) {
  const auto report = ZLNReportBase::initWithURLString(kUrl);

  EXPECT_EQ(kUrl, report->urlString());
  EXPECT_EQ(0, report->temporaryFailureCount());
  EXPECT_FALSE(report->followRedirects());
  EXPECT_EQ(std::nullopt, report->creationTime());
  EXPECT_EQ(std::nullopt, report->sessionId());
}

TEST_F(ZLNReportBaseTest, AFreshReportBelongsToTheInstallationAndTheCountryOfTheLocale) {
  const auto report = ZLNReportBase::initWithURLString(kUrl);

  EXPECT_EQ(Value("USER"), report->userId());
  EXPECT_EQ("DE", report->country());
}

TEST_F(ZLNReportBaseTest, AFreshReportOfANewInstallationGetsTheIdentifierThatIsStored) {
  env.defaults.erase(kUserIdKey);

  const auto report = ZLNReportBase::initWithURLString(kUrl);

  EXPECT_EQ(Value("00000000-0000-4000-8000-000000000001"), report->userId());
  EXPECT_EQ(Value("00000000-0000-4000-8000-000000000001"), env.defaults.get(kUserIdKey));
}

TEST_F(ZLNReportBaseTest, TheFirstReportBringsTheSessionManagerToLife) {
  const auto report = ZLNReportBase::initWithURLString(kUrl);

  EXPECT_EQ(1u, env.dispatch.mainCount());
}

TEST_F(ZLNReportBaseTest, AnEmptyDictionaryRestoresAFreshReport) {
  const auto report = ZLNReportBase::initWithDictionary({}, kUrl);

  EXPECT_EQ(kUrl, report->urlString());
  EXPECT_EQ(Value("USER"), report->userId());
  EXPECT_EQ("DE", report->country());
  EXPECT_EQ(0, report->temporaryFailureCount());
}

TEST_F(ZLNReportBaseTest, StoredTextsReplaceTheUserAndTheCountry) {
  const Dictionary stored{{"userId", "EARLIER"}, {"country", "FR"}};

  const auto report = ZLNReportBase::initWithDictionary(stored, kUrl);

  EXPECT_EQ(Value("EARLIER"), report->userId());
  EXPECT_EQ("FR", report->country());
}

TEST_F(ZLNReportBaseTest, EmptyStoredTextsReplaceTheUserAndTheCountry) {
  const Dictionary stored{{"userId", ""}, {"country", ""}};

  const auto report = ZLNReportBase::initWithDictionary(stored, kUrl);

  EXPECT_EQ(Value(""), report->userId());
  EXPECT_EQ("", report->country());
}

TEST_F(ZLNReportBaseTest, OneStoredTextLeavesTheOtherFieldFresh) {
  const auto report = ZLNReportBase::initWithDictionary({{"country", "FR"}}, kUrl);

  EXPECT_EQ(Value("USER"), report->userId());
  EXPECT_EQ("FR", report->country());
}

TEST_F(ZLNReportBaseTest, NothingElseIsReadFromAStoredDictionary) {
  const Dictionary stored{{"urlString", "https://elsewhere.invalid/"},
                          {"temporaryFailureCount", Number::int64(2)},
                          {"followRedirects", Number::boolean(true)},
                          {"creationTime", Number::int64(1700000000)},
                          {"sessionId", "SESSION"}};

  const auto report = ZLNReportBase::initWithDictionary(stored, kUrl);

  EXPECT_EQ(kUrl, report->urlString());
  EXPECT_EQ(0, report->temporaryFailureCount());
  EXPECT_FALSE(report->followRedirects());
  EXPECT_EQ(std::nullopt, report->creationTime());
  EXPECT_EQ(std::nullopt, report->sessionId());
}

TEST_F(ZLNReportBaseTest, TheDictionaryHoldsTheUserAndThenTheCountry) {
  const auto report = ZLNReportBase::initWithURLString(kUrl);

  const std::optional<Dictionary> dictionary = report->toDictionary();

  ASSERT_TRUE(dictionary.has_value());
  EXPECT_THAT(dictionary->entries(),
              ElementsAre(Pair("userId", Value("USER")), Pair("country", Value("DE"))));
}

TEST_F(ZLNReportBaseTest, ALocaleWithoutACountryLeavesTheKeyOut) {
  env.device.country = std::nullopt;

  const auto report = ZLNReportBase::initWithURLString(kUrl);

  EXPECT_EQ(std::nullopt, report->country());
  EXPECT_EQ((Dictionary{{"userId", "USER"}}), report->toDictionary());
}

TEST_F(ZLNReportBaseTest, WithoutAUserTheKeyIsLeftOut) {
  const auto report = ZLNReportBase::initWithURLString(kUrl);

  report->setUserId(std::nullopt);

  EXPECT_EQ((Dictionary{{"country", "DE"}}), report->toDictionary());
}

TEST_F(ZLNReportBaseTest, WithNeitherTheDictionaryIsEmpty) {
  const auto report = ZLNReportBase::initWithURLString(kUrl);

  report->setUserId(std::nullopt);
  report->setCountry(std::nullopt);

  EXPECT_EQ(Dictionary{}, report->toDictionary());
}

TEST_F(ZLNReportBaseTest, AUserIdentifierStoredAsANumberIsTakenAsItIs) {
  env.defaults.set(kUserIdKey, Number::int64(7));

  const auto report = ZLNReportBase::initWithURLString(kUrl);

  EXPECT_EQ(Value(Number::int64(7)), report->userId());
  EXPECT_EQ((Dictionary{{"userId", Number::int64(7)}, {"country", "DE"}}), report->toDictionary());
}

TEST_F(ZLNReportBaseTest, TheFailureCountIsNotInTheDictionary) {
  const auto report = ZLNReportBase::initWithURLString(kUrl);

  report->setTemporaryFailureCount(2);

  EXPECT_EQ(2, report->temporaryFailureCount());
  EXPECT_EQ((Dictionary{{"userId", "USER"}, {"country", "DE"}}), report->toDictionary());
}

TEST_F(ZLNReportBaseTest, AStoredAndRestoredReportHasNoFailuresAgain) {
  const auto report = ZLNReportAdAttempt::reportWithNetwork("net", "banner", false);
  report->setTemporaryFailureCount(2);

  const auto restored = ZLNReportFactory::newReportFromDictionary(*report->toDictionary());

  EXPECT_EQ(0, restored->temporaryFailureCount());
}

TEST_F(ZLNReportBaseTest, ItsFieldsCanBeSet) {
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

TEST_F(ZLNReportBaseTest, ItsTextIsItsKindAndItsAddress) {
  const auto report = ZLNReportBase::initWithURLString(kUrl);
  const auto other = ZLNReportBase::initWithURLString(kUrl);

  EXPECT_THAT(report->description(), MatchesRegex("<ZLNReportBase: 0x[1-9a-f][0-9a-f]*>"));
  EXPECT_EQ(report->description(), report->description());
  EXPECT_NE(report->description(), other->description());
}

struct OddValue {
  const char* name;
  Value value;
};

class ZLNReportBaseOddValueTest : public ZLNReportBaseTest,
                                  public testing::WithParamInterface<OddValue> {};

TEST_P(ZLNReportBaseOddValueTest, AStoredValueThatIsNoTextIsIgnoredWithoutAWord) {
  setLevel(5);
  const Dictionary stored{{"userId", GetParam().value}, {"country", GetParam().value}};

  const auto report = ZLNReportBase::initWithDictionary(stored, kUrl);

  EXPECT_EQ(Value("USER"), report->userId());
  EXPECT_EQ("DE", report->country());
  EXPECT_THAT(log().lines(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, ZLNReportBaseOddValueTest,
    testing::Values(OddValue{"Integer", Number::int64(49)}, OddValue{"Real", Number::float64(0.5)},
                    OddValue{"Boolean", Number::boolean(true)}, OddValue{"Date", Date{1700000000}},
                    OddValue{"Data", Data{"DE"}}, OddValue{"Array", Array{"DE"}},
                    OddValue{"Dictionary", Dictionary{{"country", "FR"}}}),
    [](const auto& parameter) { return parameter.param.name; });

}  // namespace
}  // namespace zln
