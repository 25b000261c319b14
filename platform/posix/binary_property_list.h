#pragma once

#include <optional>
#include <string_view>

#include "platform/value.h"

namespace zln::property_list {

bool isBinary(std::string_view bytes);

// Reads the binary form, which a user's tool may have made of a file. Absent when anything in it is
// malformed, nested deeper than `deepestLevel`, or so often referred to that it would not fit.
std::optional<Value> readBinary(std::string_view bytes, int deepestLevel);

}  // namespace zln::property_list
