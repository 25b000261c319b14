#include "reports/ZLNReportFactory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "support/endpoints.h"
#include "tests/reports/reports_in_tests.h"
#include "tests/support/host_fixture.h"

namespace zln {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ZLNReportFactoryTest : public HostTest {
 protected:
  ZLNReportFactoryTest() { env.defaults.set("com.zelnor.sessionUserId", "USER"); }
};

TEST_F(ZLNReportFactoryTest, AnEmptyDictionaryYieldsNothing) {
  EXPECT_EQ(nullptr, ZLNReportFactory::newReportFromDictionary({}));
  EXPECT_THAT(log().lines(),
              ElementsAre("ZLN Session: invalid report type value: (null) ((null))"));
}

TEST_F(ZLNReportFactoryTest, AnUnknownTypeYieldsNothing) {
  EXPECT_EQ(nullptr, ZLNReportFactory::newReportFromDictionary({{"type", "ReportTypeOther"}}));
  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: unknown report type ReportTypeOther"));
}

TEST_F(ZLNReportFactoryTest, TheLettersCaseCounts) {
  EXPECT_EQ(nullptr, ZLNReportFactory::newReportFromDictionary({{"type", "reportTypeAdAttempt"}}));
  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: unknown report type reportTypeAdAttempt"));
}

TEST_F(ZLNReportFactoryTest, APartOfATypeIsUnknown) {
  EXPECT_EQ(nullptr, ZLNReportFactory::newReportFromDictionary({{"type", "ReportTypeSession"}}));
  EXPECT_EQ(nullptr, ZLNReportFactory::newReportFromDictionary({{"type", "ReportTypeAdAttempt "}}));
  EXPECT_EQ(nullptr, ZLNReportFactory::newReportFromDictionary({{"type", ""}}));
  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: unknown report type ReportTypeSession",
                                         "ZLN Session: unknown report type ReportTypeAdAttempt ",
                                         "ZLN Session: unknown report type "));
}

struct TypeRow {
  const char* type;
  const char* className;
  const char* url;
};

class ZLNReportFactoryTypeTest : public ZLNReportFactoryTest,
                                 public testing::WithParamInterface<TypeRow> {};

INSTANTIATE_TEST_SUITE_P(
    Types, ZLNReportFactoryTypeTest,
    testing::Values(TypeRow{"ReportTypeSessionStart", "ZLNReportSessionStart", kSessionStartUrl},
                    TypeRow{"ReportTypeSessionStop", "ZLNReportSessionStop", kSessionStopUrl},
                    TypeRow{"ReportTypeSessionFirst", "ZLNReportSessionFirst", kSessionFirstUrl},
                    TypeRow{"ReportTypeAdAttempt", "ZLNReportAdAttempt", kAdAttemptUrl},
                    TypeRow{"ReportTypeAdZoneAttempt", "ZLNReportAdZoneAttempt",
                            kAdZoneAttemptUrl}),
    [](const auto& parameter) { return std::string(parameter.param.type); });

TEST_P(ZLNReportFactoryTypeTest, MakesTheKindOfTheType) {
  setLevel(5);
  const Dictionary stored{{"type", GetParam().type},
                          {"userId", "EARLIER"},
                          {"sessionId", "SESSION"},
                          {"startTime", Number::int64(1700000000)}};

  const auto report = ZLNReportFactory::newReportFromDictionary(stored);

  ASSERT_NE(nullptr, report);
  EXPECT_STREQ(GetParam().className, report->className());
  EXPECT_EQ(GetParam().url, report->urlString());
  EXPECT_EQ(Value("EARLIER"), report->userId());
  EXPECT_EQ(Value(GetParam().type), valueIn(*report, "type"));
  EXPECT_THAT(log().lines(), IsEmpty());
}

struct InvalidType {
  const char* name;
  Value type;
  const char* line;
};

class ZLNReportFactoryInvalidTypeTest : public ZLNReportFactoryTest,
                                        public testing::WithParamInterface<InvalidType> {};

INSTANTIATE_TEST_SUITE_P(
    Kinds, ZLNReportFactoryInvalidTypeTest,
    testing::Values(
        InvalidType{"Integer", Number::int64(3),
                    "ZLN Session: invalid report type value: 3 (__NSCFNumber)"},
        InvalidType{"Real", Number::float64(0.5),
                    "ZLN Session: invalid report type value: 0.5 (__NSCFNumber)"},
        InvalidType{"Boolean", Number::boolean(true),
                    "ZLN Session: invalid report type value: 1 (__NSCFBoolean)"},
        InvalidType{"Date", Date{1700000000},
                    "ZLN Session: invalid report type value: 2023-11-14 22:13:20 +0000 (__NSDate)"},
        InvalidType{"Data", Data{"ab"},
                    "ZLN Session: invalid report type value: {length = 2, bytes = 0x6162} "
                    "(NSConcreteData)"},
        InvalidType{"Array", Array{"ReportTypeAdAttempt"},
                    "ZLN Session: invalid report type value: (\n    ReportTypeAdAttempt\n) "
                    "(__NSArrayM)"},
        InvalidType{"Dictionary", Dictionary{},
                    "ZLN Session: invalid report type value: {\n} (__NSDictionaryM)"},
        InvalidType{"Null", Null{}, "ZLN Session: invalid report type value: <null> (NSNull)"}),
    [](const auto& parameter) { return parameter.param.name; });

TEST_P(ZLNReportFactoryInvalidTypeTest, YieldsNothing) {
  EXPECT_EQ(nullptr, ZLNReportFactory::newReportFromDictionary({{"type", GetParam().type}}));
  EXPECT_THAT(log().lines(), ElementsAre(GetParam().line));
}

}  // namespace
}  // namespace zln
