#include "collector/reply_rules.h"

#include <utility>

namespace zln::collector {
namespace {

std::string networkOf(const nlohmann::json& report) {
  const auto network = report.find("network");
  return network != report.end() && network->is_string() ? network->get<std::string>() : "";
}

}  // namespace

void ReplyRules::reject(std::string network) { rejected_.insert(std::move(network)); }

void ReplyRules::failNext(std::string network, int count) {
  failuresLeft_[std::move(network)] = count;
}

nlohmann::json ReplyRules::replyTo(const nlohmann::json& report) {
  const std::string network = networkOf(report);
  if (rejected_.contains(network)) {
    return {{"success", false},
            {"errorIsPermanent", true},
            {"error", "reports of " + network + " are not wanted"}};
  }
  return {{"success", !takeFailure(network)}};
}

bool ReplyRules::takeFailure(const std::string& network) {
  const auto left = failuresLeft_.find(network);
  if (left == failuresLeft_.end() || left->second == 0) return false;
  --left->second;
  return true;
}

}  // namespace zln::collector
