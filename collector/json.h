#pragma once

#include <nlohmann/json.hpp>

// Is compiled once, in json.cc, rather than by every file that uses it.
extern template class nlohmann::basic_json<>;
