#pragma once

#include <string>

namespace zln {

// "0x" and the address in lower-case hexadecimal; "0x0" for null.
std::string addressText(const void* object);

// "<ClassName: 0x600000c04050>", the text of an object that has none of its own.
std::string identityText(const char* className, const void* object);

}  // namespace zln
