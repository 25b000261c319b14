#include "tests/soak/receiver.h"

#include <utility>

#include "tests/soak/soak_reports.h"
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

// No server of this machine listens there.
constexpr char kDeadProxy[] = "http://127.0.0.1:1";

// A report is taken when it is stored and the reply says so, or is cut off after that.
Verdict verdictOf(const std::string& outcome) {
  if (outcome == "accepted" || outcome == "cut") return Verdict::kTaken;
  return outcome == "dropped" ? Verdict::kRejected : Verdict::kRefused;
}

// The weather of a life as faults for the collector, in their order: each acts on its share of what
// those before it have left.
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

// What reports meet until the gate opens.
Json gateFault() {
  return {{"effect", "temporary"}, {"seconds", kForever}, {"types", kReportTypes}};
}

// How the settings' requests are answered. Without effect where settings are handed out, it counts
// these requests.
Json settingsFault(const LifePlan& plan) {
  Json fault{{"effect", "array"}, {"status", 503}, {"types", {"config"}}};
  if (plan.handsOutSettings) fault.update({{"effect", "status"}, {"status", 200}});
  return fault;
}

}  // namespace

Receiver::Receiver(const LifePlan& plan, CollectorProcess& collector)
    : plan_(plan), collector_(collector), before_(collector.latestReport()) {
  if (!plan.weather.fault.is_null()) serverFault_ = add(plan.weather.fault);
  if (plan.weather.gated) gate_ = add(gateFault());
  for (const Json& fault : weatherFaults(plan)) add(fault);
  settings_ = add(settingsFault(plan));
  collector_.setSettings(plan.settings);
  if (!plan.weather.dead) proxy_ = std::make_unique<ConnectProxy>(collector.gamePort());
}

std::map<std::string, std::string> Receiver::environment() const {
  return {{"SSL_CERT_FILE", collector_.caFile()},
          {"https_proxy", proxy_ == nullptr ? kDeadProxy : proxy_->url()}};
}

// The collector has read what was still on its way, or never will, when its process has ended.
std::vector<std::string> Receiver::close() {
  handedOutSettings_ = plan_.handsOutSettings && collector_.hitsOf(settings_) > 0;
  proxy_.reset();
  std::vector<std::string> complaints;
  if (!collector_.end()) {
    complaints.push_back("the collector does not end well: " + collector_.complaints());
  }
  collector_.start();
  return complaints;
}

std::vector<Arrival> Receiver::arrivals() const {
  std::vector<Arrival> arrivals;
  for (const Json& report : collector_.reports(before_)) {
    arrivals.push_back(arrivalOf(report));
  }
  return arrivals;
}

int Receiver::add(const Json& fault) {
  const int id = collector_.addFault(fault);
  if (fault["effect"] == "cut-after") lostReplies_.insert(id);
  return id;
}

Arrival Receiver::arrivalOf(const Json& report) const {
  const Json& answer = report["answer"];
  Arrival arrival;
  arrival.body = report.value("body", Json());
  arrival.subject = subjectOf(arrival.body);
  arrival.verdict = verdictOf(answer["outcome"]);
  const bool isCut = answer["outcome"] == "cut" && answer["fault"].is_number();
  arrival.replied = !isCut || !lostReplies_.contains(answer["fault"].get<int>());
  arrival.isDuplicate = report["verdict"] == "duplicate";
  for (const Json& finding : report["findings"]) {
    if (finding["severity"] == "error") arrival.errors.push_back(finding["code"]);
  }
  return arrival;
}

}  // namespace zln
