#pragma once

#include <map>
#include <optional>
#include <string>

#include "collector/json.h"
#include "collector/report_store.h"

namespace zln::collector {

// The parameters of a request's URL.
using Parameters = std::multimap<std::string, std::string>;

// A wait for reports.
struct WaitRequest {
  ReportQuery query;  // Its limit is the number of reports to wait for.
  double seconds = 10;
};

// All throw ApiError when something is wrong.
ReportQuery parseReportQuery(const Parameters& parameters);
WaitRequest parseWait(const nlohmann::json& object);

// A whole number of a URL. Nothing when there is no such parameter.
std::optional<std::int64_t> parseNumber(const Parameters& parameters, const std::string& name,
                                        std::int64_t lowest, std::int64_t highest);
std::optional<std::string> findParameter(const Parameters& parameters, const std::string& name);

}  // namespace zln::collector
