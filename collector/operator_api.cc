#include "collector/operator_api.h"

#include <chrono>
#include <utility>

#include "collector/api_error.h"
#include "collector/api_query.h"
#include "collector/http_status.h"
#include "collector/json.h"
#include "collector/report_store.h"
#include "collector/settings_lint.h"

namespace zln::collector {
namespace {

using nlohmann::json;

constexpr int kFewInstallations = 100;
constexpr int kMostInstallations = 1000;

double secondsSince1970() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration<double>(now).count();
}

json toJson(const ReportList& list) {
  json rows = json::array();
  for (const ReportRow& row : list.reports) rows.push_back(zln::collector::toJson(row));
  return {{"reports", std::move(rows)}, {"total", list.total}, {"more", list.more}};
}

json valuesOf(const json& request) {
  const bool fits = request.is_object() && request.size() == 1 && request.contains("values") &&
                    request["values"].is_object();
  if (!fits) throw ApiError(kBadRequest, "the body must be {\"values\":{...}}");
  return request["values"];
}

}  // namespace

OperatorApi::OperatorApi(const CollectorParts& parts, ReportDesk& desk, CollectorFacts facts)
    : parts_(parts), desk_(desk), facts_(std::move(facts)), started_(secondsSince1970()) {}

json OperatorApi::status() {
  ReportQuery all;
  all.limit = 1;
  return {{"version", COLLECTOR_VERSION},
          {"started", started_},
          {"ports", facts_.ports},
          {"page", facts_.page},
          {"authority", facts_.authority},
          {"data", facts_.data},
          {"rejectInvalid", facts_.rejectInvalid},
          {"reports", parts_.store.list(all).total}};
}

json OperatorApi::reports(const Parameters& parameters) {
  return toJson(parts_.store.list(parseReportQuery(parameters)));
}

json OperatorApi::report(std::int64_t id) {
  const auto row = parts_.store.find(id);
  if (!row) throw ApiError(kNotFound, "there is no report " + std::to_string(id));
  return zln::collector::toJson(*row);
}

void OperatorApi::clearReports() { desk_.clear(); }

json OperatorApi::wait(const json& request) {
  const WaitRequest wanted = parseWait(request);
  const auto deadline = std::chrono::steady_clock::now() +
                        std::chrono::milliseconds(static_cast<long>(wanted.seconds * 1000));
  while (true) {
    const std::uint64_t seen = parts_.events.count();
    const ReportList list = parts_.store.list(wanted.query);
    const bool satisfied = list.total >= wanted.query.limit;
    if (satisfied || !parts_.events.waitForMoreThan(seen, deadline)) {
      return {{"reports", toJson(list)["reports"]}, {"satisfied", satisfied}};
    }
  }
}

json OperatorApi::summary() { return parts_.store.summary(); }

json OperatorApi::timeline(const Parameters& parameters) {
  const auto limit = parseNumber(parameters, "limit", 1, kMostInstallations);
  return parts_.store.timeline(findParameter(parameters, "user"),
                               static_cast<int>(limit.value_or(kFewInstallations)));
}

json OperatorApi::faults() { return {{"faults", parts_.faults.list()}}; }

json OperatorApi::addFault(const json& request) {
  const Fault fault = parts_.faults.add(parseFault(request));
  publishFaults();
  return zln::collector::toJson(fault);
}

void OperatorApi::removeFault(int id) {
  if (!parts_.faults.remove(id)) {
    throw ApiError(kNotFound, "there is no fault " + std::to_string(id));
  }
  publishFaults();
}

void OperatorApi::clearFaults() {
  parts_.faults.clear();
  publishFaults();
}

json OperatorApi::settings() { return parts_.settings.describe(); }

json OperatorApi::setSettings(const json& request) {
  parts_.settings.set(valuesOf(request));
  return publishSettings();
}

json OperatorApi::resetSettings() {
  parts_.settings.reset();
  return publishSettings();
}

json OperatorApi::lint(const json& request) { return {{"lint", lintSettings(valuesOf(request))}}; }

json OperatorApi::publishSettings() {
  json settings = parts_.settings.describe();
  parts_.events.publish("settings", [&] { return settings; });
  return settings;
}

void OperatorApi::publishFaults() {
  parts_.events.publish("faults", [this] { return parts_.faults.list(); });
}

}  // namespace zln::collector
