#pragma once

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/soak/dice.h"
#include "tests/soak/life_plan.h"
#include "tests/support/connect_proxy.h"
#include "tests/support/https_server.h"

namespace zln {

// What the server made of a report.
enum class Verdict { kTaken, kRefused, kRejected };

// A report as it came.
struct Arrival {
  std::string identity;
  nlohmann::json body;
  Verdict verdict = Verdict::kRefused;
  // The reply was sent whole, to whoever was still there.
  bool replied = true;
};

// The server of one life: answers as the plan's weather has it and writes down what it took.
class Receiver {
 public:
  explicit Receiver(const LifePlan& plan);
  ~Receiver();
  Receiver(const Receiver&) = delete;
  Receiver& operator=(const Receiver&) = delete;

  // What leads a game's requests here.
  std::map<std::string, std::string> environment() const;

  void endFault() { server_->setFault(ConnectionFault::kNone); }
  // Breaks all connections; nobody is reached any more.
  void cutOff() { proxy_.reset(); }
  // Lets the replies go that wait for it.
  void openGate();
  // Closes all connections, after which nothing comes any more.
  void close();

  // Ask when it is closed.
  const std::vector<Arrival>& arrivals() const { return arrivals_; }
  bool handedOutSettings() const { return handedOutSettings_; }

 private:
  ServerReply answer(const ReceivedRequest& request);
  ServerReply answerSettings();
  ServerReply answerReport(const ReceivedRequest& request);
  ServerReply draw(Dice& dice, Arrival& arrival) const;
  Dice diceFor(const std::string& identity);
  // False when the server is closed meanwhile.
  bool waitAWhile(Dice& dice);

  const LifePlan& plan_;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool gateIsOpen_;
  bool closing_ = false;
  bool handedOutSettings_ = false;
  std::map<std::string, int> attempts_;
  std::vector<Arrival> arrivals_;
  std::unique_ptr<HttpsServer> server_ = std::make_unique<HttpsServer>();
  std::unique_ptr<ConnectProxy> proxy_;
};

}  // namespace zln
