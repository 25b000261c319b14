#pragma once

#include <string>
#include <string_view>

namespace zln::collector {

// A text from outside for a terminal: of bounded length, control characters made harmless.
std::string printable(std::string_view text);

}  // namespace zln::collector
