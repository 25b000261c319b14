#pragma once

#include <nlohmann/json.hpp>
#include <vector>

#include "tests/soak/life_plan.h"

namespace zln {

// In seconds: until the fault is removed.
inline constexpr int kForever = 600;

// The weather of a life as faults for the collector, in their order: each acts on its share of what
// those before it have left.
std::vector<nlohmann::json> weatherFaults(const LifePlan& plan);
// What reports meet until the gate opens.
nlohmann::json gateFault();
// How the settings' requests are answered. Without effect where settings are handed out, it counts
// these requests.
nlohmann::json settingsFault(const LifePlan& plan);

}  // namespace zln
