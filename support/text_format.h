#pragma once

#include <cstdarg>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>

namespace zln {

inline constexpr char kAbsentText[] = "(null)";

// The text by which a log line shows an object: a string is itself, an absent object "(null)",
// anything else its description().
template <typename T>
std::string objectText(const T& object) {
  if constexpr (std::is_same_v<T, std::nullopt_t> || std::is_same_v<T, std::nullptr_t>) {
    return kAbsentText;
  } else if constexpr (std::is_convertible_v<const T&, const char*>) {
    const char* text = object;
    return text == nullptr ? kAbsentText : text;
  } else if constexpr (std::is_convertible_v<const T&, std::string_view>) {
    return std::string(std::string_view(object));
  } else if constexpr (requires { object.description(); }) {
    return object.description();
  } else {
    // A pointer, shared pointer or optional.
    return object ? objectText(*object) : kAbsentText;
  }
}

// An object to be inserted by "%@". It is described only when its text is needed and must live
// until then.
struct FormatObject {
  const void* object;
  std::string (*describe)(const void*);
};

// One argument of a format. Integers keep their bits; the conversion's letter and length say how
// many of them count and whether they are signed.
using FormatArgument =
    std::variant<std::monostate, std::int64_t, long double, const void*, FormatObject>;

template <typename T>
FormatArgument formatArgument(const T& argument) {
  if constexpr (std::is_integral_v<T>) {
    return static_cast<std::int64_t>(argument);
  } else if constexpr (std::is_floating_point_v<T>) {
    return static_cast<long double>(argument);
  } else {
    return FormatObject{
        &argument, [](const void* object) { return objectText(*static_cast<const T*>(object)); }};
  }
}

// Renders a format with "%@" and the conversions of printf. Numbers never follow the locale. A
// conversion without an argument, or of unknown letter, is shown as it stands. Valid UTF-8.
std::string renderFormat(std::string_view format, std::span<const FormatArgument> arguments);

// The same for the variadic C functions, where "%@" takes a const char *. Absent when `format` is.
std::optional<std::string> renderFormatList(const char* format, std::va_list arguments);

}  // namespace zln
