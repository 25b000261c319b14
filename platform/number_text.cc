#include "platform/number_text.h"

namespace zln {
namespace {

template <typename Number, typename... Format>
void append(std::string& out, Number number, Format... format) {
  char text[64];
  const std::to_chars_result result = std::to_chars(text, text + sizeof text, number, format...);
  out.append(text, result.ptr);
}

}  // namespace

void appendNumber(std::string& out, std::int64_t number) { append(out, number); }

void appendNumber(std::string& out, std::uint64_t number, int base) { append(out, number, base); }

void appendNumber(std::string& out, double number) { append(out, number); }

void appendNumber(std::string& out, double number, std::chars_format format, int precision) {
  append(out, number, format, precision);
}

void appendPaddedNumber(std::string& out, std::int64_t number, std::size_t digits) {
  std::string text;
  appendNumber(text, number);
  if (text.size() < digits) out.append(digits - text.size(), '0');
  out += text;
}

}  // namespace zln
