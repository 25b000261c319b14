#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

namespace zln {

// The parts as one text. In place of a chain of operator+, each link of which is code of its own.
std::string joined(std::initializer_list<std::string_view> parts);

}  // namespace zln
