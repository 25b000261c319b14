#include "tests/soak/soak_reports.h"

namespace zln {
namespace {

constexpr const char* kAdTypes[] = {"banner", "interstitial", "rewarded", "own kind"};

}  // namespace

AdCall adCall(const std::string& name, int number) {
  const std::string digits = std::to_string(number);
  AdCall call{name + "." + digits, kAdTypes[number % 4], std::nullopt, number % 3 == 0};
  if (number % 8 >= 4) call.zone = "zone <" + digits + "> & \xc3\xbc";
  return call;
}

std::string adSubject(std::string_view network) { return "ad " + std::string(network); }
std::string beginSubject(std::string_view session) { return "begin " + std::string(session); }
std::string stopSubject(std::string_view session) { return "stop " + std::string(session); }

std::string subjectOf(const ReportIdentity& identity, std::string_view network) {
  const std::string& type = identity.type;
  if (type == "ReportTypeSessionFirst" || type == "ReportTypeSessionStart") {
    return beginSubject(identity.id);
  }
  if (type == "ReportTypeSessionStop") return stopSubject(identity.id);
  if (type == "ReportTypeAdAttempt" || type == "ReportTypeAdZoneAttempt") return adSubject(network);
  return {};
}

}  // namespace zln
