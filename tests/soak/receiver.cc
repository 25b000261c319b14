#include "tests/soak/receiver.h"

#include "tests/soak/soak_reports.h"
#include "tests/soak/weather_faults.h"

namespace zln {
namespace {

// No server of this machine listens there.
constexpr char kDeadProxy[] = "http://127.0.0.1:1";

// A report is taken when it is stored and the reply says so, or is cut off after that.
Verdict verdictOf(const std::string& outcome) {
  if (outcome == "accepted" || outcome == "cut") return Verdict::kTaken;
  return outcome == "dropped" ? Verdict::kRejected : Verdict::kRefused;
}

}  // namespace

Receiver::Receiver(const LifePlan& plan, CollectorProcess& collector)
    : plan_(plan), collector_(collector), before_(collector.latestReport()) {
  if (!plan.weather.fault.is_null()) serverFault_ = add(plan.weather.fault);
  if (plan.weather.gated) gate_ = add(gateFault());
  for (const nlohmann::json& fault : weatherFaults(plan)) add(fault);
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
  for (const nlohmann::json& report : collector_.reports(before_)) {
    arrivals.push_back(arrivalOf(report));
  }
  return arrivals;
}

int Receiver::add(const nlohmann::json& fault) {
  const int id = collector_.addFault(fault);
  if (fault["effect"] == "cut-after") lostReplies_.insert(id);
  return id;
}

Arrival Receiver::arrivalOf(const nlohmann::json& report) const {
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

}  // namespace zln
