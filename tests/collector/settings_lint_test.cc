#include "collector/settings_lint.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <initializer_list>
#include <limits>
#include <string>

#include "tests/collector/shown.h"

namespace zln::collector {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Matcher;
using testing::StartsWith;

const std::string kPrefix = "ConfigSerializationKey";

// What is said about a value of one setting: "severity: text" for each finding.
std::string saidOf(const std::string& name, const Json& value) {
  const JsonText lint = lintOf(kPrefix + name, value);
  const auto severities = lint.each("", "severity");
  const auto texts = lint.each("", "text");
  std::string all;
  for (std::size_t i = 0; i < texts.size(); ++i) {
    EXPECT_EQ(kPrefix + name, lint.each("", "key")[i]);
    all += severities[i] + ": " + texts[i] + "\n";
  }
  return all;
}

struct Case {
  const char* name;
  const char* value;
  Matcher<std::string> said;
};

void check(std::initializer_list<Case> cases) {
  for (const Case& each : cases) {
    EXPECT_THAT(saidOf(each.name, each.value), each.said) << each.name << " " << each.value;
  }
}

TEST(SettingsLintTest, HasNothingToSayOfNone) { EXPECT_EQ("[]", lintOf("{}").text()); }

TEST(SettingsLintTest, HasLittleToSayOfTheDefaults) {
  check({{"TransmitReportsImmediately", "true", IsEmpty()},
         {"TransmitReportsOnApplicationBackgrounding", "true", IsEmpty()},
         {"TransmitReportsOnApplicationForegrounding", "1", IsEmpty()},
         {"ReportTemporaryFailureLimit", "3", IsEmpty()},
         {"SessionInactivityTimeLimit", "600", IsEmpty()},
         {"ConfigUpdateInterval", "86400", IsEmpty()},
         {"UserSessionBackgroundTimeoutSeconds", "60", StartsWith("notice: a system that")},
         {"UserSessionBackgroundTimeoutSeconds", "15", IsEmpty()},
         {"SendStartSessionReports", "true", IsEmpty()},
         {"SendStopSessionReports", "true", IsEmpty()},
         {"SendFirstSessionReports", "true", IsEmpty()}});
}

TEST(SettingsLintTest, TellsOfKeysThatAreIgnored) {
  EXPECT_EQ(R"([{"key":"ConfigUpdateInterval","severity":"error",)"
            R"("text":"ignored: the key is ConfigSerializationKeyConfigUpdateInterval"},)"
            R"({"key":"lastUpdate","severity":"warning","text":"ignored: no such setting"}])",
            lintOf(R"({"lastUpdate":0,"ConfigUpdateInterval":5})").text());
  check({{"Other", "1", "warning: ignored: no such setting\n"}});
}

TEST(SettingsLintTest, TellsOfValuesThatAreIgnored) {
  check({{"ReportTemporaryFailureLimit", R"("5")",
          "error: ignored: it must be a number or a boolean, and is string; the setting stays as "
          "it is\n"},
         {"ConfigUpdateInterval", "null", HasSubstr("is null")},
         {"SendStopSessionReports", "[1]", HasSubstr("is array")}});
  EXPECT_THAT(saidOf("SessionInactivityTimeLimit", Json(std::numeric_limits<double>::infinity())),
              HasSubstr("no finite one"));
}

TEST(SettingsLintTest, TellsWhatTheLibraryMakesOfNumbers) {
  check(
      {{"TransmitReportsImmediately", "2", "notice: 2 counts as true: every number but 0 does\n"},
       {"ReportTemporaryFailureLimit", "5.9", StartsWith("warning: the fraction is cut off: 5\n")},
       {"ReportTemporaryFailureLimit", "true", StartsWith("warning: counts as 1\n")},
       {"SessionInactivityTimeLimit", "true", StartsWith("warning: counts as 1\n")},
       {"ConfigUpdateInterval", "4295053696",
        StartsWith("error: no 32-bit number: the library takes it for 86400\n")},
       {"ConfigUpdateInterval", "4294967295",
        AllOf(HasSubstr("takes it for -1\n"), HasSubstr("whenever the game becomes active"))},
       {"ConfigUpdateInterval", "1e12", HasSubstr("takes it for 2147483647\n")},
       {"ConfigUpdateInterval", "-1e12", HasSubstr("takes it for -2147483648\n")},
       {"ConfigUpdateInterval", "18446744073709551615", HasSubstr("takes it for 2147483647\n")}});
}

TEST(SettingsLintTest, ExplainsTheFailureLimit) {
  check({{"ReportTemporaryFailureLimit", "0",
          StartsWith("warning: a report is held at its first failure")},
         {"ReportTemporaryFailureLimit", "-5",
          StartsWith("warning: a report is held at its first failure")},
         {"ReportTemporaryFailureLimit", "1",
          StartsWith("notice: a report is held at its first failure")},
         {"ReportTemporaryFailureLimit", "20", IsEmpty()},
         {"ReportTemporaryFailureLimit", "21", HasSubstr("up to 21 times")},
         {"ReportTemporaryFailureLimit", "1000", HasSubstr("up to 1000 times")}});
}

TEST(SettingsLintTest, ExplainsTheUpdateInterval) {
  check({{"ConfigUpdateInterval", "-1",
          "warning: settings are fetched at every start and whenever the game becomes active\n"},
         {"ConfigUpdateInterval", "0", HasSubstr("very instant of the last fetch")},
         {"ConfigUpdateInterval", "5", StartsWith("notice: ")},
         {"ConfigUpdateInterval", "59", StartsWith("notice: ")},
         {"ConfigUpdateInterval", "60", IsEmpty()},
         {"ConfigUpdateInterval", "2592000", IsEmpty()},
         {"ConfigUpdateInterval", "2592001", HasSubstr("after 30 days only")},
         {"ConfigUpdateInterval", "31536000", HasSubstr("after 365 days only")}});
}

TEST(SettingsLintTest, ExplainsTheInactivityLimit) {
  check({{"SessionInactivityTimeLimit", "0", StartsWith("warning: every pause ends")},
         {"SessionInactivityTimeLimit", "-1", StartsWith("warning: every pause ends")},
         {"SessionInactivityTimeLimit", "-1e39", StartsWith("warning: every pause ends")},
         {"SessionInactivityTimeLimit", "0.5", IsEmpty()},
         {"SessionInactivityTimeLimit", "86400", IsEmpty()},
         {"SessionInactivityTimeLimit", "86401", HasSubstr("is resumed")},
         {"SessionInactivityTimeLimit", "259200", HasSubstr("up to 3 days")},
         {"SessionInactivityTimeLimit", "1e39", HasSubstr("resumed however long ago")}});
}

TEST(SettingsLintTest, ExplainsTheBackgroundTimeout) {
  check({{"UserSessionBackgroundTimeoutSeconds", "0", HasSubstr("as soon as the game")},
         {"UserSessionBackgroundTimeoutSeconds", "2.5", "notice: counted in whole seconds: 3\n"},
         {"UserSessionBackgroundTimeoutSeconds", "20", IsEmpty()},
         {"UserSessionBackgroundTimeoutSeconds", "21", StartsWith("notice: a system")},
         {"UserSessionBackgroundTimeoutSeconds", "170", StartsWith("notice: a system")},
         {"UserSessionBackgroundTimeoutSeconds", "171", StartsWith("warning: longer")},
         {"UserSessionBackgroundTimeoutSeconds", "600",
          StartsWith("warning: longer than systems grant")}});
}

TEST(SettingsLintTest, ExplainsWhatIsSwitchedOff) {
  check(
      {{"SendStartSessionReports", "false", HasSubstr("these reports are dropped")},
       {"SendStopSessionReports", "0", HasSubstr("these reports are dropped")},
       {"SendFirstSessionReports", "false", HasSubstr("never reports it")},
       {"TransmitReportsImmediately", "false", HasSubstr("reports wait until")},
       {"TransmitReportsOnApplicationBackgrounding", "false", HasSubstr("goes to the background")},
       {"TransmitReportsOnApplicationForegrounding", "false", HasSubstr("when the game returns")}});
}

TEST(SettingsLintTest, WarnsOfNeverSending) {
  const JsonText lint = lintOf(R"({"ConfigSerializationKeyTransmitReportsImmediately":false,
                 "ConfigSerializationKeyTransmitReportsOnApplicationBackgrounding":0,
                 "ConfigSerializationKeyTransmitReportsOnApplicationForegrounding":false})");

  EXPECT_EQ("error", lint.each("", "severity").back());
  EXPECT_THAT(lint.each("", "text").back(), HasSubstr("no report is ever sent"));
}

}  // namespace
}  // namespace zln::collector
