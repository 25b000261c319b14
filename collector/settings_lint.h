#pragma once

#include <nlohmann/json_fwd.hpp>

namespace zln::collector {

// What the library will make of an object of settings, where that may surprise: an array of
// {"key", "severity", "text"}, the texts for people.
nlohmann::json lintSettings(const nlohmann::json& values);

}  // namespace zln::collector
