// The input is a format up to the first zero byte, and behind it what the arguments are made of.
// The format is rendered with arguments of any kind, which need not agree with it, and, when it
// asks for few enough, by the variadic function with arguments that do. What the C library knows as
// well must then come out the same.

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>
#include <regex>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>
#include <variant>
#include <vector>

#include "platform/utf8.h"
#include "support/text_format.h"
#include "tests/fuzz/fuzz.h"

namespace zln::fuzz {
namespace {

// Widths, and precisions of numbers, that the library does not cut.
constexpr int kMostPadding = 4096;
// Regular expressions need stack for each character.
constexpr std::size_t kLongestFormat = 1000;

// Arguments as C passes them.

struct Text {
  const void* address = nullptr;
};
using Argument = std::variant<int, long, long long, double, long double, Text>;

// How many of them the variadic function is called with at most.
constexpr std::size_t kMostArguments = 3;

// Numbers at whose edges things go wrong, and any others.
std::uint64_t takeInteger(Input& input) {
  constexpr auto kEdges = std::to_array<std::uint64_t>(
      {0, 1, 9, 10, 42, 127, 128, 255, 0x7FFF, 0x8000, 0x10FFFF, 0x110000, 0x7FFFFFFF, 0x80000000,
       0xFFFFFFFF, 0x7FFFFFFFFFFFFFFF, 0x8000000000000000, 0xFFFFFFFFFFFFFFFF, 0xFFFFFFFFFFFFFFFB});
  const std::size_t choice = input.takeByte();
  return choice < kEdges.size() ? kEdges[choice] : input.takeWord();
}

double takeReal(Input& input) {
  using Limits = std::numeric_limits<double>;
  constexpr auto kEdges = std::to_array<double>(
      {0.0, -0.0, 1.0, 0.1, 0.5, 2.5, 9.995, 999999.5, 1e15, 1e22, 123456, 1e-5, Limits::max(),
       Limits::denorm_min(), Limits::min(), Limits::infinity(), -Limits::infinity()});
  const std::size_t choice = input.takeByte();
  if (choice < kEdges.size()) return kEdges[choice];
  const std::uint64_t bits = input.takeWord();
  double value = 0;
  std::memcpy(&value, &bits, sizeof value);
  // The sign of a NaN, which only the C library shows, means nothing.
  return std::isnan(value) ? Limits::quiet_NaN() : value;
}

// Owns what the text arguments point to, each in memory of exactly its size.
class Texts {
 public:
  // A text for "%s". With a limit it has that many bytes at most, and no zero when it has them all.
  Text narrow(Input& input, std::optional<int> limit) {
    if (input.takeByte() == 0) return {};
    std::string text(input.takeUpTo('\0'));
    const bool isCut = limit && *limit >= 0 && text.size() >= static_cast<std::size_t>(*limit);
    if (isCut) text.resize(static_cast<std::size_t>(*limit));
    return keep(text.data(), text.size() + (isCut ? 0 : 1));
  }

  // A text for "%ls", with any characters.
  Text wide(Input& input) {
    if (input.takeByte() == 0) return {};
    std::wstring text;
    for (std::uint64_t left = input.takeByte() % 8; left > 0; --left) {
      const auto character = static_cast<wchar_t>(takeInteger(input));
      if (character != 0) text += character;
    }
    return keep(text.data(), (text.size() + 1) * sizeof(wchar_t));
  }

 private:
  Text keep(const void* bytes, std::size_t size) {
    kept_.push_back(std::make_unique<char[]>(size));
    if (size > 0) std::memcpy(kept_.back().get(), bytes, size);
    return {kept_.back().get()};
  }

  std::vector<std::unique_ptr<char[]>> kept_;
};

bool isOneOf(char letter, std::string_view letters) {
  return letters.find(letter) != std::string_view::npos;
}
bool isReal(char letter) { return isOneOf(letter, "fFeEgGaA"); }
bool isInteger(char letter) { return isOneOf(letter, "diouxX"); }

// A conversion by the rules of ZLNLog.h: position, flags, width, precision, length, letter.
const std::regex& conversionPattern() {
  static const std::regex& pattern =
      *new std::regex(R"(%(?:([0-9]+)\$)?([-+ #0']*))"
                      R"((?:(\*)(?:([0-9]+)\$)?|([1-9][0-9]*))?)"
                      R"((\.(?:(\*)(?:([0-9]+)\$)?|([0-9]*)))?)"
                      R"((hh|h|ll|l|q|j|z|t|L)?([diouxXfFeEgGaAcCsSpn%@]))");
  return pattern;
}

// A call that a format asks for, and the same for the C library: with the position of every
// argument.
class Call {
 public:
  Call(const std::string& format, Input& input, Texts& texts) : input_(input), texts_(texts) {
    std::smatch parts;
    for (auto at = format.begin(); at != format.end();) {
      if (std::regex_search(at, format.end(), parts, conversionPattern(),
                            std::regex_constants::match_continuous) &&
          hasKnownPositions(parts)) {
        add(parts);
        at = parts[0].second;
      } else {
        // Of a conversion that is not known all is text.
        formatForC_ += *at == '%' ? "%%" : std::string(1, *at);
        ++at;
      }
    }
  }

