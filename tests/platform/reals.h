#pragma once

#include <limits>

namespace zln {

inline constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
inline constexpr double kInfinity = std::numeric_limits<double>::infinity();

}  // namespace zln
