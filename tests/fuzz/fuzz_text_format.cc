// The input is a format up to the first zero byte, and behind it what the arguments are made of.
// The format is rendered with arguments of any kind, which need not agree with it, and, when it
// asks for few enough, by the variadic function with arguments that do. What the C library knows as
// well must then come out the same.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "platform/utf8.h"
#include "support/text_format.h"
#include "tests/fuzz/fuzz.h"

namespace zln::fuzz {
namespace {

// Widths, and precisions of numbers, that the library does not cut.
constexpr int kMostPadding = 4096;

// The rules of ZLNLog.h, read once more.

// A width or a precision: none, a number, or the argument of that index.
struct Amount {
  bool isGiven = false;
  int number = 0;
  std::optional<std::size_t> argument;
};

struct Conversion {
  std::string before;  // The text in front of it.
  std::string flags;
  Amount width;
  Amount precision;
  std::string length;
  char letter = 0;  // 0 at the end of the format.
  std::size_t argument = 0;
};

class Reader {
 public:
  explicit Reader(std::string_view format) : format_(format) {}

  std::vector<Conversion> read() {
    std::vector<Conversion> conversions;
    std::string text;
    while (at_ < format_.size()) {
      const std::size_t start = at_;
      const std::size_t next = next_;
      Conversion conversion;
      if (get() == '%' && readParts(conversion)) {
        conversion.before = std::exchange(text, {});
        conversions.push_back(conversion);
        continue;
      }
      // Of a conversion that is not known all that was understood of it is text.
      text += format_.substr(start, at_ - start);
      next_ = next;
    }
    conversions.push_back({});
    conversions.back().before = text;
    return conversions;
  }

 private:
  char peek() const { return at_ < format_.size() ? format_[at_] : '\0'; }
  char get() { return format_[at_++]; }

  bool take(std::string_view word) {
    if (!format_.substr(at_).starts_with(word)) return false;
    at_ += word.size();
    return true;
  }

  bool readParts(Conversion& conversion) {
    const std::optional<int> position = readPosition();
    while (at_ < format_.size() && std::strchr("-+ #0'", peek()) != nullptr) {
      conversion.flags += get();
    }
    if (!readAmount(conversion.width)) return false;
    if (take(".")) {
      if (!readAmount(conversion.precision)) return false;
      conversion.precision.isGiven = true;
    }
    for (const char* length : {"hh", "h", "ll", "l", "q", "j", "z", "t", "L"}) {
      if (!take(length)) continue;
      conversion.length = length;
      break;
    }
    if (at_ == format_.size()) return false;
    const char letter = get();
    if (letter == '\0' || std::strchr("diouxXfFeEgGaAcCsSpn%@", letter) == nullptr) return false;
    conversion.letter = letter;
    return letter == '%' || choose(position, conversion.argument);
  }

  int readDigits() {
    long long number = 0;
    while (peek() >= '0' && peek() <= '9')
      number = std::min(number * 10 + (get() - '0'), 999999999LL);
    return static_cast<int>(number);
  }

  std::optional<int> readPosition() {
    const std::size_t start = at_;
    if (peek() >= '0' && peek() <= '9') {
      const int number = readDigits();
      if (take("$")) return number;
    }
    at_ = start;
    return std::nullopt;
  }

  bool readAmount(Amount& amount) {
    if (take("*")) {
      amount.isGiven = true;
      return choose(readPosition(), amount.argument.emplace());
    }
    amount.isGiven = peek() >= '0' && peek() <= '9';
    amount.number = readDigits();
    return true;
  }

  bool choose(std::optional<int> position, std::size_t& argument) {
    if (position && (*position < 1 || *position > 64)) return false;
    argument = position ? static_cast<std::size_t>(*position) - 1 : next_++;
    return true;
  }