  // Absent when there are too many, or when one is asked for in two ways.
  std::optional<std::vector<Argument>> arguments() const {
    if (!isPossible_) return std::nullopt;
    std::vector<Argument> arguments;
    for (const auto& argument : found_) arguments.push_back(argument.value_or(int{0}));
    return arguments;
  }

  // Absent where C leaves the outcome open, or where the library follows rules of its own.
  std::optional<std::string> formatForC() const {
    return isDefined_ ? std::optional(formatForC_) : std::nullopt;
  }

 private:
  // A width or a precision.
  struct Amount {
    std::string text;
    std::optional<int> value;
  };

  static int numberIn(const std::string& digits) {
    int number = 0;
    const auto read = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return read.ec == std::errc::result_out_of_range ? std::numeric_limits<int>::max() : number;
  }

  static bool hasKnownPositions(const std::smatch& parts) {
    const std::size_t groups[] = {1, 4, 8};
    return std::all_of(std::begin(groups), std::end(groups), [&](std::size_t group) {
      if (!parts[group].matched || (group == 1 && *parts[11].first == '%')) return true;
      const int position = numberIn(parts[group]);
      return position >= 1 && position <= 64;
    });
  }

  void add(const std::smatch& parts) {
    const char letter = *parts[11].first;
    const Amount width = addAmount(parts, 3);
    const Amount precision = addAmount(parts, 7);
    if (letter == '%') {
      formatForC_ += "%%";
      return;
    }
    const std::string flags = parts[2];
    const std::string length = parts[10];
    const std::size_t index = indexOf(parts[1]);
    const Argument argument = argumentFor(letter, length, precision.value);
    put(index, argument);
    formatForC_ += "%" + std::to_string(index + 1) + "$";
    if (letter == 'n') {
      formatForC_ += ".0s";
      return;
    }
    isDefined_ = isDefined_ && areFlagsDefined(letter, flags) && isLengthDefined(letter, length) &&
                 std::abs(static_cast<long>(width.value.value_or(0))) <= kMostPadding &&
                 precision.value.value_or(0) <= kMostPadding &&
                 isValueDefined(letter, precision.value.value_or(-1), argument);
    formatForC_ += flags + width.text;
    if (parts[6].matched && !isOneOf(letter, "cp")) formatForC_ += "." + precision.text;
    // The C library forgets these two where arguments have positions.
    formatForC_ += length == "q" || length == "L" ? "ll" : length;
    formatForC_ += letter == '@' ? 's' : letter;
  }

  // Of the groups that hold a star, its position and a number.
  Amount addAmount(const std::smatch& parts, std::size_t star) {
    if (parts[star].matched) {
      const std::size_t index = indexOf(parts[star + 1]);
      const int value = static_cast<int>(takeInteger(input_));
      put(index, value);
      return {"*" + std::to_string(index + 1) + "$", value};
    }
    if (!parts[star + 2].matched) return {};
    return {parts[star + 2], numberIn(parts[star + 2])};
  }

  std::size_t indexOf(const std::string& position) {
    return position.empty() ? next_++ : static_cast<std::size_t>(numberIn(position)) - 1;
  }

  void put(std::size_t index, const Argument& argument) {
    isPossible_ = isPossible_ && index < kMostArguments;
    if (!isPossible_) return;
    if (index >= found_.size()) found_.resize(index + 1);
    isPossible_ = !found_[index];
    found_[index] = argument;
  }

  Argument argumentFor(char letter, const std::string& length, std::optional<int> limit) {
    if (isInteger(letter)) return integerArgument(length, takeInteger(input_));
    if (isOneOf(letter, "cC")) return static_cast<int>(takeInteger(input_));
    if (isReal(letter) && length == "L") return static_cast<long double>(takeReal(input_));
    if (isReal(letter)) return takeReal(input_);
    if (letter == 'S' || (letter == 's' && length == "l")) return texts_.wide(input_);
    return texts_.narrow(input_, limit);
  }

  static Argument integerArgument(const std::string& length, std::uint64_t bits) {
    if (length == "l" || length == "j" || length == "z" || length == "t")
      return static_cast<long>(bits);
    if (length == "ll" || length == "q" || length == "L") return static_cast<long long>(bits);
    return static_cast<int>(bits);
  }

