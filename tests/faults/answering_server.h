#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "tests/support/https_server.h"

namespace zln::faults {

// A report that came to the server, and in which of the game's lives.
struct ReceivedReport {
  int life = 0;
  nlohmann::json body;
};

// What is the same each time a report is sent or stored: an attempt's event, or a session with the
// kind of its report.
std::string identityOf(const std::string& type, const std::string& event,
                       const std::string& session);

// An HTTPS server that plays the reporting service through the lives of one game after the other.
//
// It takes every report at once but attempts whose network says otherwise: "refused" fails for
// good, one that begins with "thrice" fails three times for now.
class AnsweringServer {
 public:
  AnsweringServer();

  // Forgets what it has received. No game may be running.
  void forget();
  void setLife(int life) { life_ = life; }
  // A silent server answers nothing, and what it receives does not count.
  void setSilent(bool isSilent) { isSilent_ = isSilent; }

  // What was answered so far, in the order of coming, and how many of these have that network.
  std::vector<ReceivedReport> reports() const;
  int countOf(const std::string& network) const;
  int settingsRequests() const { return settingsRequests_; }
  // Whether the attempt of that network is with the server for good.
  bool isSettled(const std::string& network) const;

  HttpsServer& https() { return https_; }
  std::uint16_t port() const;

 private:
  ServerReply answer(const ReceivedRequest& request);
  ServerReply answerReport(const nlohmann::json& body);

  HttpsServer https_;
  std::atomic<int> life_{0};
  std::atomic<bool> isSilent_{false};
  std::atomic<int> settingsRequests_{0};
  mutable std::mutex mutex_;
  std::vector<ReceivedReport> reports_;
  std::map<std::string, int> failures_;
  std::set<std::string> settled_;
};

}  // namespace zln::faults
