#include "collector/report_line.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "collector/printable_text.h"
#include "tests/collector/json_text.h"

namespace zln::collector {
namespace {

using Outcome = Answer::Outcome;

std::string sessionReport(const std::string& type) {
  return R"({"sessionId":"56576270-4B32-4851-97C2-4BF7D9DF705C","bundleId":"com.example.game",
             "appVersion":"1.4.2","mwVersion":"3.2.1","totalDuration":5.25,
             "userId":"3E7DE0B0-EC24-4FF5-9556-752F3E7386F8","type":")" +
         type + R"("})";
}

std::string describe(const Json& report) { return describeReport(report, 0); }

std::string lineWith(Outcome outcome, const std::optional<Fault>& fault = {}) {
  ReportRow row;
  row.answer.outcome = outcome;
  return reportLine(Json(R"({"type":"other"})"), row, fault);
}

Fault faultWith(Effect effect) {
  Fault fault;
  fault.id = 3;
  fault.effect = effect;
  fault.error = "no room";
  return fault;
}

TEST(ReportLineTest, TellsOfASessionWhoseItIs) {
  EXPECT_EQ(
      "first session    session 56576270 of com.example.game 1.4.2, engine 3.2.1, by user 3E7DE0B0",
      describe(sessionReport("ReportTypeSessionFirst")));
  EXPECT_EQ(
      "session start    session 56576270 of com.example.game 1.4.2, engine 3.2.1, by user 3E7DE0B0",
      describe(sessionReport("ReportTypeSessionStart")));
}

TEST(ReportLineTest, TellsOfAStoppedSessionHowLongItWas) {
  EXPECT_EQ("session stop     session 56576270 after 5.2 seconds of play",
            describe(sessionReport("ReportTypeSessionStop")));
}

TEST(ReportLineTest, TellsOfAnAdAttempt) {
  EXPECT_EQ(
      "ad attempt       banner by Sunrise, filled",
      describe(
          R"({"type":"ReportTypeAdAttempt","adType":"banner","network":"Sunrise","fill":true})"));
}

TEST(ReportLineTest, TellsOfAnAdZoneAttemptItsZone) {
  EXPECT_EQ("ad zone attempt  rewarded by Meteor in zone extra life, not filled",
            describe(R"({"type":"ReportTypeAdZoneAttempt","adType":"rewarded","network":"Meteor",
                         "zoneId":"extra life","fill":false})"));
}

TEST(ReportLineTest, TellsTheAnswer) {
  EXPECT_EQ("unknown report   other  -> accepted", lineWith(Outcome::kAccepted));
  EXPECT_EQ("unknown report   other  -> TRY AGAIN  (fault 3: temporary)",
            lineWith(Outcome::kRetry, faultWith(Effect::kTemporary)));
  EXPECT_EQ("unknown report   other  -> REFUSED FOR GOOD: no room  (fault 3: permanent)",
            lineWith(Outcome::kDropped, faultWith(Effect::kPermanent)));
  EXPECT_EQ("unknown report   other  -> NO ANSWER  (fault 3: cut-after)",
            lineWith(Outcome::kCut, faultWith(Effect::kCutAfter)));
  EXPECT_EQ("unknown report   other  -> SPOILED ANSWER  (fault 3: garbage)",
            lineWith(Outcome::kOther, faultWith(Effect::kGarbage)));
}

TEST(ReportLineTest, TellsAVerdictThatIsNotGood) {
  ReportRow row;
  row.verdict = Verdict::kInvalid;
  row.findings = {{"rounded-date", Severity::kNotice, "rounded"},
                  {"schema", Severity::kError, "there is no network"}};
  row.answer.outcome = Outcome::kDropped;
  row.body = "[1]";

  EXPECT_EQ(
      "no report: 3 bytes that are no JSON object  -> REFUSED FOR GOOD: there is no network  "
      "(invalid)",
      reportLine(Json("null"), row, std::nullopt));
}

TEST(ReportLineTest, ShowsAQuestionMarkForWhatIsMissingOrOfTheWrongKind) {
  EXPECT_EQ("unknown report   ?", describe("{}"));
  EXPECT_EQ("session stop     session ? after ? seconds of play",
            describe(R"({"type":"ReportTypeSessionStop","sessionId":5,"totalDuration":"x"})"));
}

TEST(ReportLineTest, TellsWhoAsksForSettingsAndHowManyThereAre) {
  const Json request = R"({"ConfigSerializationKeyAppVersion":"1.4.2",
                           "ConfigSerializationKeySDKVersion":"7.0.0"})";

  EXPECT_EQ("settings         asked for by version 1.4.2, library 7.0.0  -> 1 given",
            settingsLine(request, Json(R"({"key":1})")));
}

TEST(PrintableTextTest, MakesControlCharactersHarmless) {
  EXPECT_EQ("a.[31mb.c", printable("a\x1b[31mb\nc"));
  EXPECT_EQ(".[31mb.c", printable("\xC2\x9B[31mb\xC2\x9F"
                                  "c"));
  EXPECT_EQ("\xC2\xA0", printable("\xC2\xA0"));
}

TEST(PrintableTextTest, CutsALongTextBetweenCharacters) {
  const std::string fiftyNine(59, 'a');

  EXPECT_EQ(fiftyNine + "...", printable(fiftyNine + "\xC3\xA4" + "b"));
}

}  // namespace
}  // namespace zln::collector
