#include "tests/soak/soak_reports.h"

namespace zln {
namespace {

constexpr const char* kAdTypes[] = {"banner", "interstitial", "rewarded", "own kind"};

}  // namespace

AdCall adCall(const std::string& name, int number) {
  const std::string digits = std::to_string(number);
  AdCall call;
  call.network = name + "." + digits;
  call.adType = kAdTypes[number % 4];
  if (number % 8 >= 4) call.zone = "zone <" + digits + "> & \xc3\xbc";
  call.filled = number % 3 == 0;
  return call;
}

std::string adIdentity(std::string_view network) { return "ad " + std::string(network); }

std::string beginIdentity(std::string_view session) { return "begin " + std::string(session); }

std::string stopIdentity(std::string_view session) { return "stop " + std::string(session); }

std::string identityOf(std::string_view type, std::string_view network, std::string_view session) {
  if (type == "ReportTypeSessionFirst" || type == "ReportTypeSessionStart") {
    return beginIdentity(session);
  }
  if (type == "ReportTypeSessionStop") return stopIdentity(session);
  if (type == "ReportTypeAdAttempt" || type == "ReportTypeAdZoneAttempt") {
    return adIdentity(network);
  }
  return {};
}

std::string identityOf(const nlohmann::json& body) {
  return identityOf(textIn(body, "type"), textIn(body, "network"), textIn(body, "sessionId"));
}

std::string textIn(const nlohmann::json& body, const char* key) {
  const auto found = body.find(key);
  return found == body.end() || !found->is_string() ? std::string() : found->get<std::string>();
}

}  // namespace zln
