#include "collector/reply_rules.h"

#include <gtest/gtest.h>

namespace zln::collector {
namespace {

using nlohmann::json;

const json kAccepted = {{"success", true}};
const json kPutOff = {{"success", false}};

TEST(ReplyRulesTest, AcceptsWhatNoRuleIsAbout) {
  ReplyRules rules;
  rules.reject("Grumble");
  rules.failNext("Flicker", 1);

  EXPECT_EQ(kAccepted, rules.replyTo({{"network", "Sunrise"}}));
}

TEST(ReplyRulesTest, AcceptsReportsWithoutNetwork) {
  ReplyRules rules;
  rules.reject("Grumble");

  EXPECT_EQ(kAccepted, rules.replyTo({{"type", "ReportTypeSessionStop"}}));
  EXPECT_EQ(kAccepted, rules.replyTo({{"network", 5}}));
}

TEST(ReplyRulesTest, RefusesEveryReportOfARejectedNetworkForGood) {
  const json refusal = {{"success", false},
                        {"errorIsPermanent", true},
                        {"error", "reports of Grumble are not wanted"}};
  ReplyRules rules;
  rules.reject("Grumble");

  EXPECT_EQ(refusal, rules.replyTo({{"network", "Grumble"}}));
  EXPECT_EQ(refusal, rules.replyTo({{"network", "Grumble"}}));
}

TEST(ReplyRulesTest, PutsOffAsManyReportsAsAskedFor) {
  ReplyRules rules;
  rules.failNext("Flicker", 2);

  EXPECT_EQ(kPutOff, rules.replyTo({{"network", "Flicker"}}));
  EXPECT_EQ(kPutOff, rules.replyTo({{"network", "Flicker"}}));
  EXPECT_EQ(kAccepted, rules.replyTo({{"network", "Flicker"}}));
}

}  // namespace
}  // namespace zln::collector
