// Shows "reports.json", "config.dat" or the user defaults, which are property lists, as JSON.
// Beside a time in seconds stands its date.
//
// usage: dump_reports FILE
//   exit status 1 when the file cannot be read or the library will not take all of it; what is
//   wrong goes to the error output

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/environment.h"
#include "platform/property_list.h"
#include "platform/utf8.h"
#include "reports/report_types.h"

namespace {

using Json = nlohmann::ordered_json;
using zln::Dictionary;
using zln::Number;
using zln::Value;

// The library takes no larger one.
constexpr std::size_t kLargestFile = std::size_t{64} << 20;

constexpr std::string_view kTimeKeys[] = {"startTime", "stopTime", "lastPauseTime",
                                          "lastResumeTime", "lastUpdate"};
constexpr std::string_view kSessionTypes[] = {
    zln::kReportTypeSessionFirst, zln::kReportTypeSessionStart, zln::kReportTypeSessionStop};
constexpr std::string_view kAdTypes[] = {zln::kReportTypeAdAttempt, zln::kReportTypeAdZoneAttempt};

template <typename List>
bool isIn(const List& list, std::string_view text) {
  return std::find(std::begin(list), std::end(list), text) != std::end(list);
}

Json numberJson(const Number& number) {
  if (number.isBoolean()) return number.boolValue();
  if (!number.isReal()) return number.longValue();
  if (!std::isfinite(number.doubleValue())) return number.description();
  return number.doubleValue();
}

Json toJson(const Value& value);

Json dictionaryJson(const Dictionary& dictionary) {
  Json object = Json::object();
  for (const auto& [key, value] : dictionary.entries()) {
    object[key] = toJson(value);
    const Number* seconds = value.number();
    if (seconds != nullptr && isIn(kTimeKeys, key)) {
      object[key + " as a date"] = zln::Date{seconds->doubleValue()}.description();
    }
  }
  return object;
}

Json toJson(const Value& value) {
  if (const std::string* text = value.string()) return zln::sanitizedUtf8(*text);
  if (const Number* number = value.number()) return numberJson(*number);
  if (const Dictionary* dictionary = value.dictionary()) return dictionaryJson(*dictionary);
  if (const zln::Array* array = value.array()) {
    Json list = Json::array();
    for (const Value& element : *array) list.push_back(toJson(element));
    return list;
  }
  return value.description();
}

// Why the library would not take a stored report, if so.
std::optional<std::string> flawOf(const Value& element) {
  const Dictionary* report = element.dictionary();
  if (report == nullptr) return "it is no dictionary; it will be dropped";
  const std::string* type = report->findString("type");
  if (type == nullptr) return "it has no \"type\"; it will be dropped";
  if (isIn(kAdTypes, *type)) return std::nullopt;
  if (!isIn(kSessionTypes, *type)) return "\"" + *type + "\" is no type; it will be dropped";
  if (report->findString("sessionId") == nullptr || report->findNumber("startTime") == nullptr) {
    return "it has no \"sessionId\" or \"startTime\"; it will be sent without its session";
  }
  return std::nullopt;
}

std::vector<std::string> flawsOf(const Value& root) {
  std::vector<std::string> flaws;
  if (const zln::Array* reports = root.array()) {
    for (std::size_t at = 0; at < reports->size(); ++at) {
      if (const auto flaw = flawOf((*reports)[at])) {
        flaws.push_back("report " + std::to_string(at + 1) + ": " + *flaw);
      }
    }
  } else if (const Dictionary* settings = root.dictionary()) {
    for (const auto& [key, value] : settings->entries()) {
      const bool isSetting = key.starts_with("ConfigSerializationKey") || key == "lastUpdate";
      if (isSetting && value.number() == nullptr) {
        flaws.push_back(key + ": it is no number; it will be ignored");
      }
    }
  } else {
    flaws.push_back("neither a list of reports nor settings");
  }
  return flaws;
}

std::optional<std::string> readFile(const std::string& path) {
  return zln::portEnvironment().files.read(std::filesystem::absolute(path), kLargestFile, nullptr);
}

bool dump(const std::string& path) {
  const std::optional<std::string> bytes = readFile(path);
  if (!bytes) {
    std::cerr << path << ": cannot be read, or is larger than 64 MB\n";
    return false;
  }
  std::string problem;
  const std::optional<Value> root = zln::property_list::read(*bytes, &problem);
  if (!root) {
    std::cerr << path << ": no property list: " << problem << "\n";
    return false;
  }
  std::cout << toJson(*root).dump(2) << "\n";
  const std::vector<std::string> flaws = flawsOf(*root);
  for (const std::string& flaw : flaws) std::cerr << path << ": " << flaw << "\n";
  return flaws.empty();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: dump_reports FILE\n";
    return 2;
  }
  return dump(argv[1]) ? 0 : 1;
}
