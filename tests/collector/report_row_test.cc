#include "collector/report_row.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "tests/collector/report_samples.h"

namespace zln::collector {
namespace {

const Finding kNoticed{"rounded-date", Severity::kNotice, "a"};
const Finding kRepeated{"duplicate", Severity::kNotice, "b"};
const Finding kWarned{"stop-without-start", Severity::kWarning, "c"};
const Finding kWrong{"schema", Severity::kError, "d"};

ReportRow row() {
  ReportRow row;
  row.id = 17;
  row.arrived = 1795238203.125;
  row.kind = ReportKind::kAdAttempt;
  row.user = "u";
  row.event = "e";
  row.verdict = Verdict::kInvalid;
  row.findings = {kWrong};
  row.answer = {Answer::Outcome::kRetry, 503, 3};
  row.body = R"({"b":1,"a":[true]})";
  return row;
}

TEST(ReportRowTest, IsShownAsJson) {
  EXPECT_EQ(R"({"answer":{"fault":3,"outcome":"retry","status":503},"arrived":1795238203.125,)"
            R"("body":{"a":[true],"b":1},"event":"e",)"
            R"("findings":[{"code":"schema","severity":"error","text":"d"}],)"
            R"("id":17,"kind":"ad-attempt","session":null,"user":"u","verdict":"invalid"})",
            shown(row()).text());
}

TEST(ReportRowTest, ShowsNoFaultWhereThereIsNone) {
  ReportRow plain = row();
  plain.answer = {};

  EXPECT_EQ(R"({"fault":null,"outcome":"accepted","status":200})", shown(plain)["answer"]);
}

TEST(ReportRowTest, ShowsABodyThatIsNoObjectAsText) {
  ReportRow odd = row();
  odd.body = std::string("a\0\xFF\"b", 5);

  EXPECT_EQ("", shown(odd)["body"]);
  EXPECT_EQ(std::string("a\0\xEF\xBF\xBD\"b", 7), shown(odd)["raw"]);
}

TEST(ReportRowTest, IsJudgedByItsGravestFinding) {
  EXPECT_EQ(Verdict::kValid, verdictOn({}));
  EXPECT_EQ(Verdict::kValid, verdictOn({kNoticed}));
  EXPECT_EQ(Verdict::kSuspect, verdictOn({kNoticed, kWarned}));
  EXPECT_EQ(Verdict::kDuplicate, verdictOn({kWarned, kRepeated}));
  EXPECT_EQ(Verdict::kInvalid, verdictOn({kRepeated, kWarned, kWrong}));
}

TEST(ReportRowTest, HasFindingsThatComeBackFromTheirText) {
  const auto read = findingsFrom(shown({kNoticed, kWrong}).text());

  ASSERT_EQ(2u, read.size());
  EXPECT_EQ("rounded-date", read[0].code);
  EXPECT_EQ(Severity::kNotice, read[0].severity);
  EXPECT_EQ("a", read[0].text);
  EXPECT_EQ(Severity::kError, read[1].severity);
}

TEST(ReportRowTest, TakesNothingElseForFindings) {
  EXPECT_TRUE(findingsFrom("").empty());
  EXPECT_TRUE(findingsFrom("{").empty());
  EXPECT_TRUE(findingsFrom(R"({"code":"a","severity":"error","text":"b"})").empty());
  EXPECT_TRUE(findingsFrom(R"([1, {"code":2,"severity":"error","text":"b"}])").empty());
}

TEST(ReportRowTest, HasNamesThatAreFoundAgain) {
  for (const Verdict verdict :
       {Verdict::kValid, Verdict::kDuplicate, Verdict::kSuspect, Verdict::kInvalid}) {
    EXPECT_EQ(verdict, verdictNamed(nameOf(verdict)));
  }
  using enum Answer::Outcome;
  for (const auto outcome : {kAccepted, kRetry, kDropped, kOther, kCut}) {
    EXPECT_EQ(outcome, outcomeNamed(nameOf(outcome)));
  }
  EXPECT_EQ("suspect", nameOf(Verdict::kSuspect));
  EXPECT_EQ("cut", nameOf(kCut));
  EXPECT_EQ(std::nullopt, verdictNamed("good"));
  EXPECT_EQ(std::nullopt, outcomeNamed(""));
}

}  // namespace
}  // namespace zln::collector
