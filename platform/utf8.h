#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace zln {

// True when the bytes are well-formed UTF-8: no overlong forms, no surrogates, at most U+10FFFF.
bool isValidUtf8(std::string_view bytes);

// The same text with U+FFFD in place of every ill-formed sequence.
std::string sanitizedUtf8(std::string_view bytes);

// The same of a text that ends with a zero; absent where `text` is.
std::optional<std::string> sanitizedText(const char* text);

// Appends a code point; surrogates and values above U+10FFFF become U+FFFD.
void appendUtf8(std::string& out, char32_t codePoint);

// One character of a text and the bytes that it takes.
struct Utf8Character {
  char32_t codePoint;
  std::size_t length;
  bool wellFormed;
};

// The character at the start of `bytes`, which must not be empty. An ill-formed sequence is one
// character, U+FFFD.
Utf8Character firstCharacter(std::string_view bytes);

// The order of two texts by UTF-16 code unit, in which sorted keys are shown and stored. It parts
// from the order of bytes where characters above U+FFFF meet those from U+E000 to U+FFFF.
bool lessByCodeUnit(std::string_view a, std::string_view b);

}  // namespace zln
