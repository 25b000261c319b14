#include "collector/fault_list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <future>
#include <stdexcept>
#include <string>
#include <string_view>

#include "tests/collector/shown.h"

namespace zln::collector {
namespace {

using testing::SizeIs;

constexpr char kAd[] = "ad-attempt";
constexpr double kHeld = 3000;

double hitsIn(const std::string& pattern) {
  return static_cast<double>(std::ranges::count(pattern, 'x'));
}

class FaultListTest : public testing::Test {
 protected:
  int add(const Json& fault) { return faults_.add(parseFault(fault)).id; }

  // The fault that acts on a request, 0 for none.
  int actingOn(std::string_view type, const Json& body = "{}") {
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
  EXPECT_EQ("[]", shown(faults_).text());
}

TEST_F(FaultListTest, LetsTheFirstThatAppliesAct) {
  add(R"({"effect":"empty","types":["config"]})");
  add(R"({"effect":"empty","match":{"network":"Flicker"}})");
  add(R"({"effect":"empty"})");
  add(R"({"effect":"garbage"})");

  EXPECT_EQ(1, actingOn("config"));
  EXPECT_EQ(2, actingOn(kAd, R"({"network":"Flicker","fill":true})"));
  EXPECT_EQ(3, actingOn(kAd, R"({"network":"Sunrise"})"));
  EXPECT_EQ(3, actingOn("unknown", "null"));
}

TEST_F(FaultListTest, ComparesMembersByValue) {
  add(R"({"effect":"empty","match":{"fill":true,"count":1}})");

  EXPECT_EQ(1, actingOn(kAd, R"({"fill":true,"count":1.0})"));
  EXPECT_EQ(0, actingOn(kAd, R"({"fill":true})"));
  EXPECT_EQ(0, actingOn(kAd, R"({"fill":"true","count":1})"));
}

TEST_F(FaultListTest, CountsOff) {
  add(R"({"effect":"empty","times":2})");

  EXPECT_EQ("xx..", pattern(4));
  EXPECT_EQ("0", shown(faults_)["0/left"]);
  EXPECT_EQ("2", shown(faults_)["0/hits"]);
}

TEST_F(FaultListTest, ActsOnTheSameShareForTheSameSeed) {
  add(R"({"effect":"empty","share":0.3,"seed":7})");
  const std::string seven = pattern(1000);
  faults_.clear();
  add(R"({"effect":"empty","share":0.3,"seed":7})");
  const std::string sevenAgain = pattern(1000);
  faults_.clear();
  add(R"({"effect":"empty","share":0.3,"seed":8})");
  const std::string eight = pattern(1000);

  EXPECT_EQ(seven, sevenAgain);
  EXPECT_NE(seven, eight);
  EXPECT_NEAR(300, hitsIn(seven), 60);
  EXPECT_NEAR(300, hitsIn(eight), 60);
}

TEST_F(FaultListTest, TakesNoneAndAllAsShares) {
  add(R"({"effect":"empty","share":0})");
  EXPECT_EQ("....................", pattern(20));
  faults_.clear();
  add(R"({"effect":"empty","share":1})");
  EXPECT_EQ("xxxxxxxxxxxxxxxxxxxx", pattern(20));
}

TEST_F(FaultListTest, PassesARequestOnThatIsInNoShare) {
  add(R"({"effect":"empty","share":0})");
  add(R"({"effect":"garbage"})");

  EXPECT_EQ(2, actingOn(kAd));
}

TEST_F(FaultListTest, ForgetsFaults) {
  const int one = add(R"({"effect":"empty"})");
  const int other = add(R"({"effect":"empty"})");

  EXPECT_TRUE(faults_.remove(one));
  EXPECT_FALSE(faults_.remove(one));
  EXPECT_EQ(other, actingOn(kAd));
  faults_.clear();
  EXPECT_EQ(0, actingOn(kAd));
  EXPECT_EQ(3, add(R"({"effect":"empty"})"));
}

TEST_F(FaultListTest, KeepsConnectionsAndRequestsApart) {
  add(R"({"effect":"cut-before"})");
  add(R"({"effect":"empty"})");

  EXPECT_EQ(2, actingOn(kAd));
  EXPECT_EQ(1, faults_.takeForConnection(std::nullopt)->id);
}

TEST_F(FaultListTest, KnowsTheTypeOfAConnectionOnSeparatePortsAlone) {
  const Fault fault = parseFault(Json(R"({"effect":"expired-certificate","types":["config"]})"));
  FaultList separate(/*separatePorts=*/true);

  separate.add(fault);

  EXPECT_FALSE(separate.takeForConnection(kAd));
  EXPECT_TRUE(separate.takeForConnection("config"));
  EXPECT_THROW(faults_.add(fault), std::invalid_argument);
}

TEST_F(FaultListTest, HoldsABoundedNumber) {
  add(R"({"effect":"empty","times":1})");
  for (int i = 1; i < 64; ++i) add(R"({"effect":"empty"})");
  EXPECT_THROW(add(R"({"effect":"empty"})"), std::invalid_argument);

  actingOn(kAd);  // The first has acted so often as it was to.

  EXPECT_EQ(65, add(R"({"effect":"empty"})"));
  EXPECT_THAT(shown(faults_).each("", "id"), SizeIs(64));
}

TEST_F(FaultListTest, HoldsUntilTheTimeIsOver) {
  EXPECT_TRUE(faults_.hold(add(R"({"effect":"delay"})"), 0.01));
}

TEST_F(FaultListTest, HoldsUntilTheFaultIsOff) {
  const int id = add(R"({"effect":"delay"})");
  auto holding = std::async(std::launch::async, [&] { return faults_.hold(id, kHeld); });

  faults_.remove(id);

  EXPECT_TRUE(holding.get());
}

TEST_F(FaultListTest, HoldsNoLongerThanTheProgramRuns) {
  const int id = add(R"({"effect":"delay"})");
  auto holding = std::async(std::launch::async, [&] { return faults_.hold(id, kHeld); });

  faults_.endHolds();

  EXPECT_FALSE(holding.get());
  EXPECT_FALSE(faults_.hold(id, kHeld));
}

}  // namespace
}  // namespace zln::collector
