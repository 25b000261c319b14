#include "collector/settings_lint.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>

namespace zln::collector {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

// What is said about a value of one setting: "severity: text" for each finding.
std::string lintOf(const std::string& name, const json& value) {
  std::string all;
  for (const json& finding : lintSettings({{"ConfigSerializationKey" + name, value}})) {
    EXPECT_EQ("ConfigSerializationKey" + name, finding["key"]);
    all +=
        finding["severity"].get<std::string>() + ": " + finding["text"].get<std::string>() + "\n";
  }
  return all;
}

TEST(SettingsLintTest, HasNothingToSayOfNone) {
  EXPECT_EQ(json::array(), lintSettings(json::object()));
}

TEST(SettingsLintTest, HasLittleToSayOfTheDefaults) {
  EXPECT_EQ("", lintOf("TransmitReportsImmediately", true));
  EXPECT_EQ("", lintOf("TransmitReportsOnApplicationBackgrounding", true));
  EXPECT_EQ("", lintOf("TransmitReportsOnApplicationForegrounding", 1));
  EXPECT_EQ("", lintOf("ReportTemporaryFailureLimit", 3));
  EXPECT_EQ("", lintOf("SessionInactivityTimeLimit", 600));
  EXPECT_EQ("", lintOf("ConfigUpdateInterval", 86400));
  EXPECT_THAT(lintOf("UserSessionBackgroundTimeoutSeconds", 60),
              StartsWith("notice: a system that"));
  EXPECT_EQ("", lintOf("UserSessionBackgroundTimeoutSeconds", 15));
  EXPECT_EQ("", lintOf("SendStartSessionReports", true));
  EXPECT_EQ("", lintOf("SendStopSessionReports", true));
  EXPECT_EQ("", lintOf("SendFirstSessionReports", true));
}

TEST(SettingsLintTest, TellsOfKeysThatAreIgnored) {
  const json lint = lintSettings({{"lastUpdate", 0}, {"ConfigUpdateInterval", 5}});

  ASSERT_EQ(2u, lint.size());
  EXPECT_EQ("ignored: the key is ConfigSerializationKeyConfigUpdateInterval", lint[0]["text"]);
  EXPECT_EQ("error", lint[0]["severity"]);
  EXPECT_EQ("ignored: no such setting", lint[1]["text"]);
  EXPECT_EQ("warning", lint[1]["severity"]);
  EXPECT_EQ("warning: ignored: no such setting\n", lintOf("Other", 1));
}

TEST(SettingsLintTest, TellsOfValuesThatAreIgnored) {
  EXPECT_EQ(
      "error: ignored: it must be a number or a boolean, and is string; the setting stays as it "
      "is\n",
      lintOf("ReportTemporaryFailureLimit", "5"));
  EXPECT_THAT(lintOf("ConfigUpdateInterval", nullptr), HasSubstr("is null"));
  EXPECT_THAT(lintOf("SendStopSessionReports", {1}), HasSubstr("is array"));
  EXPECT_THAT(lintOf("SessionInactivityTimeLimit", std::numeric_limits<double>::infinity()),
              HasSubstr("no finite one"));
}

TEST(SettingsLintTest, TellsWhatTheLibraryMakesOfNumbers) {
  EXPECT_EQ("notice: 2 counts as true: every number but 0 does\n",
            lintOf("TransmitReportsImmediately", 2));
  EXPECT_THAT(lintOf("ReportTemporaryFailureLimit", 5.9),
              StartsWith("warning: the fraction is cut off: 5\n"));
  EXPECT_THAT(lintOf("ReportTemporaryFailureLimit", true), StartsWith("warning: counts as 1\n"));
  EXPECT_THAT(lintOf("SessionInactivityTimeLimit", true), StartsWith("warning: counts as 1\n"));
  EXPECT_THAT(lintOf("ConfigUpdateInterval", 4294967296 + 86400),
              StartsWith("error: no 32-bit number: the library takes it for 86400\n"));
  EXPECT_THAT(lintOf("ConfigUpdateInterval", 4294967295),
              AllOf(HasSubstr("takes it for -1\n"), HasSubstr("whenever the game becomes active")));
  EXPECT_THAT(lintOf("ConfigUpdateInterval", 1e12), HasSubstr("takes it for 2147483647\n"));
  EXPECT_THAT(lintOf("ConfigUpdateInterval", -1e12), HasSubstr("takes it for -2147483648\n"));
  EXPECT_THAT(lintOf("ConfigUpdateInterval", std::numeric_limits<std::uint64_t>::max()),
              HasSubstr("takes it for 2147483647\n"));
}

TEST(SettingsLintTest, ExplainsTheFailureLimit) {
  EXPECT_THAT(lintOf("ReportTemporaryFailureLimit", 0),
              StartsWith("warning: a report is held at its first failure"));
  EXPECT_THAT(lintOf("ReportTemporaryFailureLimit", -5),
              StartsWith("warning: a report is held at its first failure"));
  EXPECT_THAT(lintOf("ReportTemporaryFailureLimit", 1),
              StartsWith("notice: a report is held at its first failure"));
  EXPECT_THAT(lintOf("ReportTemporaryFailureLimit", 1000), HasSubstr("up to 1000 times"));
}

TEST(SettingsLintTest, ExplainsTheUpdateInterval) {
  EXPECT_EQ("warning: settings are fetched at every start and whenever the game becomes active\n",
            lintOf("ConfigUpdateInterval", -1));
  EXPECT_THAT(lintOf("ConfigUpdateInterval", 0), HasSubstr("very instant of the last fetch"));
  EXPECT_THAT(lintOf("ConfigUpdateInterval", 5), StartsWith("notice: "));
  EXPECT_THAT(lintOf("ConfigUpdateInterval", 86400 * 365), HasSubstr("after 365 days only"));
}

TEST(SettingsLintTest, ExplainsTheInactivityLimit) {
  EXPECT_THAT(lintOf("SessionInactivityTimeLimit", 0), StartsWith("warning: every pause ends"));
  EXPECT_THAT(lintOf("SessionInactivityTimeLimit", -1), StartsWith("warning: every pause ends"));
  EXPECT_THAT(lintOf("SessionInactivityTimeLimit", 1e39), HasSubstr("resumed however long ago"));
  EXPECT_THAT(lintOf("SessionInactivityTimeLimit", -1e39), StartsWith("warning: every pause ends"));
  EXPECT_THAT(lintOf("SessionInactivityTimeLimit", 3 * 86400), HasSubstr("up to 3 days"));
}

TEST(SettingsLintTest, ExplainsTheBackgroundTimeout) {
  EXPECT_THAT(lintOf("UserSessionBackgroundTimeoutSeconds", 0), HasSubstr("as soon as the game"));
  EXPECT_THAT(lintOf("UserSessionBackgroundTimeoutSeconds", 600),
              StartsWith("warning: longer than systems grant"));
  EXPECT_EQ("notice: counted in whole seconds: 3\n",
            lintOf("UserSessionBackgroundTimeoutSeconds", 2.5));
}

TEST(SettingsLintTest, DrawsItsLinesWhereItSays) {
  EXPECT_EQ("", lintOf("ReportTemporaryFailureLimit", 20));
  EXPECT_THAT(lintOf("ReportTemporaryFailureLimit", 21), HasSubstr("up to 21 times"));
  EXPECT_THAT(lintOf("ConfigUpdateInterval", 59), StartsWith("notice: "));
  EXPECT_EQ("", lintOf("ConfigUpdateInterval", 60));
  EXPECT_EQ("", lintOf("ConfigUpdateInterval", 30 * 86400));
  EXPECT_THAT(lintOf("ConfigUpdateInterval", 30 * 86400 + 1), HasSubstr("after 30 days only"));
  EXPECT_EQ("", lintOf("SessionInactivityTimeLimit", 86400));
  EXPECT_THAT(lintOf("SessionInactivityTimeLimit", 86401), HasSubstr("is resumed"));
  EXPECT_EQ("", lintOf("SessionInactivityTimeLimit", 0.5));
  EXPECT_EQ("", lintOf("UserSessionBackgroundTimeoutSeconds", 20));
  EXPECT_THAT(lintOf("UserSessionBackgroundTimeoutSeconds", 21), StartsWith("notice: a system"));
  EXPECT_THAT(lintOf("UserSessionBackgroundTimeoutSeconds", 170), StartsWith("notice: a system"));
  EXPECT_THAT(lintOf("UserSessionBackgroundTimeoutSeconds", 171), StartsWith("warning: longer"));
}

TEST(SettingsLintTest, ExplainsWhatIsSwitchedOff) {
  EXPECT_THAT(lintOf("SendStartSessionReports", false), HasSubstr("these reports are dropped"));
  EXPECT_THAT(lintOf("SendStopSessionReports", 0), HasSubstr("these reports are dropped"));
  EXPECT_THAT(lintOf("SendFirstSessionReports", false), HasSubstr("never reports it"));
  EXPECT_THAT(lintOf("TransmitReportsImmediately", false), HasSubstr("reports wait until"));
  EXPECT_THAT(lintOf("TransmitReportsOnApplicationBackgrounding", false),
              HasSubstr("goes to the background"));
  EXPECT_THAT(lintOf("TransmitReportsOnApplicationForegrounding", false),
              HasSubstr("when the game returns"));
}

TEST(SettingsLintTest, WarnsOfNeverSending) {
  const json lint =
      lintSettings({{"ConfigSerializationKeyTransmitReportsImmediately", false},
                    {"ConfigSerializationKeyTransmitReportsOnApplicationBackgrounding", 0},
                    {"ConfigSerializationKeyTransmitReportsOnApplicationForegrounding", false}});

  EXPECT_EQ("error", lint.back()["severity"]);
  EXPECT_THAT(lint.back()["text"].get<std::string>(), HasSubstr("no report is ever sent"));
}

}  // namespace
}  // namespace zln::collector
