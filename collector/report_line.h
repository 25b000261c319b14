#pragma once

#include <cstddef>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "collector/fault.h"
#include "collector/report_row.h"

namespace zln::collector {

// A report in a few words: "ad zone attempt  banner by Sunrise in zone menu, filled". `report` is
// null when the body, of that size, was no JSON object.
std::string describeReport(const nlohmann::json& report, std::size_t size);

// A report with the answer to it in one line for people:
// "ad zone attempt  banner by Sunrise in zone menu, filled  -> accepted".
std::string reportLine(const nlohmann::json& report, const ReportRow& row,
                       const std::optional<Fault>& fault);

// The fault as an appendix to a line.
std::string faultRemark(const Fault& fault);

// A request for settings in one line.
std::string settingsLine(const nlohmann::json& request, const nlohmann::json& settings);

}  // namespace zln::collector
