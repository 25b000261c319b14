#include "reports/ZLNReportFactory.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/endpoints.h"
#include "tests/reports/reports_in_tests.h"
#include "tests/support/host_fixture.h"

namespace zln {
namespace {

class ZLNReportFactoryTest : public HostTest {
 protected:
  ZLNReportFactoryTest() { env.defaults.set("com.zelnor.sessionUserId", "USER"); }
};

TEST_F(ZLNReportFactoryTest, WithoutOneOfTheTypesLetterForLetterThereIsNoReport) {
  struct Row {
    Dictionary stored;
    const char* line;
  };
  const std::vector<Row> rows = {
      {{}, "invalid report type value: (null) ((null))"},
      {{{"type", "ReportTypeOther"}}, "unknown report type ReportTypeOther"},
      {{{"type", "reportTypeAdAttempt"}}, "unknown report type reportTypeAdAttempt"},
      {{{"type", "ReportTypeSession"}}, "unknown report type ReportTypeSession"},
      {{{"type", "ReportTypeAdAttempt "}}, "unknown report type ReportTypeAdAttempt "},
      {{{"type", ""}}, "unknown report type "},
      {{{"type", Number::int64(3)}}, "invalid report type value: 3 (__NSCFNumber)"},
      {{{"type", Number::float64(0.5)}}, "invalid report type value: 0.5 (__NSCFNumber)"},
      {{{"type", Number::boolean(true)}}, "invalid report type value: 1 (__NSCFBoolean)"},
      {{{"type", Date{1700000000}}},
       "invalid report type value: 2023-11-14 22:13:20 +0000 (__NSDate)"},
      {{{"type", Data{"ab"}}},
       "invalid report type value: {length = 2, bytes = 0x6162} (NSConcreteData)"},
      {{{"type", Array{"ReportTypeAdAttempt"}}},
       "invalid report type value: (\n    ReportTypeAdAttempt\n) (__NSArrayM)"},
      {{{"type", Dictionary{}}}, "invalid report type value: {\n} (__NSDictionaryM)"},
      {{{"type", Null{}}}, "invalid report type value: <null> (NSNull)"}};
  for (const auto& [stored, line] : rows) {
    EXPECT_EQ(nullptr, ZLNReportFactory::newReportFromDictionary(stored));
    expectLines({line});
  }
}

TEST_F(ZLNReportFactoryTest, MakesTheKindOfTheType) {
  struct Row {
    const char* type;
    const char* className;
    const char* url;
  };
  constexpr Row kRows[] = {
      {"ReportTypeSessionStart", "ZLNReportSessionStart", kSessionStartUrl},
      {"ReportTypeSessionStop", "ZLNReportSessionStop", kSessionStopUrl},
      {"ReportTypeSessionFirst", "ZLNReportSessionFirst", kSessionFirstUrl},
      {"ReportTypeAdAttempt", "ZLNReportAdAttempt", kAdAttemptUrl},
      {"ReportTypeAdZoneAttempt", "ZLNReportAdZoneAttempt", kAdZoneAttemptUrl}};
  setLevel(5);
  for (const auto& [type, className, url] : kRows) {
    const auto report =
        ZLNReportFactory::newReportFromDictionary({{"type", type},
                                                   {"userId", "EARLIER"},
                                                   {"sessionId", "SESSION"},
                                                   {"startTime", Number::int64(1700000000)}});

    ASSERT_NE(nullptr, report) << type;
    EXPECT_STREQ(className, report->className());
    EXPECT_EQ(url, report->urlString());
    EXPECT_EQ(Value("EARLIER"), report->userId());
    EXPECT_EQ(Value(type), valueIn(*report, "type"));
    expectLines({});
  }
}

}  // namespace
}  // namespace zln
