#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tests/soak/life_plan.h"
#include "tests/soak/soak_reports.h"
#include "tests/support/collector_process.h"
#include "tests/support/connect_proxy.h"
#include "tests/support/dice.h"

namespace zln {

// What the server made of a report.
enum class Verdict { kTaken, kRefused, kRejected };

// A report as it came.
struct Arrival {
  std::string subject;
  nlohmann::json body;
  Verdict verdict = Verdict::kRefused;
  // The reply was sent whole, to whoever was still there.
  bool replied = true;
  // What the server says of the report itself.
  bool isDuplicate = false;
  std::vector<std::string> errors;
};

inline const nlohmann::json kReportTypes = {"session-first", "session-start", "session-stop",
                                            "ad-attempt", "ad-zone-attempt"};

// In pieces, as over a slow link.
inline const nlohmann::json kSlowly = {{"effect", "stall"}, {"seconds", 0.01}};
inline const nlohmann::json kFailedButTaken = {{"effect", "status"}, {"status", 500}};

inline const std::vector<nlohmann::json> kRefusals = {{{"effect", "temporary"}},
                                                      {{"effect", "temporary"}, {"status", 503}},
                                                      {{"effect", "garbage"}},
                                                      {{"effect", "garbage"}, {"status", 500}},
                                                      {{"effect", "empty"}},
                                                      {{"effect", "empty"}, {"status", 404}},
                                                      {{"effect", "array"}},
                                                      {{"effect", "array"}, {"status", 500}},
                                                      {{"effect", "redirect"}, {"to", "http"}}};
inline constexpr int kRefusalsOfALife = 3;

inline const std::vector<nlohmann::json> kRejections = {
    {{"effect", "permanent"}},
    {{"effect", "permanent"}, {"status", 400}, {"error", "not wanted"}},
    {{"effect", "permanent"}, {"status", 410}, {"error", ""}}};

// Faults that share all reports among themselves.
class Shares {
 public:
  explicit Shares(const LifePlan& plan)
      : dice_(plan.seed, 2), longestDelay_(static_cast<int>(plan.weather.longestDelay.count())) {}

  // Acts on so many of a hundred reports.
  void add(nlohmann::json fault, double percent) {
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
  void addSome(const std::vector<nlohmann::json>& ways, int count, double percent) {
    for (int number = 0; number < count; ++number) add(dice_.oneOf(ways), percent / count);
  }
  std::vector<nlohmann::json> take() { return std::move(faults_); }

 private:
  static constexpr double kRounding = 0.001;

  Dice dice_;
  int longestDelay_;
  double left_ = 100;
  std::vector<nlohmann::json> faults_;
};

// No server of this machine listens there.
inline constexpr char kDeadProxy[] = "http://127.0.0.1:1";

// A report is taken when it is stored and the reply says so, or is cut off after that.
inline Verdict verdictOf(const std::string& outcome) {
  if (outcome == "accepted" || outcome == "cut") return Verdict::kTaken;
  return outcome == "dropped" ? Verdict::kRejected : Verdict::kRefused;
}

// The weather of a life as faults for the collector, in their order: each acts on its share of what
// those before it have left.
inline std::vector<nlohmann::json> weatherFaults(const LifePlan& plan) {
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

// What reports meet until the gate opens.
inline nlohmann::json gateFault() {
  return {{"effect", "temporary"}, {"seconds", kForever}, {"types", kReportTypes}};
}

// How the settings' requests are answered. Without effect where settings are handed out, it counts
// these requests.
inline nlohmann::json settingsFault(const LifePlan& plan) {
  nlohmann::json fault{{"effect", "array"}, {"status", 503}, {"types", {"config"}}};
  if (plan.handsOutSettings) fault.update({{"effect", "status"}, {"status", 200}});
  return fault;
}

// The server of one life: a collector that misbehaves as the plan's weather has it.
class Receiver {
 public:
  // The collector is up, without faults.
  Receiver(const LifePlan& plan, CollectorProcess& collector)
      : plan_(plan), collector_(collector), before_(collector.latestReport()) {
    if (!plan.weather.fault.is_null()) serverFault_ = add(plan.weather.fault);
    if (plan.weather.gated) gate_ = add(gateFault());
    for (const nlohmann::json& fault : weatherFaults(plan)) add(fault);
    settings_ = add(settingsFault(plan));
    collector_.setSettings(plan.settings);
    if (!plan.weather.dead) proxy_ = std::make_unique<ConnectProxy>(collector.gamePort());
  }

  // What leads a game's requests here.
  std::map<std::string, std::string> environment() const {
    return {{"SSL_CERT_FILE", collector_.caFile()},
            {"https_proxy", proxy_ == nullptr ? kDeadProxy : proxy_->url()}};
  }

  void endFault() { collector_.removeFault(serverFault_); }
  // Breaks all connections; nobody is reached any more.
  void cutOff() { proxy_.reset(); }
  // Lets the replies go that wait for it.
  void openGate() { collector_.removeFault(gate_); }
  // Closes all connections, after which nothing comes any more, and leaves the collector without
  // faults. Returns what is wrong with it.
  std::vector<std::string> close() {
    handedOutSettings_ = plan_.handsOutSettings && collector_.hitsOf(settings_) > 0;
    proxy_.reset();
    std::vector<std::string> complaints;
    if (!collector_.end()) {
      complaints.push_back("the collector does not end well: " + collector_.complaints());
    }
    collector_.start();
    return complaints;
  }

  // Ask when it is closed.
  std::vector<Arrival> arrivals() const {
    std::vector<Arrival> arrivals;
    for (const nlohmann::json& report : collector_.reports(before_)) {
      arrivals.push_back(arrivalOf(report));
    }
    return arrivals;
  }
  bool handedOutSettings() const { return handedOutSettings_; }

 private:
  int add(const nlohmann::json& fault) {
    const int id = collector_.addFault(fault);
    if (fault["effect"] == "cut-after") lostReplies_.insert(id);
    return id;
  }
  Arrival arrivalOf(const nlohmann::json& report) const {
    const nlohmann::json& answer = report["answer"];
    Arrival arrival;
    arrival.body = report.value("body", nlohmann::json());
    arrival.subject = subjectOf(arrival.body);
    arrival.verdict = verdictOf(answer["outcome"]);
    const bool isCut = answer["outcome"] == "cut" && answer["fault"].is_number();
    arrival.replied = !isCut || !lostReplies_.contains(answer["fault"].get<int>());
    arrival.isDuplicate = report["verdict"] == "duplicate";
    for (const nlohmann::json& finding : report["findings"]) {
      if (finding["severity"] == "error") arrival.errors.push_back(finding["code"]);
    }
    return arrival;
  }

  const LifePlan& plan_;
  CollectorProcess& collector_;
  const std::int64_t before_;  // The latest report of earlier lives.
  int serverFault_ = 0;
  int gate_ = 0;
  int settings_ = 0;
  std::set<int> lostReplies_;  // The faults under which a report is taken and no reply sent.
  bool handedOutSettings_ = false;
  std::unique_ptr<ConnectProxy> proxy_;
};

}  // namespace zln
