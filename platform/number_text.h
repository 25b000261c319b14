#pragma once

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string>

namespace zln {

// Each appends a number as std::to_chars writes it, which never follows the locale. For texts of up
// to 64 characters.
void appendNumber(std::string& out, std::int64_t number);
void appendNumber(std::string& out, std::uint64_t number, int base = 10);
void appendNumber(std::string& out, double number);
void appendNumber(std::string& out, double number, std::chars_format format, int precision);

// Appends a number that is not negative with at least this many digits.
void appendPaddedNumber(std::string& out, std::int64_t number, std::size_t digits);

}  // namespace zln
