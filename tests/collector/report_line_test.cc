#include "collector/report_line.h"

#include <gtest/gtest.h>

namespace zln::collector {
namespace {

using nlohmann::json;

const json kAccepted = {{"success", true}};

json sessionReport(const char* type) {
  return {{"type", type},
          {"sessionId", "56576270-4B32-4851-97C2-4BF7D9DF705C"},
          {"bundleId", "com.example.game"},
          {"appVersion", "1.4.2"},
          {"mwVersion", "3.2.1"},
          {"userId", "3E7DE0B0-EC24-4FF5-9556-752F3E7386F8"},
          {"totalDuration", 5.25}};
}

TEST(ReportLineTest, TellsOfASessionWhoseItIs) {
  EXPECT_EQ(
      "first session    session 56576270 of com.example.game 1.4.2, engine 3.2.1, by user 3E7DE0B0"
      "  -> accepted",
      reportLine(sessionReport("ReportTypeSessionFirst"), kAccepted));
  EXPECT_EQ(
      "session start    session 56576270 of com.example.game 1.4.2, engine 3.2.1, by user 3E7DE0B0"
      "  -> accepted",
      reportLine(sessionReport("ReportTypeSessionStart"), kAccepted));
}

TEST(ReportLineTest, TellsOfAStoppedSessionHowLongItWas) {
  EXPECT_EQ("session stop     session 56576270 after 5.2 seconds of play  -> accepted",
            reportLine(sessionReport("ReportTypeSessionStop"), kAccepted));
}

TEST(ReportLineTest, TellsOfAnAdAttempt) {
  const json report = {{"type", "ReportTypeAdAttempt"},
                       {"adType", "banner"},
                       {"network", "Sunrise"},
                       {"fill", true}};

  EXPECT_EQ("ad attempt       banner by Sunrise, filled  -> accepted",
            reportLine(report, kAccepted));
}

TEST(ReportLineTest, TellsOfAnAdZoneAttemptItsZone) {
  const json report = {{"type", "ReportTypeAdZoneAttempt"},
                       {"adType", "rewarded"},
                       {"network", "Meteor"},
                       {"zoneId", "extra life"},
                       {"fill", false}};

  EXPECT_EQ("ad zone attempt  rewarded by Meteor in zone extra life, not filled  -> accepted",
            reportLine(report, kAccepted));
}

TEST(ReportLineTest, TellsTheAnswer) {
  const json report = {{"type", "other"}};

  EXPECT_EQ("unknown report   other  -> TRY AGAIN", reportLine(report, {{"success", false}}));
  EXPECT_EQ(
      "unknown report   other  -> REFUSED FOR GOOD: no room",
      reportLine(report, {{"success", false}, {"errorIsPermanent", true}, {"error", "no room"}}));
}

TEST(ReportLineTest, ShowsAQuestionMarkForWhatIsMissingOrOfTheWrongKind) {
  EXPECT_EQ("unknown report   ?  -> accepted", reportLine(json::object(), kAccepted));
  EXPECT_EQ(
      "session stop     session ? after ? seconds of play  -> accepted",
      reportLine({{"type", "ReportTypeSessionStop"}, {"sessionId", 5}, {"totalDuration", "x"}},
                 kAccepted));
}

TEST(ReportLineTest, TellsWhoAsksForSettingsAndHowManyThereAre) {
  const json request = {{"ConfigSerializationKeyAppVersion", "1.4.2"},
                        {"ConfigSerializationKeySDKVersion", "7.0.0"}};

  EXPECT_EQ("settings         asked for by version 1.4.2, library 7.0.0  -> 1 given",
            settingsLine(request, {{"key", 1}}));
}

TEST(ReportLineTest, PrintableMakesControlCharactersHarmless) {
  EXPECT_EQ("a.[31mb.c", printable("a\x1b[31mb\nc"));
}

TEST(ReportLineTest, PrintableCutsALongTextBetweenCharacters) {
  const std::string fiftyNine(59, 'a');

  EXPECT_EQ(fiftyNine + "...", printable(fiftyNine + "\xC3\xA4" + "b"));
}

}  // namespace
}  // namespace zln::collector
