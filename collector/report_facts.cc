#include "collector/report_facts.h"

#include <string_view>

#include "collector/json.h"

namespace zln::collector {
namespace {

using nlohmann::json;

const json* member(const json& report, const char* key) {
  const auto found = report.find(key);
  return found == report.end() ? nullptr : &*found;
}

std::optional<std::string> text(const json& report, const char* key) {
  const json* value = member(report, key);
  if (value == nullptr || !value->is_string()) return std::nullopt;
  return value->get<std::string>();
}

std::optional<double> number(const json& report, const char* key) {
  const json* value = member(report, key);
  if (value == nullptr || !value->is_number()) return std::nullopt;
  return value->get<double>();
}

std::optional<bool> truth(const json& report, const char* key) {
  const json* value = member(report, key);
  if (value == nullptr || !value->is_boolean()) return std::nullopt;
  return value->get<bool>();
}

}  // namespace

ReportFacts factsOf(const json& report) {
  ReportFacts facts;
  if (!report.is_object()) return facts;
  facts.kind = kindOfType(text(report, "type").value_or(""));
  facts.user = text(report, "userId");
  facts.bundle = text(report, "bundleId");
  facts.version = text(report, "appVersion");

  facts.session = text(report, "sessionId");
  facts.start = number(report, "startTime");
  facts.stop = number(report, "stopTime");
  facts.played = number(report, "totalDuration");

  facts.event = text(report, "adEventId");
  facts.network = text(report, "network");
  facts.adType = text(report, "adType");
  facts.zone = text(report, "zoneId");
  facts.fill = truth(report, "fill");
  return facts;
}

}  // namespace zln::collector
