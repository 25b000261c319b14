#include "tests/support/sent_reports.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <optional>

#include "platform/error.h"
#include "platform/json.h"
#include "platform/property_list.h"

namespace zln {
namespace {

constexpr char kReportPath[] = "/session";
constexpr char kReportFile[] = "/support/com.zelnor.sdk/reporting/reports.json";

Dictionary dictionaryOf(const Value& value) {
  if (value.dictionary() != nullptr) return *value.dictionary();
  ADD_FAILURE() << "no dictionary: " << value.description();
  return {};
}

}  // namespace

std::vector<SentReport> sentReports(const FakeHttp& http) {
  std::vector<SentReport> reports;
  for (const HttpRequest& request : http.requests()) {
    if (!request.url.ends_with(kReportPath)) continue;
    Error error;
    const std::optional<Value> body = json::parse(request.body, &error);
    if (body) {
      reports.push_back({request.url, dictionaryOf(*body)});
    } else {
      ADD_FAILURE() << "no JSON: " << request.body << ": " << error.description();
    }
  }
  return reports;
}

std::vector<std::string> sentTypes(const FakeHttp& http) {
  std::vector<std::string> types;
  for (const SentReport& report : sentReports(http)) types.push_back(textOf(report.body, "type"));
  return types;
}

std::vector<Dictionary> storedReports(const FakeFiles& files) {
  const std::optional<std::string> bytes = files.contents(kReportFile);
  if (!bytes) return {};
  const std::optional<Value> root = property_list::read(*bytes);
  if (!root || root->array() == nullptr) {
    ADD_FAILURE() << "no array: " << *bytes;
    return {};
  }
  std::vector<Dictionary> reports;
  for (const Value& report : *root->array()) reports.push_back(dictionaryOf(report));
  return reports;
}

std::string textOf(const Dictionary& report, std::string_view key) {
  const std::string* text = report.findString(key);
  if (text != nullptr) return *text;
  ADD_FAILURE() << "no text under " << key << " in " << report.description();
  return "";
}

double numberOf(const Dictionary& report, std::string_view key) {
  const Number* number = report.findNumber(key);
  if (number != nullptr) return number->doubleValue();
  ADD_FAILURE() << "no number under " << key << " in " << report.description();
  return std::numeric_limits<double>::quiet_NaN();
}

std::vector<std::string> keysOf(const Dictionary& report) {
  std::vector<std::string> keys;
  for (const auto& [key, value] : report.entries()) keys.push_back(key);
  std::sort(keys.begin(), keys.end());
  return keys;
}

}  // namespace zln
