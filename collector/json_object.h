#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "collector/json.h"

namespace zln::collector {

// Absent when the text is no JSON object, or one too deep to be a report.
std::optional<nlohmann::json> parseObject(std::string_view text);

// 2, true, null and "2" in quotes are JSON; everything else is the text that it is.
nlohmann::json jsonOrText(const std::string& text);

template <typename T>
nlohmann::json valueOrNull(const std::optional<T>& value) {
  return value ? nlohmann::json(*value) : nlohmann::json();
}

}  // namespace zln::collector
