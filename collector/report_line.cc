#include "collector/report_line.h"

#include <algorithm>
#include <charconv>
#include <string_view>

namespace zln::collector {
namespace {

constexpr std::size_t kLongestText = 60;
constexpr std::size_t kIdentifierLength = 8;
constexpr std::size_t kKindWidth = 17;

bool isControl(unsigned char c) { return c < 0x20 || c == 0x7F; }

// The part of a UTF-8 text that fits, with no character cut in two.
std::string_view clip(std::string_view text, std::size_t longest) {
  if (text.size() <= longest) return text;
  while (longest > 0 && (static_cast<unsigned char>(text[longest]) & 0xC0) == 0x80) --longest;
  return text.substr(0, longest);
}

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

std::string outcome(const nlohmann::json& reply) {
  if (isTrue(reply, "success")) return "accepted";
  if (isTrue(reply, "errorIsPermanent")) return "REFUSED FOR GOOD: " + text(reply, "error");
  return "TRY AGAIN";
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

std::string printable(std::string_view text) {
  std::string shown(clip(text, kLongestText));
  for (char& c : shown) {
    if (isControl(static_cast<unsigned char>(c))) c = '.';
  }
  return shown.size() < text.size() ? shown + "..." : shown;
}

std::string reportLine(const nlohmann::json& report, const nlohmann::json& reply) {
  return describe(report) + "  -> " + outcome(reply);
}

std::string settingsLine(const nlohmann::json& request, const nlohmann::json& settings) {
  return padded("settings") + "asked for by version " +
         text(request, "ConfigSerializationKeyAppVersion") + ", library " +
         text(request, "ConfigSerializationKeySDKVersion") + "  -> " +
         std::to_string(settings.size()) + " given";
}

}  // namespace zln::collector
