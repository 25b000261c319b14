#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "collector/report_kinds.h"

namespace zln::collector {

// The members of a report that the collector goes by. Those that the report does not have, or has
// with a value of another kind, are absent.
struct ReportFacts {
  ReportKind kind = ReportKind::kUnknown;
  std::optional<std::string> user;
  std::optional<std::string> bundle;
  std::optional<std::string> version;

  std::optional<std::string> session;
  std::optional<double> start;
  std::optional<double> stop;
  std::optional<double> played;

  std::optional<std::string> event;
  std::optional<std::string> network;
  std::optional<std::string> adType;
  std::optional<std::string> zone;
  std::optional<bool> fill;
};

// Of a parsed body; of null, when it is no JSON object, nothing.
ReportFacts factsOf(const nlohmann::json& report);

}  // namespace zln::collector
