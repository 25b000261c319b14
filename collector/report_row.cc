#include "collector/report_row.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>
#include <utility>

#include "collector/json.h"
#include "collector/json_object.h"

namespace zln::collector {
namespace {

using nlohmann::json;

// In the order of the enumerators.
constexpr std::array<std::string_view, 3> kSeverities = {"notice", "warning", "error"};
constexpr std::array<std::string_view, 4> kVerdicts = {"valid", "duplicate", "suspect", "invalid"};
constexpr std::array<std::string_view, 5> kOutcomes = {"accepted", "retry", "dropped", "other",
                                                       "cut"};

template <typename Enum, std::size_t Count>
std::optional<Enum> named(const std::array<std::string_view, Count>& names, std::string_view name) {
  const auto found = std::ranges::find(names, name);
  if (found == names.end()) return std::nullopt;
  return static_cast<Enum>(std::distance(names.begin(), found));
}

bool hasSeverity(const std::vector<Finding>& findings, Severity severity) {
  return std::ranges::find(findings, severity, &Finding::severity) != findings.end();
}

bool hasText(const json& object, const char* key) {
  return object.contains(key) && object[key].is_string();
}

std::optional<Finding> findingFrom(const json& object) {
  if (!hasText(object, "code") || !hasText(object, "severity") || !hasText(object, "text")) {
    return std::nullopt;
  }
  const auto severity = named<Severity>(kSeverities, object["severity"].get<std::string>());
  return Finding{object["code"], severity.value_or(Severity::kNotice), object["text"]};
}

json toJson(const Answer& answer) {
  return {{"outcome", nameOf(answer.outcome)},
          {"status", answer.status},
          {"fault", valueOrNull(answer.fault)}};
}

// Bytes that are no UTF-8 become U+FFFD.
std::string validText(const std::string& bytes) {
  return json::parse(json(bytes).dump(-1, ' ', false, json::error_handler_t::replace));
}

void showBody(const std::string& body, json& shown) {
  if (auto object = parseObject(body)) {
    shown["body"] = std::move(*object);
  } else {
    shown["raw"] = validText(body);
  }
}

}  // namespace

Verdict verdictOn(const std::vector<Finding>& findings) {
  if (hasSeverity(findings, Severity::kError)) return Verdict::kInvalid;
  if (hasFinding(findings, "duplicate")) return Verdict::kDuplicate;
  if (hasSeverity(findings, Severity::kWarning)) return Verdict::kSuspect;
  return Verdict::kValid;
}

bool hasFinding(const std::vector<Finding>& findings, std::string_view code) {
  return std::ranges::find(findings, code, &Finding::code) != findings.end();
}

std::string_view nameOf(Severity severity) {
  return kSeverities[static_cast<std::size_t>(severity)];
}

std::string_view nameOf(Verdict verdict) { return kVerdicts[static_cast<std::size_t>(verdict)]; }

std::string_view nameOf(Answer::Outcome outcome) {
  return kOutcomes[static_cast<std::size_t>(outcome)];
}

std::optional<Verdict> verdictNamed(std::string_view name) {
  return named<Verdict>(kVerdicts, name);
}

std::optional<Answer::Outcome> outcomeNamed(std::string_view name) {
  return named<Answer::Outcome>(kOutcomes, name);
}

json toJson(const std::vector<Finding>& findings) {
  json array = json::array();
  for (const Finding& finding : findings) {
    array.push_back(
        {{"code", finding.code}, {"severity", nameOf(finding.severity)}, {"text", finding.text}});
  }
  return array;
}

std::vector<Finding> findingsFrom(const std::string& text) {
  const json array = json::parse(text, nullptr, /*allow_exceptions=*/false);
  std::vector<Finding> findings;
  if (!array.is_array()) return findings;
  for (const json& object : array) {
    if (auto finding = findingFrom(object)) findings.push_back(std::move(*finding));
  }
  return findings;
}

json toJson(const ReportRow& row) {
  json shown = {{"id", row.id},
                {"arrived", row.arrived},
                {"kind", nameOf(row.kind)},
                {"user", valueOrNull(row.user)},
                {"session", valueOrNull(row.session)},
                {"event", valueOrNull(row.event)},
                {"verdict", nameOf(row.verdict)},
                {"findings", toJson(row.findings)},
                {"answer", toJson(row.answer)}};
  showBody(row.body, shown);
  return shown;
}

}  // namespace zln::collector
