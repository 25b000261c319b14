#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>

namespace zln::collector {

// Absent when the text is no JSON object, or one too deep to be a report.
std::optional<nlohmann::json> parseObject(std::string_view text);

}  // namespace zln::collector
