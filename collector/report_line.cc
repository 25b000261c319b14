#include "collector/report_line.h"

#include <algorithm>
#include <charconv>

#include "collector/json.h"
#include "collector/printable_text.h"

namespace zln::collector {
namespace {

constexpr std::size_t kIdentifierLength = 8;
constexpr std::size_t kKindWidth = 17;

// A member for a terminal; "?" when there is no such text.
std::string text(const nlohmann::json& object, const char* key) {
  const auto member = object.find(key);
  if (member == object.end() || !member->is_string()) return "?";
  return printable(member->get_ref<const std::string&>());
}

std::string seconds(const nlohmann::json& object, const char* key) {
  const auto member = object.find(key);
  if (member == object.end() || !member->is_number()) return "?";
  char digits[32];
  const auto [end, failure] = std::to_chars(digits, digits + sizeof digits, member->get<double>(),
                                            std::chars_format::fixed, 1);
  return failure == std::errc() ? std::string(digits, end) : "?";
}

bool isTrue(const nlohmann::json& object, const char* key) {
  const auto member = object.find(key);
  return member != object.end() && member->is_boolean() && member->get<bool>();
}

std::string session(const nlohmann::json& report) {
  return "session " + text(report, "sessionId").substr(0, kIdentifierLength);
}

std::string sessionBegin(const nlohmann::json& report) {
  return session(report) + " of " + text(report, "bundleId") + " " + text(report, "appVersion") +
         ", engine " + text(report, "mwVersion") + ", by user " +
         text(report, "userId").substr(0, kIdentifierLength);
}

std::string sessionEnd(const nlohmann::json& report) {
  return session(report) + " after " + seconds(report, "totalDuration") + " seconds of play";
}

std::string adAttempt(const nlohmann::json& report) {
  return text(report, "adType") + " by " + text(report, "network") +
         (report.contains("zoneId") ? " in zone " + text(report, "zoneId") : "") +
         (isTrue(report, "fill") ? ", filled" : ", not filled");
}

std::string refusal(const ReportRow& row, const std::optional<Fault>& fault) {
  if (fault) return printable(fault->error);
  const auto error = std::ranges::find(row.findings, Severity::kError, &Finding::severity);
  return error == row.findings.end() ? "?" : printable(error->text);
}

std::string outcome(const ReportRow& row, const std::optional<Fault>& fault) {
  switch (row.answer.outcome) {
    case Answer::Outcome::kAccepted:
      return "accepted";
    case Answer::Outcome::kRetry:
      return "TRY AGAIN";
    case Answer::Outcome::kDropped:
      return "REFUSED FOR GOOD: " + refusal(row, fault);
    case Answer::Outcome::kCut:
      return "NO ANSWER";
    case Answer::Outcome::kOther:
      break;
  }
  return "SPOILED ANSWER";
}

std::string verdictRemark(Verdict verdict) {
  return verdict == Verdict::kValid ? "" : "  (" + std::string(nameOf(verdict)) + ")";
}

std::string padded(std::string kind) {
  kind.resize(std::max(kind.size(), kKindWidth), ' ');
  return kind;
}

std::string describe(const nlohmann::json& report) {
  const std::string type = text(report, "type");
  if (type == "ReportTypeSessionFirst") return padded("first session") + sessionBegin(report);
  if (type == "ReportTypeSessionStart") return padded("session start") + sessionBegin(report);
  if (type == "ReportTypeSessionStop") return padded("session stop") + sessionEnd(report);
  if (type == "ReportTypeAdAttempt") return padded("ad attempt") + adAttempt(report);
  if (type == "ReportTypeAdZoneAttempt") return padded("ad zone attempt") + adAttempt(report);
  return padded("unknown report") + type;
}

}  // namespace

std::string describeReport(const nlohmann::json& report, std::size_t size) {
  if (report.is_object()) return describe(report);
  return "no report: " + std::to_string(size) + " bytes that are no JSON object";
}

std::string reportLine(const nlohmann::json& report, const ReportRow& row,
                       const std::optional<Fault>& fault) {
  return describeReport(report, row.body.size()) + "  -> " + outcome(row, fault) +
         verdictRemark(row.verdict) + (fault ? faultRemark(*fault) : "");
}

std::string faultRemark(const Fault& fault) {
  return "  (fault " + std::to_string(fault.id) + ": " + std::string(nameOf(fault.effect)) + ")";
}

std::string settingsLine(const nlohmann::json& request, const nlohmann::json& settings) {
  return padded("settings") + "asked for by version " +
         text(request, "ConfigSerializationKeyAppVersion") + ", library " +
         text(request, "ConfigSerializationKeySDKVersion") + "  -> " +
         std::to_string(settings.size()) + " given";
}

}  // namespace zln::collector
