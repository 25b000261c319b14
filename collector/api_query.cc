#include "collector/api_query.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string_view>

#include "collector/api_error.h"
#include "collector/http_status.h"
#include "collector/json_object.h"

namespace zln::collector {
namespace {

using nlohmann::json;

constexpr int kMostReports = 1000;
constexpr double kLongestWait = 60;
constexpr std::int64_t kHighestId = std::int64_t{1} << 53;
constexpr std::string_view kKeyPrefix = "key.";

[[noreturn]] void refuseRequest(const std::string& complaint) {
  throw ApiError(kBadRequest, complaint);
}

ReportKind parseKind(const std::string& name) {
  const auto kind = kindNamed(name);
  if (!kind) refuseRequest("\"" + name + "\" is no kind of report");
  return *kind;
}

Verdict parseVerdict(const std::string& name) {
  const auto verdict = verdictNamed(name);
  if (!verdict) refuseRequest("\"" + name + "\" is no verdict: valid, duplicate, suspect, invalid");
  return *verdict;
}

bool parseOrder(const std::string& order) {
  if (order != "asc" && order != "desc") refuseRequest("\"order\" must be asc or desc");
  return order == "desc";
}

void takeParameter(const std::string& name, const std::string& value, ReportQuery& query) {
  if (name == "kind") {
    query.kind = parseKind(value);
  } else if (name == "verdict") {
    query.verdict = parseVerdict(value);
  } else if (name == "user") {
    query.user = value;
  } else if (name == "session") {
    query.session = value;
  } else if (name == "text") {
    query.text = value;
  } else if (name == "order") {
    query.newestFirst = parseOrder(value);
  } else if (name.starts_with(kKeyPrefix) && name.size() > kKeyPrefix.size()) {
    query.match[name.substr(kKeyPrefix.size())] = jsonOrText(value);
  } else if (name != "after" && name != "before" && name != "limit") {
    refuseRequest("no such parameter: " + name);
  }
}

double number(const json& object, const char* key, double fallback, double lowest, double highest) {
  const auto member = object.find(key);
  if (member == object.end()) return fallback;
  const double value = member->is_number() ? member->get<double>() : NAN;
  if (value >= lowest && value <= highest) return value;
  const auto text = [](double limit) { return std::to_string(static_cast<std::int64_t>(limit)); };
  refuseRequest("\"" + std::string(key) + "\" must be a number from " + text(lowest) + " to " +
                text(highest));
}

std::map<std::string, json> matchOf(const json& value) {
  if (!value.is_object()) refuseRequest("\"match\" must be a JSON object");
  return value.get<std::map<std::string, json>>();
}

void checkMembers(const json& object) {
  for (const auto& [key, value] : object.items()) {
    if (key != "count" && key != "after" && key != "kind" && key != "match" && key != "timeout") {
      refuseRequest("a wait has \"count\", \"after\", \"kind\", \"match\" and \"timeout\", no \"" +
                    key + "\"");
    }
  }
}

}  // namespace

ReportQuery parseReportQuery(const Parameters& parameters) {
  ReportQuery query;
  for (const auto& [name, value] : parameters) takeParameter(name, value, query);
  query.after = parseNumber(parameters, "after", 0, kHighestId);
  query.before = parseNumber(parameters, "before", 0, kHighestId);
  const auto limit = parseNumber(parameters, "limit", 1, kMostReports);
  query.limit = static_cast<int>(limit.value_or(query.limit));
  return query;
}

WaitRequest parseWait(const json& object) {
  if (!object.is_object()) refuseRequest("a wait is a JSON object");
  checkMembers(object);
  WaitRequest wait;
  wait.query.limit = static_cast<int>(number(object, "count", 1, 1, kMostReports));
  wait.query.after =
      static_cast<std::int64_t>(number(object, "after", 0, 0, static_cast<double>(kHighestId)));
  if (const auto kind = object.find("kind"); kind != object.end()) {
    wait.query.kind = parseKind(kind->is_string() ? kind->get<std::string>() : kind->dump());
  }
  if (object.contains("match")) wait.query.match = matchOf(object["match"]);
  wait.seconds = number(object, "timeout", wait.seconds, 0, kLongestWait);
  return wait;
}

std::optional<std::int64_t> parseNumber(const Parameters& parameters, const std::string& name,
                                        std::int64_t lowest, std::int64_t highest) {
  const auto text = findParameter(parameters, name);
  if (!text) return std::nullopt;
  std::int64_t value = 0;
  const char* const textEnd = text->data() + text->size();
  const auto [end, failure] = std::from_chars(text->data(), textEnd, value);
  if (failure != std::errc() || end != textEnd || value < lowest || value > highest) {
    refuseRequest("\"" + name + "\" must be a whole number from " + std::to_string(lowest) +
                  " to " + std::to_string(highest));
  }
  return value;
}

std::optional<std::string> findParameter(const Parameters& parameters, const std::string& name) {
  const auto found = parameters.find(name);
  return found == parameters.end() ? std::nullopt : std::optional(found->second);
}

}  // namespace zln::collector
