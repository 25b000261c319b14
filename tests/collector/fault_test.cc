#include "collector/fault.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace zln::collector {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;

std::string complaintAbout(const json& fault) {
  try {
    parseFault(fault);
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
  const Fault fault = parseFault({{"effect", "delay"},
                                  {"types", {"ad-attempt", "config"}},
                                  {"match", {{"network", "Flicker"}}},
                                  {"seconds", 0.5},
                                  {"share", 0.25},
                                  {"seed", 7}});

  EXPECT_EQ(Effect::kDelay, fault.effect);
  EXPECT_THAT(fault.types, ElementsAre("ad-attempt", "config"));
  EXPECT_EQ(json({{"network", "Flicker"}}), fault.match);
  EXPECT_EQ(0.5, fault.seconds);
  EXPECT_EQ(0.25, fault.share);
  EXPECT_EQ(7u, fault.seed);
  EXPECT_EQ(std::nullopt, fault.times);
}

TEST(FaultTest, HasDefaults) {
  EXPECT_EQ(200, parseFault({{"effect", "empty"}}).status);
  EXPECT_EQ(2, parseFault({{"effect", "stall"}}).seconds);
  EXPECT_EQ("refused on demand", parseFault({{"effect", "permanent"}}).error);
  EXPECT_FALSE(parseFault({{"effect", "redirect"}}).toHttp);
  EXPECT_TRUE(parseFault({{"effect", "cut-after"}}).types.empty());
}

TEST(FaultTest, IsShownAsItWasRead) {
  const json fault = {{"effect", "permanent"}, {"types", {"config"}}, {"match", {{"fill", true}}},
                      {"status", 500},         {"error", "no room"},  {"times", 2}};
  json shown = fault;
  shown.update({{"id", 0}, {"hits", 0}, {"left", 2}});

  EXPECT_EQ(shown, toJson(parseFault(fault)));
  EXPECT_EQ(json({{"id", 0},
                  {"hits", 0},
                  {"effect", "redirect"},
                  {"to", "http"},
                  {"share", 1.0},
                  {"seed", 1}}),
            toJson(parseFault({{"effect", "redirect"}, {"to", "http"}, {"share", 1}})));
  EXPECT_EQ(json({{"id", 0}, {"hits", 0}, {"effect", "delay"}, {"seconds", 2.0}}),
            toJson(parseFault({{"effect", "delay"}})));
}

TEST(FaultTest, NeedsAnEffectThatThereIs) {
  EXPECT_EQ("a fault is a JSON object", complaintAbout("delay"));
  EXPECT_THAT(complaintAbout(json::object()), HasSubstr("needs an \"effect\": temporary, "));
  EXPECT_THAT(complaintAbout({{"effect", 5}}), HasSubstr("needs an \"effect\""));
  EXPECT_THAT(complaintAbout({{"effect", "explode"}}), HasSubstr("\"explode\" is no effect: "));
  EXPECT_THAT(complaintAbout({{"effect", "status"}}), HasSubstr("needs a \"status\""));
}

TEST(FaultTest, TakesNoMemberThatMeansNothing) {
  EXPECT_EQ("the effect \"delay\" takes no \"status\"",
            complaintAbout({{"effect", "delay"}, {"status", 200}}));
  EXPECT_EQ("the effect \"empty\" takes no \"error\"",
            complaintAbout({{"effect", "empty"}, {"error", "no"}}));
  EXPECT_EQ("the effect \"cut-before\" takes no \"seconds\"",
            complaintAbout({{"effect", "cut-before"}, {"seconds", 1}}));
  EXPECT_EQ("the effect \"status\" takes no \"to\"",
            complaintAbout({{"effect", "status"}, {"status", 200}, {"to", "http"}}));
  EXPECT_EQ("the effect \"cut-before\" takes no \"match\"",
            complaintAbout({{"effect", "cut-before"}, {"match", json::object()}}));
  EXPECT_EQ("the effect \"empty\" takes no \"id\"",
            complaintAbout({{"effect", "empty"}, {"id", 1}}));
}

TEST(FaultTest, TakesNoMemberOfAnotherKind) {
  const auto complaintWith = [](const char* key, const json& value) {
    json fault = {{"effect", "temporary"}};
    fault[key] = value;
    return complaintAbout(fault);
  };
  EXPECT_THAT(complaintWith("types", json::array()), HasSubstr("\"types\" must be an array"));
  EXPECT_THAT(complaintWith("types", {"unknown"}), HasSubstr("\"types\" must be an array"));
  EXPECT_THAT(complaintWith("types", "config"), HasSubstr("\"types\" must be an array"));
  EXPECT_THAT(complaintWith("match", {1}), HasSubstr("\"match\" must be an object"));
  EXPECT_THAT(complaintWith("match", {{"a", {1}}}), HasSubstr("\"match\" must be an object"));
  EXPECT_EQ("\"status\" must be a number from 200 to 599", complaintWith("status", 199));
  EXPECT_EQ("\"status\" must be a number from 200 to 599", complaintWith("status", "503"));
  EXPECT_EQ("\"status\" must be a whole number", complaintWith("status", 200.5));
  EXPECT_EQ("\"times\" must be a number from 1 to 1000000", complaintWith("times", 0));
  EXPECT_EQ("\"share\" must be a number from 0 to 1", complaintWith("share", 1.5));
  EXPECT_EQ("a \"seed\" needs a \"share\"", complaintWith("seed", 1));
  EXPECT_EQ("\"seed\" must be a whole number that is not negative",
            complaintAbout({{"effect", "empty"}, {"share", 1}, {"seed", -1}}));
  EXPECT_EQ("a fault has \"times\" or a \"share\", not both",
            complaintAbout({{"effect", "empty"}, {"share", 1}, {"times", 1}}));
  EXPECT_EQ("\"seconds\" must be a number from 0 to 3600",
            complaintAbout({{"effect", "delay"}, {"seconds", 3601}}));
  EXPECT_EQ("\"error\" must be a text of at most 1000 bytes",
            complaintAbout({{"effect", "permanent"}, {"error", std::string(1001, 'a')}}));
  EXPECT_EQ("\"to\" must be \"https\" or \"http\"",
            complaintAbout({{"effect", "redirect"}, {"to", "ftp"}}));
}

TEST(FaultTest, IsReadFromTheCommandLine) {
  EXPECT_EQ(Effect::kCutBefore, parseFaultSpec("cut-before").effect);

  const Fault fault = parseFaultSpec(
      "permanent,network=Grumble,fill=true,zoneId=\"7\",type=ad-attempt,"
      "type=config,error=5,times=3,status=500");

  EXPECT_EQ(Effect::kPermanent, fault.effect);
  EXPECT_EQ(json({{"network", "Grumble"}, {"fill", true}, {"zoneId", "7"}}), fault.match);
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
