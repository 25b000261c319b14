#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "collector/report_kinds.h"

namespace zln::collector {

enum class Severity { kNotice, kWarning, kError };

// Something to be said about a report.
struct Finding {
  std::string code;  // For programs: "schema", "duplicate", ...
  Severity severity = Severity::kNotice;
  std::string text;  // For people.
};

enum class Verdict { kValid, kDuplicate, kSuspect, kInvalid };

// What the findings come to: the gravest counts, and a duplicate before a warning.
Verdict verdictOn(const std::vector<Finding>& findings);
bool hasFinding(const std::vector<Finding>& findings, std::string_view code);

// What the game was answered.
struct Answer {
  enum class Outcome { kAccepted, kRetry, kDropped, kOther, kCut };

  Outcome outcome = Outcome::kAccepted;
  int status = 200;
  std::optional<int> fault;  // The fault that made this answer.
};

// A report as it arrived and what became of it.
struct ReportRow {
  std::int64_t id = 0;  // Counts up from 1 over the life of a store, also over its clearing.
  double arrived = 0;   // Seconds since 1970-01-01 00:00:00 UTC.
  ReportKind kind = ReportKind::kUnknown;
  std::optional<std::string> user;
  std::optional<std::string> session;
  std::optional<std::string> event;
  Verdict verdict = Verdict::kValid;
  std::vector<Finding> findings;
  Answer answer;
  std::string body;  // As it came.
};

// The names for programs, and back.
std::string_view nameOf(Severity severity);
std::string_view nameOf(Verdict verdict);
std::string_view nameOf(Answer::Outcome outcome);
std::optional<Verdict> verdictNamed(std::string_view name);
std::optional<Answer::Outcome> outcomeNamed(std::string_view name);

// The findings as the interface for programs shows them, and back from their text; what is none is
// left out.
nlohmann::json toJson(const std::vector<Finding>& findings);
std::vector<Finding> findingsFrom(const std::string& text);

// The row as the interface for programs shows it. All its texts are valid UTF-8.
nlohmann::json toJson(const ReportRow& row);

}  // namespace zln::collector
