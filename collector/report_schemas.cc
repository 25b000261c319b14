#include "collector/report_schemas.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <valijson/adapters/nlohmann_json_adapter.hpp>
#include <valijson/schema.hpp>
#include <valijson/schema_parser.hpp>
#include <valijson/validation_results.hpp>
#include <valijson/validator.hpp>

#include "collector/json.h"
#include "collector/printable_text.h"

namespace zln::collector {
namespace {

using nlohmann::json;
using Adapter = valijson::adapters::NlohmannJsonAdapter;

constexpr std::size_t kMostFindings = 10;
constexpr std::size_t kLongestText = 1000;  // No text that a schema demands is nearly as long.

// The patterns that the schemas use, for people.
struct PatternWords {
  std::string_view pattern;
  std::string_view words;
};
constexpr PatternWords kPatterns[] = {
    {"^[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}$",
     "a random UUID in capital letters"},
    {"^([A-Z]{2}|[0-9]{3})$", "a region of two capital letters or three digits"},
};

Finding finding(std::string text) { return {"schema", Severity::kError, std::move(text)}; }

std::string quoted(const std::string& name) { return "\"" + printable(name) + "\""; }

// The value itself when it says enough, else what it is.
std::string shown(const json& value) {
  if (value.is_structured()) return value.is_array() ? "an array" : "an object";
  return printable(value.dump());
}

std::string wordsFor(const std::string& pattern) {
  const auto known = std::ranges::find(kPatterns, pattern, &PatternWords::pattern);
  return known == std::end(kPatterns) ? "a text like " + pattern : std::string(known->words);
}

std::string wordsForType(const std::string& type) {
  if (type == "string") return "a text";
  if (type == "boolean") return "true or false";
  return type == "number" ? "a number" : "of the type " + type;
}

// What the schema of a member demands.
std::string demandOf(const json& schema) {
  if (const auto value = schema.find("const"); value != schema.end()) return value->dump();
  if (const auto pattern = schema.find("pattern"); pattern != schema.end()) {
    return wordsFor(*pattern);
  }
  const std::string type = wordsForType(schema.value("type", "any"));
  const auto minimum = schema.find("minimum");
  return minimum == schema.end() ? type : type + " of at least " + minimum->dump();
}

// The validator tries a pattern at every place of a text, with very long ones for seconds. Their
// beginnings break the schema just as well.
json withShortTexts(const json& report) {
  json shortened = report;
  for (json& value : shortened) {
    if (!value.is_string()) continue;
    auto& text = value.get_ref<std::string&>();
    if (text.size() > kLongestText) text.resize(kLongestText);
  }
  return shortened;
}

// The name in a place such as {"<root>", "[userId]"}; none of the report as a whole.
std::string memberAt(const std::vector<std::string>& place) {
  if (place.size() < 2) return {};
  return place[1].substr(1, place[1].size() - 2);
}

std::set<std::string> membersAtFault(const valijson::ValidationResults& results) {
  std::set<std::string> names;
  for (const auto& error : results) {
    if (std::string name = memberAt(error.context); !name.empty()) names.insert(std::move(name));
  }
  return names;
}

}  // namespace

class ReportSchemas::Compiled {
 public:
  explicit Compiled(const std::map<ReportKind, std::string>& texts) {
    for (const ReportKind kind : kReportKinds) compile(kind, texts);
  }

  std::vector<Finding> check(ReportKind kind, const json& report) {
    valijson::ValidationResults results;
    const Schema& schema = schemas_.at(kind);
    if (isValid(schema, withShortTexts(report), results)) return {};
    return explain(schema.text, report, results);
  }

 private:
  struct Schema {
    json text;
    valijson::Schema compiled;
  };

  void compile(ReportKind kind, const std::map<ReportKind, std::string>& texts) {
    const auto text = texts.find(kind);
    if (text == texts.end()) fail(kind, "is missing");
    Schema& schema = schemas_[kind];
    schema.text = json::parse(text->second, nullptr, /*allow_exceptions=*/false);
    if (!schema.text.is_object()) fail(kind, "is no JSON object");
    try {
      valijson::SchemaParser(valijson::SchemaParser::kDraft7)
          .populateSchema(Adapter(schema.text), schema.compiled);
    } catch (const std::exception& error) {
      fail(kind, error.what());
    }
  }

  [[noreturn]] static void fail(ReportKind kind, const std::string& reason) {
    throw std::invalid_argument("the schema of " + std::string(nameOf(kind)) + ": " + reason);
  }

  bool isValid(const Schema& schema, const json& report, valijson::ValidationResults& results) {
    const std::lock_guard lock(mutex_);
    return validator_.validate(schema.compiled, Adapter(report), &results);
  }

  static std::vector<Finding> explain(const json& schema, const json& report,
                                      const valijson::ValidationResults& results) {
    std::vector<Finding> findings;
    addMissing(schema, report, findings);
    addWrong(schema, report, results, findings);
    addUnknown(schema, report, findings);
    if (findings.empty()) findings.push_back(finding(results.begin()->description));
    if (findings.size() > kMostFindings) {
      const std::size_t more = findings.size() - kMostFindings;
      findings.resize(kMostFindings);
      findings.push_back(finding("and " + std::to_string(more) + " more"));
    }
    return findings;
  }

  static void addMissing(const json& schema, const json& report, std::vector<Finding>& findings) {
    for (const json& name : schema.value("required", json::array())) {
      const std::string text = name;
      if (!report.contains(text)) findings.push_back(finding(quoted(text) + " is missing"));
    }
  }

  static void addWrong(const json& schema, const json& report,
                       const valijson::ValidationResults& results, std::vector<Finding>& findings) {
    const json& members = schema.at("properties");
    for (const std::string& name : membersAtFault(results)) {
      const auto member = members.find(name);
      const auto value = report.find(name);
      if (member == members.end() || value == report.end()) continue;
      findings.push_back(
          finding(quoted(name) + " must be " + demandOf(*member) + ", and is " + shown(*value)));
    }
  }

  static void addUnknown(const json& schema, const json& report, std::vector<Finding>& findings) {
    const json& members = schema.at("properties");
    for (const auto& [name, value] : report.items()) {
      if (!members.contains(name)) {
        findings.push_back(finding(quoted(name) + " does not belong into such a report"));
      }
    }
  }

  std::map<ReportKind, Schema> schemas_;
  std::mutex mutex_;  // The validator keeps the patterns that it has met.
  valijson::Validator validator_;
};

ReportSchemas::ReportSchemas(const std::map<ReportKind, std::string>& texts)
    : compiled_(std::make_unique<Compiled>(texts)) {}

ReportSchemas::~ReportSchemas() = default;
ReportSchemas::ReportSchemas(ReportSchemas&&) noexcept = default;
ReportSchemas& ReportSchemas::operator=(ReportSchemas&&) noexcept = default;

std::vector<Finding> ReportSchemas::check(ReportKind kind, const json& report) const {
  if (kind != ReportKind::kUnknown) return compiled_->check(kind, report);
  const auto type = report.find("type");
  if (type == report.end()) return {finding("\"type\" is missing")};
  return {finding("\"type\" must be one of the five reports, and is " + shown(*type))};
}

}  // namespace zln::collector
