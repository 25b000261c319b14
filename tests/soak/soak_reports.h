#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

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
AdCall adCall(const std::string& name, int number);

// A game knows its reports before they have identifiers, so the books are kept by what a report is
// about: "ad" and the network, which is another one in each call; "begin" and the session for the
// first two kinds of session report; "stop" and the session.
std::string adSubject(std::string_view network);
std::string beginSubject(std::string_view session);
std::string stopSubject(std::string_view session);
// Empty when it is no report.
std::string subjectOf(const ReportIdentity& identity, std::string_view network);
inline std::string subjectOf(const StoredReport& report) {
  return subjectOf(report.identity, report.network);
}
inline std::string subjectOf(const nlohmann::json& body) {
  return subjectOf(reportIdentity(body), textIn(body, "network"));
}

}  // namespace zln