  std::string_view format_;
  std::size_t at_ = 0;
  std::size_t next_ = 0;
};

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

bool isReal(char letter) { return std::strchr("fFeEgGaA", letter) != nullptr; }
bool isInteger(char letter) { return std::strchr("diouxX", letter) != nullptr; }
bool isWide(const Conversion& conversion) {
  return conversion.letter == 'S' || (conversion.letter == 's' && conversion.length == "l");
}

Argument integerArgument(const std::string& length, std::uint64_t bits) {
  if (length == "l" || length == "j" || length == "z" || length == "t")
    return static_cast<long>(bits);
  if (length == "ll" || length == "q" || length == "L") return static_cast<long long>(bits);
  return static_cast<int>(bits);
}

// The arguments that a format asks for, in their order.
class ArgumentMaker {
 public:
  ArgumentMaker(Input& input, Texts& texts) : input_(input), texts_(texts) {}

  // Absent when there are too many, or when one is asked for in two ways.
  std::optional<std::vector<Argument>> make(const std::vector<Conversion>& conversions) {
    for (const Conversion& conversion : conversions) {
      if (!addAmount(conversion.width) || !addAmount(conversion.precision)) return std::nullopt;
      if (conversion.letter == 0 || conversion.letter == '%') continue;
      if (!add(conversion.argument, [&] { return argumentFor(conversion); })) return std::nullopt;
    }
    std::vector<Argument> arguments;
    for (const auto& argument : found_) arguments.push_back(argument.value_or(int{0}));
    return arguments;
  }

 private:
  template <typename Make>
  bool add(std::size_t index, Make make) {
    if (index >= kMostArguments) return false;
    if (index >= found_.size()) found_.resize(index + 1);
    if (found_[index]) return false;
    found_[index] = make();
    return true;
  }

  bool addAmount(const Amount& amount) {
    if (!amount.argument) return true;
    return add(*amount.argument, [&] { return static_cast<int>(takeInteger(input_)); });
  }

  std::optional<int> limitOf(const Conversion& conversion) const {
    if (conversion.precision.argument)
      return std::get<int>(*found_[*conversion.precision.argument]);
    if (conversion.precision.isGiven) return conversion.precision.number;
    return std::nullopt;
  }

  Argument argumentFor(const Conversion& conversion) {
    const char letter = conversion.letter;
    if (isInteger(letter)) return integerArgument(conversion.length, takeInteger(input_));
    if (letter == 'c' || letter == 'C') return static_cast<int>(takeInteger(input_));
    if (isReal(letter) && conversion.length == "L")
      return static_cast<long double>(takeReal(input_));
    if (isReal(letter)) return takeReal(input_);
    if (isWide(conversion)) return texts_.wide(input_);
    return texts_.narrow(input_, limitOf(conversion));
  }

  Input& input_;
  Texts& texts_;
  std::vector<std::optional<Argument>> found_;
};

// Calling a variadic function with arguments of kinds that only the input decides.

std::optional<std::string> listed(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  std::optional<std::string> text = renderFormatList(format, arguments);
  va_end(arguments);
  return text;
}

template <typename... Fetched>
std::optional<std::string> rendered(const char* format, std::span<const Argument> left,
                                    Fetched... fetched) {
  if (left.empty()) return listed(format, fetched...);
  if constexpr (sizeof...(Fetched) < kMostArguments) {
    return std::visit(
        [&](auto argument) {
          if constexpr (std::is_same_v<decltype(argument), Text>) {
            return rendered(format, left.subspan(1), fetched..., argument.address);
          } else {
            return rendered(format, left.subspan(1), fetched..., argument);
          }
        },
        left.front());
  }
  return std::nullopt;
}

// What the C library makes of it.

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
template <typename... Arguments>
std::string printed(const std::string& format, Arguments... arguments) {
  std::array<char, 3 * kMostPadding> buffer;
  const int length = std::snprintf(buffer.data(), buffer.size(), format.c_str(), arguments...);
  require(length >= 0 && static_cast<std::size_t>(length) < buffer.size(), "the C library prints",
          format);
  return {buffer.data(), static_cast<std::size_t>(length)};
}
#pragma GCC diagnostic pop

// Absent where C leaves the outcome open, or where the library follows rules of its own.
class Model {
 public:
  explicit Model(const std::vector<Argument>& arguments) : arguments_(arguments) {}

