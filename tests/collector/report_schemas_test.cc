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

using nlohmann::json;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class ReportSchemasTest : public testing::Test {
 protected:
  std::vector<std::string> textsOn(const json& report) const {
    const std::string type = report.value("type", "");
    std::vector<std::string> texts;
    for (const Finding& finding : schemas_.check(kindOfType(type), report)) {
      EXPECT_EQ("schema", finding.code);
      EXPECT_EQ(Severity::kError, finding.severity);
      texts.push_back(finding.text);
    }
    return texts;
  }

  // What is said about an ad zone attempt with this member.
  std::vector<std::string> textsWith(const char* name, const json& value) const {
    json report = adZoneAttempt(1, 1);
    report[name] = value;
    return textsOn(report);
  }

  const ReportSchemas schemas_{schemaTexts()};
};

TEST_F(ReportSchemasTest, FindNothingInWhatTheLibrarySends) {
  for (const ReportKind kind : kReportKinds) {
    EXPECT_THAT(textsOn(sampleOf(kind)), IsEmpty()) << nameOf(kind);
  }
}

TEST_F(ReportSchemasTest, AllowMembersToBeLeftOut) {
  json report = sessionFirst(1, 1);
  for (const char* name : {"country", "device", "mwVersion", "appVersion", "bundleId"}) {
    report.erase(name);
  }

  EXPECT_THAT(textsOn(report), IsEmpty());
}

TEST_F(ReportSchemasTest, NameEveryMissingMember) {
  for (const ReportKind kind : kReportKinds) {
    const json schema = json::parse(schemaTexts()[kind]);
    for (const std::string name : schema["required"]) {
      if (name == "type") continue;
      json report = sampleOf(kind);
      report.erase(name);
      EXPECT_THAT(textsOn(report), ElementsAre("\"" + name + "\" is missing")) << nameOf(kind);
    }
  }
}

TEST_F(ReportSchemasTest, NameEveryMemberOfAWrongKind) {
  for (const ReportKind kind : kReportKinds) {
    const json sample = sampleOf(kind);
    for (const auto& [name, value] : sample.items()) {
      if (name == "type") continue;
      json report = sample;
      report[name] = json::array({1});
      EXPECT_THAT(textsOn(report), ElementsAre(AllOf(HasSubstr("\"" + name + "\" must be "),
                                                     HasSubstr(", and is an array"))))
          << nameOf(kind);
    }
  }
}

TEST_F(ReportSchemasTest, SayWhatAMemberMustBe) {
  EXPECT_THAT(textsWith("platform", "Android"),
              ElementsAre(R"("platform" must be "iOS", and is "Android")"));
  EXPECT_THAT(textsWith("fill", "yes"),
              ElementsAre(R"("fill" must be true or false, and is "yes")"));
  EXPECT_THAT(textsWith("zoneId", 7), ElementsAre(R"("zoneId" must be a text, and is 7)"));
  EXPECT_THAT(textsWith("userId", "3e7de0b0-ec24-4ff5-9556-752f3e7386f8"),
              ElementsAre(R"("userId" must be a random UUID in capital letters, and is )"
                          R"("3e7de0b0-ec24-4ff5-9556-752f3e7386f8")"));
  EXPECT_THAT(textsWith("country", "us"),
              ElementsAre(R"("country" must be a region of two capital letters or three digits, )"
                          R"(and is "us")"));
  EXPECT_THAT(textsWith("network", nullptr),
              ElementsAre(R"("network" must be a text, and is null)"));
  EXPECT_THAT(textsWith("adType", json::object()),
              ElementsAre(R"("adType" must be a text, and is an object)"));
}

TEST_F(ReportSchemasTest, SayHowSmallANumberMayBe) {
  json report = sessionStop(1, 1);
  report["totalDuration"] = -0.5;

  EXPECT_THAT(textsOn(report),
              ElementsAre(R"("totalDuration" must be a number of at least 0, and is -0.5)"));
}

TEST_F(ReportSchemasTest, NameMembersThatDoNotBelong) {
  EXPECT_THAT(textsWith("sessionId", uuid(1)),
              ElementsAre(R"("sessionId" does not belong into such a report)"));
  EXPECT_THAT(textsWith("", 1), ElementsAre(R"("" does not belong into such a report)"));
}

TEST_F(ReportSchemasTest, SayAllThatIsWrong) {
  json report = adZoneAttempt(1, 1);
  report.erase("userId");
  report["fill"] = 1;
  report["more"] = 1;

  EXPECT_THAT(textsOn(report),
              ElementsAre(R"("userId" is missing)", R"("fill" must be true or false, and is 1)",
                          R"("more" does not belong into such a report)"));
}

TEST_F(ReportSchemasTest, SayNoMoreThanIsReadable) {
  json report = adZoneAttempt(1, 1);
  for (int i = 0; i < 20000; ++i) report["x" + std::to_string(i)] = i;
  report["zoneId"] = json::array({std::string(100000, 'z')});

  const auto texts = textsOn(report);

  ASSERT_THAT(texts, SizeIs(11));
  EXPECT_EQ("and 19991 more", texts.back());
}

TEST_F(ReportSchemasTest, ClipLongValuesAndNames) {
  EXPECT_THAT(textsWith("userId", std::string(100000, 'x')),
              ElementsAre(testing::SizeIs(testing::Lt(150u))));
  EXPECT_THAT(textsWith(std::string(100000, 'x').c_str(), 1),
              ElementsAre(testing::SizeIs(testing::Lt(150u))));
}

TEST_F(ReportSchemasTest, AllowLongTexts) {
  EXPECT_THAT(textsWith("network", std::string(100000, 'x')), IsEmpty());
}

TEST_F(ReportSchemasTest, SayThatATypeIsUnknown) {
  EXPECT_THAT(textsOn({{"type", "ReportTypeOther"}}),
              ElementsAre(R"("type" must be one of the five reports, and is "ReportTypeOther")"));
  EXPECT_THAT(textsOn(json::object()), ElementsAre(R"("type" is missing)"));
}

TEST_F(ReportSchemasTest, MayBeUsedByManyThreads) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 50; ++round) {
        EXPECT_THAT(textsOn(sampleOf(ReportKind::kSessionStop)), IsEmpty());
        EXPECT_THAT(textsWith("fill", 1), SizeIs(1));
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
