#include "tests/collector/report_samples.h"

#include <fstream>
#include <iterator>

#include "collector/json.h"

namespace zln::collector {
namespace {

using nlohmann::json;

constexpr double kStart = 1795238203.7436833;

std::string report(const std::string& type, int user) {
  return R"({"bundleId":"com.example.starhopper","country":"US","device":"x86_64","platform":"iOS",)"
         R"("type":")" +
         type + R"(","userId":")" + uuid(user) + R"("})";
}

std::string sessionReport(const std::string& type, int user, int session) {
  json made = json::parse(report(type, user));
  made.update(json::parse(R"({"os":"12","sdkVersion":"0.0.0","mwVersion":"3.2.1",
                              "appVersion":"1.4.2","reportingVersion":"7.0.0"})"));
  made["sessionId"] = uuid(session);
  made["startTime"] = kStart + session;
  return made.dump();
}

std::string adReport(const std::string& type, int user, int event) {
  return with(report(type, user),
              R"({"network":"Sunrise","adType":"banner","fill":true,"adEventId":")" + uuid(event) +
                  R"("})");
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

std::string sessionFirst(int user, int session) {
  return sessionReport("ReportTypeSessionFirst", user, session);
}

std::string sessionStart(int user, int session) {
  return sessionReport("ReportTypeSessionStart", user, session);
}

std::string sessionStop(int user, int session) {
  json made = json::parse(sessionReport("ReportTypeSessionStop", user, session));
  made["stopTime"] = kStart + session + 8.5;
  made["totalDuration"] = 5.25;
  return made.dump();
}

std::string adAttempt(int user, int event) { return adReport("ReportTypeAdAttempt", user, event); }

std::string adZoneAttempt(int user, int event) {
  return with(adReport("ReportTypeAdZoneAttempt", user, event), R"({"zoneId":"main menu"})");
}

std::string sampleOf(ReportKind kind) {
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
  return "{}";
}

std::string with(const std::string& report, const std::string& members) {
  json changed = json::parse(report);
  changed.update(json::parse(members));
  return changed.dump();
}

std::string without(const std::string& report, const std::string& name) {
  json changed = json::parse(report);
  changed.erase(name);
  return changed.dump();
}

std::vector<std::string> membersOf(const std::string& report) {
  const json members = json::parse(report);
  std::vector<std::string> names;
  for (const auto& member : members.items()) names.push_back(member.key());
  return names;
}

JsonText shown(const ReportRow& row) { return JsonText(textOf(toJson(row))); }

JsonText shown(const std::vector<Finding>& findings) { return JsonText(textOf(toJson(findings))); }

}  // namespace zln::collector
