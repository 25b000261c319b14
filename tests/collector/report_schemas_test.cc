#include "collector/report_schemas.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/collector/report_samples.h"

namespace zln::collector {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class ReportSchemasTest : public testing::Test {
 protected:
  std::vector<std::string> textsOn(const std::string& report) const {
    const ReportKind kind = kindOfType(JsonText(report)["type"]);
    std::vector<std::string> texts;
    for (const Finding& finding : schemas_.check(kind, Json(report))) {
      EXPECT_EQ("schema", finding.code);
      EXPECT_EQ(Severity::kError, finding.severity);
      texts.push_back(finding.text);
    }
    return texts;
  }

  // What is said about an ad zone attempt with this member.
  std::vector<std::string> textsWith(const std::string& name, const std::string& value) const {
    return textsOn(with(adZoneAttempt(1, 1), "{\"" + name + "\":" + value + "}"));
  }

  const ReportSchemas schemas_{schemaTexts()};
};

TEST_F(ReportSchemasTest, FindNothingInWhatTheLibrarySends) {
  for (const ReportKind kind : kReportKinds) {
    EXPECT_THAT(textsOn(sampleOf(kind)), IsEmpty()) << nameOf(kind);
  }
}

TEST_F(ReportSchemasTest, AllowMembersToBeLeftOut) {
  std::string report = sessionFirst(1, 1);
  for (const char* name : {"country", "device", "mwVersion", "appVersion", "bundleId"}) {
    report = without(report, name);
  }

  EXPECT_THAT(textsOn(report), IsEmpty());
}

TEST_F(ReportSchemasTest, NameEveryMissingMember) {
  for (const ReportKind kind : kReportKinds) {
    const JsonText schema(schemaTexts()[kind]);
    ASSERT_NE("", schema["required/0"]);
    for (int i = 0; !schema["required/" + std::to_string(i)].empty(); ++i) {
      const std::string name = schema["required/" + std::to_string(i)];
      if (name == "type") continue;
      EXPECT_THAT(textsOn(without(sampleOf(kind), name)),
                  ElementsAre("\"" + name + "\" is missing"))
          << nameOf(kind);
    }
  }
}

TEST_F(ReportSchemasTest, NameEveryMemberOfAWrongKind) {
  for (const ReportKind kind : kReportKinds) {
    for (const std::string& name : membersOf(sampleOf(kind))) {
      if (name == "type") continue;
      EXPECT_THAT(textsOn(with(sampleOf(kind), "{\"" + name + "\":[1]}")),
                  ElementsAre(AllOf(HasSubstr("\"" + name + "\" must be "),
                                    HasSubstr(", and is an array"))))
          << nameOf(kind);
    }
  }
}

TEST_F(ReportSchemasTest, SayWhatAMemberMustBe) {
  EXPECT_THAT(textsWith("platform", R"("Android")"),
              ElementsAre(R"("platform" must be "iOS", and is "Android")"));
  EXPECT_THAT(textsWith("fill", R"("yes")"),
              ElementsAre(R"("fill" must be true or false, and is "yes")"));
  EXPECT_THAT(textsWith("zoneId", "7"), ElementsAre(R"("zoneId" must be a text, and is 7)"));
  EXPECT_THAT(textsWith("userId", R"("3e7de0b0-ec24-4ff5-9556-752f3e7386f8")"),
              ElementsAre(R"("userId" must be a random UUID in capital letters, and is )"
                          R"("3e7de0b0-ec24-4ff5-9556-752f3e7386f8")"));
  EXPECT_THAT(textsWith("country", R"("us")"),
              ElementsAre(R"("country" must be a region of two capital letters or three digits, )"
                          R"(and is "us")"));
  EXPECT_THAT(textsWith("network", "null"),
              ElementsAre(R"("network" must be a text, and is null)"));
  EXPECT_THAT(textsWith("adType", "{}"),
              ElementsAre(R"("adType" must be a text, and is an object)"));
}

TEST_F(ReportSchemasTest, SayHowSmallANumberMayBe) {
  EXPECT_THAT(textsOn(with(sessionStop(1, 1), R"({"totalDuration":-0.5})")),
              ElementsAre(R"("totalDuration" must be a number of at least 0, and is -0.5)"));
}

TEST_F(ReportSchemasTest, NameMembersThatDoNotBelong) {
  EXPECT_THAT(textsWith("sessionId", "\"" + uuid(1) + "\""),
              ElementsAre(R"("sessionId" does not belong into such a report)"));
  EXPECT_THAT(textsWith("", "1"), ElementsAre(R"("" does not belong into such a report)"));
}

TEST_F(ReportSchemasTest, SayAllThatIsWrong) {
  const std::string report = with(adZoneAttempt(1, 1), R"({"fill":1,"more":1})");

  EXPECT_THAT(textsOn(without(report, "userId")),
              ElementsAre(R"("userId" is missing)", R"("fill" must be true or false, and is 1)",
                          R"("more" does not belong into such a report)"));
}

TEST_F(ReportSchemasTest, SayNoMoreThanIsReadable) {
  std::string members = R"({"zoneId":[")" + std::string(100000, 'z') + "\"]";
  for (int i = 0; i < 20000; ++i) members += ",\"x" + std::to_string(i) + "\":1";

  const auto texts = textsOn(with(adZoneAttempt(1, 1), members + "}"));

  ASSERT_THAT(texts, SizeIs(11));
  EXPECT_EQ("and 19991 more", texts.back());
}

TEST_F(ReportSchemasTest, ClipLongValuesAndNames) {
  const std::string longText(100000, 'x');

  EXPECT_THAT(textsWith("userId", "\"" + longText + "\""),
              ElementsAre(testing::SizeIs(testing::Lt(150u))));
  EXPECT_THAT(textsWith(longText, "1"), ElementsAre(testing::SizeIs(testing::Lt(150u))));
}

TEST_F(ReportSchemasTest, AllowLongTexts) {
  EXPECT_THAT(textsWith("network", "\"" + std::string(100000, 'x') + "\""), IsEmpty());
}

TEST_F(ReportSchemasTest, SayThatATypeIsUnknown) {
  EXPECT_THAT(textsOn(R"({"type":"ReportTypeOther"})"),
              ElementsAre(R"("type" must be one of the five reports, and is "ReportTypeOther")"));
  EXPECT_THAT(textsOn("{}"), ElementsAre(R"("type" is missing)"));
}

TEST_F(ReportSchemasTest, MayBeUsedByManyThreads) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 50; ++round) {
        EXPECT_THAT(textsOn(sampleOf(ReportKind::kSessionStop)), IsEmpty());
        EXPECT_THAT(textsWith("fill", "1"), SizeIs(1));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST(ReportSchemasTextsTest, AreAllNeeded) {
  auto texts = schemaTexts();
  texts.erase(ReportKind::kAdAttempt);

  EXPECT_THROW(ReportSchemas{texts}, std::invalid_argument);
}

TEST(ReportSchemasTextsTest, MustBeSchemas) {
  for (const char* text : {"", "{", "[]", R"({"type":7})", R"({"properties":[]})"}) {
    auto texts = schemaTexts();
    texts[ReportKind::kAdAttempt] = text;
    EXPECT_THROW(ReportSchemas{texts}, std::invalid_argument) << text;
  }
}

}  // namespace
}  // namespace zln::collector
