#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "platform/value.h"

namespace zln::property_list {

// What every document begins and ends with, around its root element.
extern const std::string_view kDocumentHead;
extern const std::string_view kDocumentTail;

// A longer document is not read.
inline constexpr std::size_t kLargestDocument = std::size_t{256} << 20;

// Appends `value` as one element in the XML form, every line indented by `level` tabs, dictionary
// keys sorted. Characters that XML cannot hold become U+FFFD. False when the value holds a null;
// `out` is then as it was.
bool appendElement(std::string& out, const Value& value, int level);
bool appendElement(std::string& out, const Dictionary& dictionary, int level);

// The whole document, or absent when the root holds a null.
std::optional<std::string> write(const Value& root);

// Reads the XML or the binary form. Absent when the bytes are anything else, malformed in any
// place, nested deeper than 128 levels or beyond the reader's limits of size; `problem`, if it is
// given, then says what is wrong.
std::optional<Value> read(std::string_view bytes, std::string* problem = nullptr);

}  // namespace zln::property_list
