#include "collector/fault_list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <future>
#include <stdexcept>
#include <string>

namespace zln::collector {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::SizeIs;

constexpr char kAd[] = "ad-attempt";
constexpr double kHeld = 3000;

double hitsIn(const std::string& pattern) {
  return static_cast<double>(std::ranges::count(pattern, 'x'));
}

class FaultListTest : public testing::Test {
 protected:
  int add(const json& fault) { return faults_.add(parseFault(fault)).id; }

  // The fault that acts on a request, 0 for none.
  int actingOn(std::string_view type, const json& body = json::object()) {
    const auto fault = faults_.takeForRequest(type, body);
    return fault ? fault->id : 0;
  }

  // For each of the next requests, whether the fault acts on it.
  std::string pattern(int count) {
    std::string text;
    for (int i = 0; i < count; ++i) text += actingOn(kAd) == 0 ? '.' : 'x';
    return text;
  }

  FaultList faults_{/*separatePorts=*/false};
};

TEST_F(FaultListTest, HasNoneAtFirst) {
  EXPECT_EQ(0, actingOn(kAd));
  EXPECT_EQ(std::nullopt, faults_.takeForConnection(std::nullopt));
  EXPECT_EQ(json::array(), faults_.list());
}

TEST_F(FaultListTest, LetsTheFirstThatAppliesAct) {
  add({{"effect", "empty"}, {"types", {"config"}}});
  add({{"effect", "empty"}, {"match", {{"network", "Flicker"}}}});
  add({{"effect", "empty"}});
  add({{"effect", "garbage"}});

  EXPECT_EQ(1, actingOn("config"));
  EXPECT_EQ(2, actingOn(kAd, {{"network", "Flicker"}, {"fill", true}}));
  EXPECT_EQ(3, actingOn(kAd, {{"network", "Sunrise"}}));
  EXPECT_EQ(3, actingOn("unknown", json()));
}

TEST_F(FaultListTest, ComparesMembersByValue) {
  add({{"effect", "empty"}, {"match", {{"fill", true}, {"count", 1}}}});

  EXPECT_EQ(1, actingOn(kAd, {{"fill", true}, {"count", 1.0}}));
  EXPECT_EQ(0, actingOn(kAd, {{"fill", true}}));
  EXPECT_EQ(0, actingOn(kAd, {{"fill", "true"}, {"count", 1}}));
}

TEST_F(FaultListTest, CountsOff) {
  add({{"effect", "empty"}, {"times", 2}});

  EXPECT_EQ("xx..", pattern(4));
  EXPECT_EQ(0, faults_.list()[0]["left"]);
  EXPECT_EQ(2, faults_.list()[0]["hits"]);
}

TEST_F(FaultListTest, ActsOnTheSameShareForTheSameSeed) {
  add({{"effect", "empty"}, {"share", 0.3}, {"seed", 7}});
  const std::string seven = pattern(1000);
  faults_.clear();
  add({{"effect", "empty"}, {"share", 0.3}, {"seed", 7}});
  const std::string sevenAgain = pattern(1000);
  faults_.clear();
  add({{"effect", "empty"}, {"share", 0.3}, {"seed", 8}});
  const std::string eight = pattern(1000);

  EXPECT_EQ(seven, sevenAgain);
  EXPECT_NE(seven, eight);
  EXPECT_NEAR(300, hitsIn(seven), 60);
  EXPECT_NEAR(300, hitsIn(eight), 60);
}

TEST_F(FaultListTest, TakesNoneAndAllAsShares) {
  add({{"effect", "empty"}, {"share", 0}});
  EXPECT_EQ("....................", pattern(20));
  faults_.clear();
  add({{"effect", "empty"}, {"share", 1}});
  EXPECT_EQ("xxxxxxxxxxxxxxxxxxxx", pattern(20));
}

TEST_F(FaultListTest, PassesARequestOnThatIsInNoShare) {
  add({{"effect", "empty"}, {"share", 0}});
  add({{"effect", "garbage"}});

  EXPECT_EQ(2, actingOn(kAd));
}

TEST_F(FaultListTest, ForgetsFaults) {
  const int one = add({{"effect", "empty"}});
  const int other = add({{"effect", "empty"}});

  EXPECT_TRUE(faults_.remove(one));
  EXPECT_FALSE(faults_.remove(one));
  EXPECT_EQ(other, actingOn(kAd));
  faults_.clear();
  EXPECT_EQ(0, actingOn(kAd));
  EXPECT_EQ(3, add({{"effect", "empty"}}));
}

TEST_F(FaultListTest, KeepsConnectionsAndRequestsApart) {
  add({{"effect", "cut-before"}});
  add({{"effect", "empty"}});

  EXPECT_EQ(2, actingOn(kAd));
  EXPECT_EQ(1, faults_.takeForConnection(std::nullopt)->id);
}

TEST_F(FaultListTest, KnowsTheTypeOfAConnectionOnSeparatePortsAlone) {
  const Fault fault = parseFault({{"effect", "expired-certificate"}, {"types", {"config"}}});
  FaultList separate(/*separatePorts=*/true);

  separate.add(fault);

  EXPECT_FALSE(separate.takeForConnection(kAd));
  EXPECT_TRUE(separate.takeForConnection("config"));
  EXPECT_THROW(faults_.add(fault), std::invalid_argument);
}

TEST_F(FaultListTest, HoldsABoundedNumber) {
  add({{"effect", "empty"}, {"times", 1}});
  for (int i = 1; i < 64; ++i) add({{"effect", "empty"}});
  EXPECT_THROW(add({{"effect", "empty"}}), std::invalid_argument);

  actingOn(kAd);  // The first has acted so often as it was to.

  EXPECT_EQ(65, add({{"effect", "empty"}}));
  EXPECT_THAT(faults_.list(), SizeIs(64));
}

TEST_F(FaultListTest, HoldsUntilTheTimeIsOver) {
  EXPECT_TRUE(faults_.hold(add({{"effect", "delay"}}), 0.01));
}

TEST_F(FaultListTest, HoldsUntilTheFaultIsOff) {
  const int id = add({{"effect", "delay"}});
  auto holding = std::async(std::launch::async, [&] { return faults_.hold(id, kHeld); });

  faults_.remove(id);

  EXPECT_TRUE(holding.get());
}

TEST_F(FaultListTest, HoldsNoLongerThanTheProgramRuns) {
  const int id = add({{"effect", "delay"}});
  auto holding = std::async(std::launch::async, [&] { return faults_.hold(id, kHeld); });

  faults_.endHolds();

  EXPECT_FALSE(holding.get());
  EXPECT_FALSE(faults_.hold(id, kHeld));
}

}  // namespace
}  // namespace zln::collector
