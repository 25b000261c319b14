#include "collector/fault.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "tests/collector/shown.h"

namespace zln::collector {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

Fault faultFrom(const std::string& text) { return parseFault(Json(text)); }

std::string complaintAbout(const std::string& text) {
  try {
    faultFrom(text);
    return "";
  } catch (const std::invalid_argument& failure) {
    return failure.what();
  }
}

std::string complaintAboutSpec(const std::string& spec) {
  try {
    parseFaultSpec(spec);
    return "";
  } catch (const std::invalid_argument& failure) {
    return failure.what();
  }
}

TEST(FaultTest, IsReadFromJson) {
  const Fault fault = faultFrom(R"({"effect":"delay", "types":["ad-attempt","config"],
                                    "match":{"network":"Flicker"}, "seconds":0.5,
                                    "share":0.25, "seed":7})");

  EXPECT_EQ(Effect::kDelay, fault.effect);
  EXPECT_THAT(fault.types, ElementsAre("ad-attempt", "config"));
  EXPECT_EQ(R"({"network":"Flicker"})", textOf(*fault.match));
  EXPECT_EQ(0.5, fault.seconds);
  EXPECT_EQ(0.25, fault.share);
  EXPECT_EQ(7u, fault.seed);
  EXPECT_EQ(std::nullopt, fault.times);
}

TEST(FaultTest, HasDefaults) {
  EXPECT_EQ(200, faultFrom(R"({"effect":"empty"})").status);
  EXPECT_EQ(2, faultFrom(R"({"effect":"stall"})").seconds);
  EXPECT_EQ("refused on demand", faultFrom(R"({"effect":"permanent"})").error);
  EXPECT_FALSE(faultFrom(R"({"effect":"redirect"})").toHttp);
  EXPECT_TRUE(faultFrom(R"({"effect":"cut-after"})").types.empty());
}

TEST(FaultTest, IsShownAsItWasRead) {
  EXPECT_EQ(R"({"effect":"permanent","error":"no room","hits":0,"id":0,"left":2,)"
            R"("match":{"fill":true},"status":500,"times":2,"types":["config"]})",
            shown(faultFrom(R"({"effect":"permanent", "types":["config"], "match":{"fill":true},
                                "status":500, "error":"no room", "times":2})"))
                .text());
  EXPECT_EQ(R"({"effect":"redirect","hits":0,"id":0,"seed":1,"share":1.0,"to":"http"})",
            shown(faultFrom(R"({"effect":"redirect","to":"http","share":1,"match":{}})")).text());
  EXPECT_EQ(R"({"effect":"delay","hits":0,"id":0,"seconds":2.0})",
            shown(faultFrom(R"({"effect":"delay"})")).text());
}

TEST(FaultTest, NeedsAnEffectThatThereIs) {
  EXPECT_EQ("a fault is a JSON object", complaintAbout(R"("delay")"));
  EXPECT_THAT(complaintAbout("{}"), HasSubstr("needs an \"effect\": temporary, "));
  EXPECT_THAT(complaintAbout(R"({"effect":5})"), HasSubstr("needs an \"effect\""));
  EXPECT_THAT(complaintAbout(R"({"effect":"explode"})"), HasSubstr("\"explode\" is no effect: "));
  EXPECT_THAT(complaintAbout(R"({"effect":"status"})"), HasSubstr("needs a \"status\""));
}

TEST(FaultTest, TakesNoMemberThatMeansNothing) {
  const struct {
    std::string effect;
    std::string member;
    std::string value;
  } kCases[] = {{"delay", "status", "200"},     {"empty", "error", R"("no")"},
                {"cut-before", "seconds", "1"}, {"status", "to", R"("http")"},
                {"cut-before", "match", "{}"},  {"empty", "id", "1"}};
  for (const auto& [effect, member, value] : kCases) {
    EXPECT_EQ("the effect \"" + effect + "\" takes no \"" + member + "\"",
              complaintAbout(R"({"effect":")" + effect + "\",\"" + member + "\":" + value + "}"));
  }
}

TEST(FaultTest, TakesNoMemberOfAnotherKind) {
  const std::string types =
      "\"types\" must be an array with some of session-first, session-start, session-stop, "
      "ad-attempt, ad-zone-attempt, config";
  const std::string match = "\"match\" must be an object of at most 16 texts, numbers or booleans";
  const struct {
    std::string complaint;
    std::string members;
  } kCases[] = {
      {types, R"("temporary","types":[])"},
      {types, R"("temporary","types":["unknown"])"},
      {types, R"("temporary","types":"config")"},
      {match, R"("temporary","match":[1])"},
      {match, R"("temporary","match":{"a":[1]})"},
      {"\"status\" must be a number from 200 to 599", R"("temporary","status":199)"},
      {"\"status\" must be a number from 200 to 599", R"("temporary","status":"503")"},
      {"\"status\" must be a whole number", R"("temporary","status":200.5)"},
      {"\"times\" must be a number from 1 to 1000000", R"("temporary","times":0)"},
      {"\"share\" must be a number from 0 to 1", R"("temporary","share":1.5)"},
      {"a \"seed\" needs a \"share\"", R"("temporary","seed":1)"},
      {"\"seed\" must be a whole number that is not negative", R"("empty","share":1,"seed":-1)"},
      {"a fault has \"times\" or a \"share\", not both", R"("empty","share":1,"times":1)"},
      {"\"seconds\" must be a number from 0 to 3600", R"("delay","seconds":3601)"},
      {"\"error\" must be a text of at most 1000 bytes",
       R"("permanent","error":")" + std::string(1001, 'a') + '"'},
      {"\"to\" must be \"https\" or \"http\"", R"("redirect","to":"ftp")"},
  };
  for (const auto& [complaint, members] : kCases) {
    EXPECT_EQ(complaint, complaintAbout(R"({"effect":)" + members + "}"));
  }
}

TEST(FaultTest, IsReadFromTheCommandLine) {
  EXPECT_EQ(Effect::kCutBefore, parseFaultSpec("cut-before").effect);

  const Fault fault = parseFaultSpec(
      "permanent,network=Grumble,fill=true,zoneId=\"7\",type=ad-attempt,"
      "type=config,error=5,times=3,status=500");

  EXPECT_EQ(Effect::kPermanent, fault.effect);
  EXPECT_EQ(R"({"fill":true,"network":"Grumble","zoneId":"7"})", textOf(*fault.match));
  EXPECT_THAT(fault.types, ElementsAre("ad-attempt", "config"));
  EXPECT_EQ("5", fault.error);
  EXPECT_EQ(3, fault.times);
  EXPECT_EQ(500, fault.status);
}

TEST(FaultTest, ExplainsWhatIsWrongWithACommandLine) {
  EXPECT_THAT(complaintAboutSpec(""), HasSubstr("\"\" is no effect"));
  EXPECT_EQ("a fault has KEY=VALUE after its effect, not \"times\"",
            complaintAboutSpec("empty,times"));
  EXPECT_EQ("a fault has KEY=VALUE after its effect, not \"=1\"", complaintAboutSpec("empty,=1"));
  EXPECT_EQ("\"times\" must be a number from 1 to 1000000", complaintAboutSpec("empty,times=x"));
  EXPECT_THAT(complaintAboutSpec("empty,type=other"), HasSubstr("\"types\" must be"));
  EXPECT_EQ("a fault must be in UTF-8", complaintAboutSpec("permanent,error=\xff"));
}

}  // namespace
}  // namespace zln::collector
