#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string>

namespace zln::collector {

// Decides the answer to each report: accepted, unless its ad network is one to misbehave for.
// One thread at a time.
class ReplyRules {
 public:
  // From now on every report of this network is refused for good.
  void reject(std::string network);
  // The next `count` reports of this network are answered with a temporary failure.
  void failNext(std::string network, int count);

  // The answer to a report. Counts off one failure when the answer is one.
  nlohmann::json replyTo(const nlohmann::json& report);

 private:
  bool takeFailure(const std::string& network);

  std::set<std::string> rejected_;
  std::map<std::string, int> failuresLeft_;
};

}  // namespace zln::collector
