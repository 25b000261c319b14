#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "tests/soak/life_plan.h"
#include "tests/support/collector_process.h"
#include "tests/support/connect_proxy.h"

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

// The server of one life: a collector that misbehaves as the plan's weather has it.
class Receiver {
 public:
  // The collector is up, without faults.
  Receiver(const LifePlan& plan, CollectorProcess& collector);

  // What leads a game's requests here.
  std::map<std::string, std::string> environment() const;

  void endFault() { collector_.removeFault(serverFault_); }
  // Breaks all connections; nobody is reached any more.
  void cutOff() { proxy_.reset(); }
  // Lets the replies go that wait for it.
  void openGate() { collector_.removeFault(gate_); }
  // Closes all connections, after which nothing comes any more, and leaves the collector without
  // faults. Returns what is wrong with it.
  std::vector<std::string> close();

  // Ask when it is closed.
  std::vector<Arrival> arrivals() const;
  bool handedOutSettings() const { return handedOutSettings_; }

 private:
  int add(const nlohmann::json& fault);
  Arrival arrivalOf(const nlohmann::json& report) const;

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