  std::optional<std::string> text(const std::vector<Conversion>& conversions) const {
    std::string text;
    for (const Conversion& conversion : conversions) {
      text += conversion.before;
      if (conversion.letter == 0) continue;
      const std::optional<std::string> part = textOf(conversion);
      if (!part) return std::nullopt;
      text += *part;
    }
    return mendUtf8(text);
  }

 private:
  std::optional<std::string> textOf(const Conversion& conversion) const {
    if (conversion.letter == '%') return "%";
    if (conversion.letter == 'n') return "";
    if (!areFlagsDefined(conversion) || !isLengthDefined(conversion)) return std::nullopt;
    const int width = numberOf(conversion.width);
    const int precision = conversion.precision.isGiven ? numberOf(conversion.precision) : -1;
    if (width < -kMostPadding || width > kMostPadding || precision > kMostPadding) {
      return std::nullopt;
    }
    return valueText(conversion, width, precision);
  }

  int numberOf(const Amount& amount) const {
    return amount.argument ? std::get<int>(arguments_[*amount.argument]) : amount.number;
  }

  static bool areFlagsDefined(const Conversion& conversion) {
    std::string_view defined = "-";
    if (std::strchr("di", conversion.letter) != nullptr) defined = "-+ 0'";
    if (conversion.letter == 'u') defined = "-0'";
    if (std::strchr("oxX", conversion.letter) != nullptr) defined = "-#0";
    if (isReal(conversion.letter)) defined = "-+ #0'";
    // The C library loses zeros of "%#g" where the last digit is rounded up.
    if (std::strchr("gG", conversion.letter) != nullptr) defined = "-+ 0'";
    return conversion.flags.find_first_not_of(defined) == std::string::npos;
  }

  static bool isLengthDefined(const Conversion& conversion) {
    if (isInteger(conversion.letter)) return true;
    if (isReal(conversion.letter)) return conversion.length.empty() || conversion.length == "l";
    return conversion.length.empty();
  }

  std::optional<std::string> valueText(const Conversion& conversion, int width,
                                       int precision) const {
    const std::string letter(1, conversion.letter);
    const std::string start = "%" + conversion.flags + "*.*" + conversion.length;
    const Argument& argument = arguments_[conversion.argument];
    if (conversion.letter == 'C' || conversion.letter == 'S') return std::nullopt;
    if (conversion.letter == 'c')
      return printed("%" + conversion.flags + "*c", width, std::get<int>(argument));
    if (const Text* text = std::get_if<Text>(&argument)) {
      if (conversion.letter != 'p') return printedText(start + 's', width, precision, *text);
      return text->address == nullptr
                 ? std::nullopt
                 : std::optional(printed("%" + conversion.flags + "*p", width, text->address));
    }
    return std::visit(
        [&](auto value) -> std::optional<std::string> {
          if constexpr (std::is_arithmetic_v<decltype(value)>) {
            // To the library a NaN has no sign, also where every number is to have one.
            if (value != value) return std::nullopt;
            return printed(start + letter, width, precision, value);
          }
          return std::nullopt;
        },
        argument);
  }

  // The C library shows nothing of a null text when the whole word does not fit.
  static std::optional<std::string> printedText(const std::string& format, int width, int precision,
                                                Text text) {
    const auto* bytes = static_cast<const char*>(text.address);
    if (bytes == nullptr && precision >= 0) return std::nullopt;
    return printed(format, width, precision, bytes == nullptr ? kAbsentText : bytes);
  }

  const std::vector<Argument>& arguments_;
};

void renderWithArgumentsThatAgree(const std::string& format, Input& input) {
  Texts texts;
  const std::vector<Conversion> conversions = Reader(format).read();
  const auto arguments = ArgumentMaker(input, texts).make(conversions);
  if (!arguments) return;
  const std::optional<std::string> text = rendered(format.c_str(), *arguments);
  require(text && isValidUtf8(*text), "a format gives text", format);
  const std::optional<std::string> expected = Model(*arguments).text(conversions);
  require(!expected || *expected == *text, "a format gives what the C library makes of it",
          "format: " + format + "\nC: " + expected.value_or("") + "\nlibrary: " + *text);
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
