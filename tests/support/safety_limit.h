#pragma once

#include <chrono>

namespace zln {

// How long tests wait for an event before they call it missing. Far longer than a loaded machine
// takes, so only a hang reaches it.
inline constexpr std::chrono::minutes kSafetyLimit{1};

}  // namespace zln