  static bool areFlagsDefined(char letter, const std::string& flags) {
    std::string_view defined = "-";
    if (isOneOf(letter, "di")) defined = "-+ 0'";
    if (letter == 'u') defined = "-0'";
    if (isOneOf(letter, "oxX")) defined = "-#0";
    if (isReal(letter)) defined = "-+ #0'";
    // The C library loses zeros of "%#g" where the last digit is rounded up.
    if (isOneOf(letter, "gG")) defined = "-+ 0'";
    return flags.find_first_not_of(defined) == std::string::npos;
  }

  static bool isLengthDefined(char letter, const std::string& length) {
    return isInteger(letter) || length.empty() || (isReal(letter) && length == "l");
  }

  static bool isValueDefined(char letter, int precision, const Argument& argument) {
    // To the library a NaN has no sign, also where every number is to have one.
    if (const auto* real = std::get_if<double>(&argument)) return !std::isnan(*real);
    // The C library shows nothing of a null text when the whole word does not fit.
    const Text* text = std::get_if<Text>(&argument);
    const bool isNull = text != nullptr && text->address == nullptr;
    return !isOneOf(letter, "CS") && !(isNull && (letter == 'p' || precision >= 0));
  }

  Input& input_;
  Texts& texts_;
  std::size_t next_ = 0;
  std::vector<std::optional<Argument>> found_;
  std::string formatForC_;
  bool isPossible_ = true;
  bool isDefined_ = true;
};

// Calling a variadic function with arguments of kinds that only the input decides.

using Render = std::optional<std::string>(const char* format, ...);

std::optional<std::string> listed(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  std::optional<std::string> text = renderFormatList(format, arguments);
  va_end(arguments);
  return text;
}

// What the C library makes of it.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
std::optional<std::string> printed(const char* format, ...) {
  char* bytes = nullptr;
  std::va_list arguments;
  va_start(arguments, format);
  const int length = vasprintf(&bytes, format, arguments);
  va_end(arguments);
  require(length >= 0, "the C library prints", format);
  const std::unique_ptr<char, decltype(&std::free)> owned(bytes, &std::free);
  return sanitizedUtf8({bytes, static_cast<std::size_t>(length)});
}
#pragma GCC diagnostic pop

template <typename... Fetched>
std::optional<std::string> rendered(Render& render, const std::string& format,
                                    std::span<const Argument> left, Fetched... fetched) {
  if (left.empty()) return render(format.c_str(), fetched...);
  if constexpr (sizeof...(Fetched) < kMostArguments) {
    return std::visit(
        [&](auto argument) {
          if constexpr (std::is_same_v<decltype(argument), Text>) {
            return rendered(render, format, left.subspan(1), fetched..., argument.address);
          } else {
            return rendered(render, format, left.subspan(1), fetched..., argument);
          }
        },
        left.front());
  }
  return std::nullopt;
}

void renderWithArgumentsThatAgree(const std::string& format, Input& input) {
  if (format.size() > kLongestFormat) return;
  Texts texts;
  const Call call(format, input, texts);
  const auto arguments = call.arguments();
  if (!arguments) return;
  const auto text = rendered(listed, format, *arguments);
  require(text && isValidUtf8(*text), "a format gives text", format);
  if (!call.formatForC()) return;
  const auto expected = rendered(printed, *call.formatForC(), *arguments);
  require(expected == text, "a format gives what the C library makes of it",
          "format: " + format + "\nC: " + *expected + "\nlibrary: " + *text);
}

// The typed front takes arguments that do not agree: a text for a number, none at all.
void renderWithAnyArguments(std::string_view format, Input& input) {
  constexpr std::size_t kMostMade = 6;
  Texts texts;
  const std::string object(input.takeUpTo('\0'));
  std::vector<FormatArgument> arguments;
  while (!input.isEmpty() && arguments.size() < kMostMade) {
    switch (input.takeByte() % 5) {
      case 0:
        arguments.emplace_back(std::monostate{});
        break;
      case 1:
        arguments.emplace_back(static_cast<std::int64_t>(takeInteger(input)));
        break;
      case 2:
        arguments.emplace_back(static_cast<long double>(takeReal(input)));
        break;
      case 3:
        // It ends as a wide text does, so that either kind of conversion may read it.
        arguments.emplace_back(texts.wide(input).address);
        break;
      default:
        arguments.push_back(formatArgument(object));
    }
  }
  require(isValidUtf8(renderFormat(format, arguments)), "a format gives text", format);
}

}  // namespace
}  // namespace zln::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace zln::fuzz;
  Input input(data, size);
  const std::string format(input.takeUpTo('\0'));
  Input again = input;
  renderWithArgumentsThatAgree(format, input);
  renderWithAnyArguments(format, again);
  // A view may hold zero bytes.
  Input none("");
  renderWithAnyArguments({reinterpret_cast<const char*>(data), size}, none);
  return 0;
}
