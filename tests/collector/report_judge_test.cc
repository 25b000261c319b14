#include "collector/report_judge.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/collector/report_samples.h"

namespace zln::collector {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class ReportJudgeTest : public testing::Test {
 protected:
  // The codes of what is found about a report, which is then remembered.
  std::vector<std::string> codesOf(const std::string& report) {
    std::vector<std::string> codes;
    for (const Finding& finding : take(report)) codes.push_back(finding.code);
    return codes;
  }

  std::vector<Finding> take(const std::string& report) {
    const ReportFacts facts = factsOf(Json(report));
    auto findings = judge_.judge(facts);
    resolved_ = judge_.remember(++id_, facts);
    return findings;
  }

  ReportJudge judge_;
  std::int64_t id_ = 0;
  std::vector<std::int64_t> resolved_;  // By the last report.
};

TEST_F(ReportJudgeTest, HasNothingToSayAboutAnOrdinaryDay) {
  EXPECT_THAT(codesOf(sessionFirst(1, 1)), IsEmpty());
  EXPECT_THAT(codesOf(adAttempt(1, 1)), IsEmpty());
  EXPECT_THAT(codesOf(adZoneAttempt(1, 2)), IsEmpty());
  EXPECT_THAT(codesOf(sessionStop(1, 1)), IsEmpty());
  EXPECT_THAT(codesOf(sessionStart(1, 2)), IsEmpty());
  EXPECT_THAT(codesOf(sessionStop(1, 2)), IsEmpty());
}

TEST_F(ReportJudgeTest, KnowsARepeatedSessionReportBySessionAndType) {
  take(sessionStart(1, 1));
  take(sessionStop(1, 1));

  const auto findings = take(with(sessionStop(2, 1), R"({"os":"13"})"));

  ASSERT_EQ(1u, findings.size());
  EXPECT_EQ("duplicate", findings[0].code);
  EXPECT_EQ(Severity::kNotice, findings[0].severity);
  EXPECT_THAT(findings[0].text, HasSubstr("number 2"));
}

TEST_F(ReportJudgeTest, KnowsARepeatedAdAttemptByItsEvent) {
  take(adAttempt(1, 1));

  EXPECT_THAT(codesOf(adAttempt(1, 2)), IsEmpty());
  EXPECT_THAT(codesOf(adAttempt(1, 1)), ElementsAre("duplicate"));
  EXPECT_THAT(codesOf(adZoneAttempt(1, 1)), ElementsAre("duplicate"));
}

TEST_F(ReportJudgeTest, TakesAnEventAndASessionOfOneNameForTwoThings) {
  take(sessionStart(7, 7));

  EXPECT_THAT(codesOf(adAttempt(7, 7)), IsEmpty());
}

TEST_F(ReportJudgeTest, CannotTellRepeatsOfAdAttemptsWithoutEvent) {
  const std::string report = without(adAttempt(1, 1), "adEventId");
  take(report);

  EXPECT_THAT(codesOf(report), IsEmpty());
}

TEST_F(ReportJudgeTest, FindsASecondFirstSessionOfAnInstallation) {
  take(sessionFirst(1, 1));

  const auto findings = take(sessionFirst(1, 2));

  ASSERT_EQ(1u, findings.size());
  EXPECT_EQ("second-first-session", findings[0].code);
  EXPECT_EQ(Severity::kError, findings[0].severity);
  EXPECT_THAT(findings[0].text, HasSubstr("number 1"));
  EXPECT_THAT(codesOf(sessionFirst(2, 3)), IsEmpty());
}

TEST_F(ReportJudgeTest, TakesARepeatedFirstSessionForNoSecondOne) {
  take(sessionFirst(1, 1));
  take(sessionFirst(1, 2));

  EXPECT_THAT(codesOf(sessionFirst(1, 1)), ElementsAre("duplicate"));
  EXPECT_THAT(codesOf(sessionFirst(1, 2)), ElementsAre("duplicate"));
}

TEST_F(ReportJudgeTest, WarnsOfAStopWithoutStart) {
  take(sessionStart(1, 1));

  const auto findings = take(sessionStop(1, 2));

  ASSERT_EQ(1u, findings.size());
  EXPECT_EQ("stop-without-start", findings[0].code);
  EXPECT_EQ(Severity::kWarning, findings[0].severity);
}

TEST_F(ReportJudgeTest, NamesTheStopsWhenTheirStartComesLater) {
  take(sessionStop(1, 1));
  take(sessionStop(1, 2));
  take(sessionStop(1, 1));
  take(adAttempt(1, 3));
  EXPECT_THAT(resolved_, IsEmpty());

  take(sessionStart(1, 1));
  EXPECT_THAT(resolved_, ElementsAre(1, 3));
  take(sessionFirst(1, 2));
  EXPECT_THAT(resolved_, ElementsAre(2));

  take(sessionStart(1, 1));
  EXPECT_THAT(resolved_, IsEmpty());
}

TEST_F(ReportJudgeTest, FindsAStopBeforeItsStart) {
  take(sessionStart(1, 1));

  const auto findings =
      take(with(sessionStop(1, 1), R"({"startTime":1795238204.744,"stopTime":1795238204.743})"));

  ASSERT_EQ(1u, findings.size());
  EXPECT_EQ("stop-before-start", findings[0].code);
  EXPECT_EQ(Severity::kError, findings[0].severity);
}

TEST_F(ReportJudgeTest, AllowsASessionOfNoTime) {
  take(sessionStart(1, 1));

  EXPECT_THAT(
      codesOf(with(sessionStop(1, 1), R"({"startTime":1795238204.5,"stopTime":1795238204.5})")),
      IsEmpty());
}

TEST_F(ReportJudgeTest, NoticesDatesThatStoringRounded) {
  // 14025299 times 128.
  const auto findings = take(with(sessionStart(1, 1), R"({"startTime":1795238272})"));

  ASSERT_EQ(1u, findings.size());
  EXPECT_EQ("rounded-date", findings[0].code);
  EXPECT_EQ(Severity::kNotice, findings[0].severity);
  EXPECT_THAT(findings[0].text, HasSubstr("startTime"));
}

TEST_F(ReportJudgeTest, NoticesBothDatesOfAStop) {
  take(sessionStart(1, 1));

  EXPECT_THAT(
      codesOf(with(sessionStop(1, 1), R"({"startTime":1795238272,"stopTime":1795238400.0})")),
      ElementsAre("rounded-date", "rounded-date"));
}

TEST_F(ReportJudgeTest, NoticesNoOtherDates) {
  int session = 1;
  for (const std::string date :
       {"0", "128", "1795238273", "1795238272.5", "-256", "\"1795238272\"", "null"}) {
    const std::string start = R"({"startTime":)" + date + "}";
    EXPECT_THAT(codesOf(with(sessionStart(1, ++session), start)), IsEmpty()) << date;
  }
}

TEST_F(ReportJudgeTest, SaysAllThereIsToSay) {
  const std::string report =
      with(sessionStop(1, 1), R"({"startTime":1795238272,"stopTime":1795238144})");
  take(report);

  EXPECT_THAT(codesOf(report), ElementsAre("duplicate", "stop-without-start", "stop-before-start",
                                           "rounded-date", "rounded-date"));
}

TEST_F(ReportJudgeTest, ForgetsWhatItIsToldTo) {
  take(sessionFirst(1, 1));
  take(adAttempt(1, 1));
  take(sessionStop(1, 5));
  judge_.forgetThrough(3);

  EXPECT_THAT(codesOf(sessionFirst(1, 2)), IsEmpty());
  EXPECT_THAT(codesOf(adAttempt(1, 1)), IsEmpty());
  EXPECT_THAT(codesOf(sessionStop(1, 1)), ElementsAre("stop-without-start"));
  take(sessionStart(1, 5));
  EXPECT_THAT(resolved_, IsEmpty());
}

TEST_F(ReportJudgeTest, RemembersTheLaterOfEqualReports) {
  take(adAttempt(1, 1));
  take(adAttempt(1, 1));
  judge_.forgetThrough(1);

  EXPECT_THAT(codesOf(adAttempt(1, 1)), ElementsAre("duplicate"));
}

TEST_F(ReportJudgeTest, ForgetsAll) {
  take(sessionFirst(1, 1));
  take(adAttempt(1, 1));
  judge_.forgetAll();

  EXPECT_THAT(codesOf(sessionFirst(1, 1)), IsEmpty());
  EXPECT_THAT(codesOf(adAttempt(1, 1)), IsEmpty());
}

TEST_F(ReportJudgeTest, HasNothingToSayAboutWhatIsNoReport) {
  for (const char* body : {"null", "{}", R"({"type":1})", R"({"type":"Other"})",
                           R"({"type":"ReportTypeSessionStop","sessionId":[1]})"}) {
    EXPECT_THAT(codesOf(body), IsEmpty()) << body;
    EXPECT_THAT(codesOf(body), IsEmpty()) << body;
  }
}

}  // namespace
}  // namespace zln::collector
