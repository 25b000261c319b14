#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/error.h"
#include "platform/value.h"

namespace zln::json {

// The code of every error here, in kCocoaErrorDomain.
inline constexpr int kErrorCode = 3840;

// Reads a text whose top level is an object or an array: UTF-8, UTF-16 or UTF-32, with or without
// byte order mark, at most 512 levels deep, one trailing comma allowed in each container. Of
// repeated keys the first counts. Absent with `error` filled on anything else.
std::optional<Value> parse(std::string_view bytes, Error* error);

// True when every value is a string, a finite number, null, an array or a dictionary, at most 512
// levels deep.
bool isValidObject(const Dictionary& object);

// Compact UTF-8 text, keys in the dictionary's order. Absent with `error` filled when the
// dictionary is no valid object.
std::optional<std::string> serialize(const Dictionary& object, Error* error);

}  // namespace zln::json
