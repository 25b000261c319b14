#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace zln::collector {

// A text from outside for a terminal: of bounded length, control characters made harmless.
std::string printable(std::string_view text);

// A report and the answer to it in one line for people:
// "ad zone attempt  banner by Sunrise in zone menu, filled  -> accepted".
std::string reportLine(const nlohmann::json& report, const nlohmann::json& reply);

// A request for settings in one line.
std::string settingsLine(const nlohmann::json& request, const nlohmann::json& settings);

}  // namespace zln::collector
