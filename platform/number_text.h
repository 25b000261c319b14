#pragma once

#include <charconv>
#include <string>

namespace zln {

// Appends a number as std::to_chars writes it with the same further arguments, which never follows
// the locale. For texts of up to 64 characters.
template <typename T, typename... Format>
void appendNumber(std::string& out, T number, Format... format) {
  char text[64];
  const std::to_chars_result result = std::to_chars(text, text + sizeof(text), number, format...);
  out.append(text, result.ptr);
}

}  // namespace zln
