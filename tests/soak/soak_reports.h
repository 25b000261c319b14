#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "tests/support/installation_files.h"
#include "tests/support/report_identity.h"

namespace zln {

// What the game says with the call of that number; soak_game.c makes the calls.
struct AdCall {
  std::string network;
  std::string adType;
  std::optional<std::string> zone;
  bool filled = false;
};
inline AdCall adCall(const std::string& name, int number) {
  constexpr const char* kAdTypes[] = {"banner", "interstitial", "rewarded", "own kind"};
  const std::string digits = std::to_string(number);
  AdCall call{name + "." + digits, kAdTypes[number % 4], std::nullopt, number % 3 == 0};
  if (number % 8 >= 4) call.zone = "zone <" + digits + "> & \xc3\xbc";
  return call;
}

// A game knows its reports before they have identifiers, so the books are kept by what a report is
// about: "ad" and the network, which is another one in each call; "begin" and the session for the
// first two kinds of session report; "stop" and the session.
inline std::string adSubject(const std::string& network) { return "ad " + network; }
inline std::string beginSubject(const std::string& session) { return "begin " + session; }
inline std::string stopSubject(const std::string& session) { return "stop " + session; }

// Empty when it is no report.
inline std::string subjectOf(const ReportIdentity& identity, const std::string& network) {
  const std::string& type = identity.type;
  if (type == "ReportTypeSessionFirst" || type == "ReportTypeSessionStart") {
    return beginSubject(identity.id);
  }
  if (type == "ReportTypeSessionStop") return stopSubject(identity.id);
  const bool isAd = type == "ReportTypeAdAttempt" || type == "ReportTypeAdZoneAttempt";
  return isAd ? adSubject(network) : "";
}
inline std::string subjectOf(const StoredReport& report) {
  return subjectOf(report.identity, report.network);
}
inline std::string subjectOf(const nlohmann::json& body) {
  return subjectOf(reportIdentity(body), textIn(body, "network"));
}

}  // namespace zln
