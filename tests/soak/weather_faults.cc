#include "tests/soak/weather_faults.h"

#include <utility>

#include "tests/support/dice.h"

namespace zln {
namespace {

using Json = nlohmann::json;

const Json kReportTypes = {"session-first", "session-start", "session-stop", "ad-attempt",
                           "ad-zone-attempt"};

// In pieces, as over a slow link.
const Json kSlowly = {{"effect", "stall"}, {"seconds", 0.01}};
const Json kFailedButTaken = {{"effect", "status"}, {"status", 500}};

const std::vector<Json> kRefusals = {{{"effect", "temporary"}},
                                     {{"effect", "temporary"}, {"status", 503}},
                                     {{"effect", "garbage"}},
                                     {{"effect", "garbage"}, {"status", 500}},
                                     {{"effect", "empty"}},
                                     {{"effect", "empty"}, {"status", 404}},
                                     {{"effect", "array"}},
                                     {{"effect", "array"}, {"status", 500}},
                                     {{"effect", "redirect"}, {"to", "http"}}};
constexpr int kRefusalsOfALife = 3;

const std::vector<Json> kRejections = {
    {{"effect", "permanent"}},
    {{"effect", "permanent"}, {"status", 400}, {"error", "not wanted"}},
    {{"effect", "permanent"}, {"status", 410}, {"error", ""}}};

// Faults that share all reports among themselves.
class Shares {
 public:
  explicit Shares(const LifePlan& plan)
      : dice_(plan.seed, 2), longestDelay_(static_cast<int>(plan.weather.longestDelay.count())) {}

  // Acts on so many of a hundred reports.
  void add(Json fault, double percent) {
    if (percent <= 0) return;
    fault["types"] = kReportTypes;
    if (percent < left_ - kRounding) {
      fault["share"] = percent / left_;
      fault["seed"] = dice_.from(1, 1000000);
    }
    if (!fault.contains("seconds")) fault["seconds"] = dice_.from(0, longestDelay_) / 1000.0;
    left_ -= percent;
    faults_.push_back(std::move(fault));
  }
  // The same number in each of some ways.
  void addSome(const std::vector<Json>& ways, int count, double percent) {
    for (int number = 0; number < count; ++number) add(dice_.oneOf(ways), percent / count);
  }
  std::vector<Json> take() { return std::move(faults_); }

 private:
  static constexpr double kRounding = 0.001;

  Dice dice_;
  int longestDelay_;
  double left_ = 100;
  std::vector<Json> faults_;
};

}  // namespace

std::vector<Json> weatherFaults(const LifePlan& plan) {
  const Weather& weather = plan.weather;
  Shares shares(plan);
  shares.add({{"effect", "cut-after"}}, weather.takenAndCut);
  shares.add({{"effect", "cut-during"}}, weather.cut);
  shares.add({{"effect", "stall"}, {"seconds", kForever}}, weather.stalled / 2.0);
  shares.add({{"effect", "cut-during"}, {"seconds", kForever}}, weather.stalled / 2.0);
  shares.addSome(kRejections, 1, weather.rejected);
  shares.addSome(kRefusals, kRefusalsOfALife, weather.refused);
  shares.add(kSlowly, weather.taken * 0.1);
  shares.add(kFailedButTaken, weather.taken * 0.3);
  shares.add({{"effect", "delay"}}, weather.taken * 0.4);
  return shares.take();
}

Json gateFault() {
  return {{"effect", "temporary"}, {"seconds", kForever}, {"types", kReportTypes}};
}

Json settingsFault(const LifePlan& plan) {
  Json fault{{"effect", "array"}, {"status", 503}, {"types", {"config"}}};
  if (plan.handsOutSettings) fault.update({{"effect", "status"}, {"status", 200}});
  return fault;
}

}  // namespace zln
