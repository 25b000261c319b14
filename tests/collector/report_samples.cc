#include "tests/collector/report_samples.h"

#include <fstream>
#include <iterator>

namespace zln::collector {
namespace {

using nlohmann::json;

constexpr double kStart = 1795238203.7436833;

json report(const char* type, int user) {
  return {{"type", type},       {"userId", uuid(user)}, {"country", "US"},
          {"device", "x86_64"}, {"platform", "iOS"},    {"bundleId", "com.example.starhopper"}};
}

json sessionReport(const char* type, int user, int session) {
  json made = report(type, user);
  made.update({{"sessionId", uuid(session)},
               {"startTime", kStart + session},
               {"os", "12"},
               {"sdkVersion", "0.0.0"},
               {"mwVersion", "3.2.1"},
               {"appVersion", "1.4.2"},
               {"reportingVersion", "7.0.0"}});
  return made;
}

json adReport(const char* type, int user, int event) {
  json made = report(type, user);
  made.update(
      {{"adEventId", uuid(event)}, {"network", "Sunrise"}, {"adType", "banner"}, {"fill", true}});
  return made;
}

}  // namespace

std::map<ReportKind, std::string> schemaTexts() {
  std::map<ReportKind, std::string> texts;
  for (const ReportKind kind : kReportKinds) {
    std::ifstream file(std::string(ZLN_SCHEMA_FOLDER "/") + std::string(nameOf(kind)) +
                       ".schema.json");
    texts[kind] = std::string(std::istreambuf_iterator<char>(file), {});
  }
  return texts;
}

std::string uuid(int number) {
  const std::string digits = std::to_string(number);
  return "00000000-0000-4000-8000-" + std::string(12 - digits.size(), '0') + digits;
}

json sessionFirst(int user, int session) {
  return sessionReport("ReportTypeSessionFirst", user, session);
}

json sessionStart(int user, int session) {
  return sessionReport("ReportTypeSessionStart", user, session);
}

json sessionStop(int user, int session) {
  json made = sessionReport("ReportTypeSessionStop", user, session);
  made.update({{"stopTime", kStart + session + 8.5}, {"totalDuration", 5.25}});
  return made;
}

json adAttempt(int user, int event) { return adReport("ReportTypeAdAttempt", user, event); }

json adZoneAttempt(int user, int event) {
  json made = adReport("ReportTypeAdZoneAttempt", user, event);
  made["zoneId"] = "main menu";
  return made;
}

json sampleOf(ReportKind kind) {
  switch (kind) {
    case ReportKind::kSessionFirst:
      return sessionFirst(1, 1);
    case ReportKind::kSessionStart:
      return sessionStart(1, 1);
    case ReportKind::kSessionStop:
      return sessionStop(1, 1);
    case ReportKind::kAdAttempt:
      return adAttempt(1, 1);
    case ReportKind::kAdZoneAttempt:
      return adZoneAttempt(1, 1);
    case ReportKind::kUnknown:
      break;
  }
  return json::object();
}

}  // namespace zln::collector
