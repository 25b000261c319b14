#include "support/text_format.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <utility>
#include <vector>

#include "platform/identity.h"
#include "platform/number.h"
#include "platform/number_text.h"
#include "platform/utf8.h"

namespace zln {
namespace {

// Widths, and precisions of numbers, beyond this are cut to it: a few bytes of format, or one wrong
// argument, must not ask for much memory.
constexpr int kLargestPadding = 4096;

// The highest position that "%1$d" can name.
constexpr std::size_t kLastPosition = 64;

constexpr int kDefaultPrecision = 6;

// Digits before the point of the largest double, and room for sign, point and exponent.
constexpr std::size_t kRoomForReal = 340;

// Step 1: the format is taken apart.

enum class Length { standard, hh, h, l, ll, j, z, t, L };

// A width or a precision: absent, a number, or an argument.
struct Amount {
  std::optional<int> number;
  std::optional<std::size_t> argument;
};

// A conversion, or text between conversions, whose letter is 0.
struct Piece {
  std::string_view text;
  char letter = 0;
  Length length = Length::standard;
  bool leftAligned = false;
  bool plus = false;
  bool blank = false;
  bool alternate = false;
  bool zero = false;
  Amount width;
  Amount precision;
  std::size_t argument = 0;
};

bool takesArgument(const Piece& piece) { return piece.letter != 0 && piece.letter != '%'; }

class FormatParser {
 public:
  explicit FormatParser(std::string_view format) : rest_(format) {}

  std::vector<Piece> parse() {
    std::vector<Piece> pieces;
    while (!rest_.empty()) pieces.push_back(rest_.front() == '%' ? takeConversion() : takeText());
    return pieces;
  }

 private:
  Piece takeText() {
    Piece piece;
    piece.text = rest_.substr(0, rest_.find('%'));
    rest_.remove_prefix(piece.text.size());
    return piece;
  }

  // A conversion that is not known becomes text and uses up no argument.
  Piece takeConversion() {
    const std::string_view start = rest_;
    const std::size_t nextArgument = nextArgument_;
    Piece piece;
    if (!takeParts(piece)) {
      piece = Piece{};
      nextArgument_ = nextArgument;
    }
    piece.text = start.substr(0, start.size() - rest_.size());
    return piece;
  }

  bool takeParts(Piece& piece) {
    rest_.remove_prefix(1);
    const std::optional<int> position = takePosition();
    takeFlags(piece);
    if (!takeAmount(piece.width)) return false;
    if (skip('.')) {
      piece.precision.number = 0;
      if (!takeAmount(piece.precision)) return false;
    }
    piece.length = takeLength();
    if (rest_.empty()) return false;
    piece.letter = rest_.front();
    rest_.remove_prefix(1);
    if (std::string_view("diouxXfFeEgGaAcCsSpn%@").find(piece.letter) == std::string_view::npos) {
      return false;
    }
    return !takesArgument(piece) || chooseArgument(position, piece.argument);
  }

  bool skip(char c) {
    if (!rest_.starts_with(c)) return false;
    rest_.remove_prefix(1);
    return true;
  }

  bool startsWithDigit() const {
    return !rest_.empty() && rest_.front() >= '0' && rest_.front() <= '9';
  }

  // A number too large to matter stops growing.
  int takeNumber() {
    int number = 0;
    for (; startsWithDigit(); rest_.remove_prefix(1)) {
      if (number < 100000000) number = number * 10 + (rest_.front() - '0');
    }
    return number;
  }

  // "1$"; absent, and nothing taken, where the digits are a flag or a width.
  std::optional<int> takePosition() {
    const std::string_view start = rest_;
    if (startsWithDigit()) {
      const int number = takeNumber();
      if (skip('$')) return number;
    }
    rest_ = start;
    return std::nullopt;
  }

  bool chooseArgument(std::optional<int> position, std::size_t& argument) {
    if (!position) {
      argument = nextArgument_++;
      return true;
    }
    argument = static_cast<std::size_t>(*position) - 1;
    return *position >= 1 && argument < kLastPosition;
  }

  void takeFlags(Piece& piece) {
    for (;; rest_.remove_prefix(1)) {
      switch (rest_.empty() ? '\0' : rest_.front()) {
        case '-':
          piece.leftAligned = true;
          break;
        case '+':
          piece.plus = true;
          break;
        case ' ':
          piece.blank = true;
          break;
        case '#':
          piece.alternate = true;
          break;
        case '0':
          piece.zero = true;
          break;
        case '\'':  // Grouping is the locale's affair, which has no say here.
          break;
        default:
          return;
      }
    }
  }

  bool takeAmount(Amount& amount) {
    if (skip('*')) {
      amount.argument = 0;
      return chooseArgument(takePosition(), *amount.argument);
    }
    if (startsWithDigit()) amount.number = takeNumber();
    return true;
  }

  Length takeLength() {
    if (skip('h')) return skip('h') ? Length::hh : Length::h;
    if (skip('l')) return skip('l') ? Length::ll : Length::l;
    if (skip('q')) return Length::ll;
    if (skip('j')) return Length::j;
    if (skip('z')) return Length::z;
    if (skip('t')) return Length::t;
    return skip('L') ? Length::L : Length::standard;
  }

  std::string_view rest_;
  std::size_t nextArgument_ = 0;
};

// Step 2, for the variadic functions only: the arguments are fetched.

// How an argument was passed.
enum class Passed {
  asInt,
  asLong,
  asLongLong,
  asIntMax,
  asSize,
  asDifference,
  asDouble,
  asLongDouble,
  asPointer
};

Passed passedInteger(Length length) {
  switch (length) {
    case Length::l:
      return Passed::asLong;
    case Length::ll:
    case Length::L:
      return Passed::asLongLong;
    case Length::j:
      return Passed::asIntMax;
    case Length::z:
      return Passed::asSize;
    case Length::t:
      return Passed::asDifference;
    case Length::standard:
    case Length::hh:
    case Length::h:
      break;
  }
  return Passed::asInt;
}

Passed passedFor(const Piece& piece) {
  switch (piece.letter) {
    case 'd':
    case 'i':
    case 'o':
    case 'u':
    case 'x':
    case 'X':
      return passedInteger(piece.length);
    case 'c':
    case 'C':
      return Passed::asInt;
    case 's':
    case 'S':
    case 'p':
    case 'n':
    case '@':
      return Passed::asPointer;
    default:
      return piece.length == Length::L ? Passed::asLongDouble : Passed::asDouble;
  }
}

// The arguments in the order of passing. One that no conversion names is taken for an int.
std::vector<Passed> passedArguments(const std::vector<Piece>& pieces) {
  std::vector<std::optional<Passed>> found;
  const auto note = [&found](std::size_t index, Passed passed) {
    if (index >= found.size()) found.resize(index + 1);
    if (!found[index]) found[index] = passed;
  };
  for (const Piece& piece : pieces) {
    if (piece.width.argument) note(*piece.width.argument, Passed::asInt);
    if (piece.precision.argument) note(*piece.precision.argument, Passed::asInt);
    if (takesArgument(piece)) note(piece.argument, passedFor(piece));
  }

  std::vector<Passed> passed;
  passed.reserve(found.size());
  for (const auto& entry : found) passed.push_back(entry.value_or(Passed::asInt));
  return passed;
}

std::vector<FormatArgument> fetchArguments(const std::vector<Passed>& passed, std::va_list list) {
  std::vector<FormatArgument> arguments;
  arguments.reserve(passed.size());
  for (const Passed kind : passed) {
    switch (kind) {
      case Passed::asInt:
        arguments.emplace_back(std::int64_t{va_arg(list, int)});
        break;
      case Passed::asLong:
        arguments.emplace_back(std::int64_t{va_arg(list, long)});
        break;
      case Passed::asLongLong:
        arguments.emplace_back(std::int64_t{va_arg(list, long long)});
        break;
      case Passed::asIntMax:
        arguments.emplace_back(static_cast<std::int64_t>(va_arg(list, std::intmax_t)));
        break;
      case Passed::asSize:
        arguments.emplace_back(static_cast<std::int64_t>(va_arg(list, std::size_t)));
        break;
      case Passed::asDifference:
        arguments.emplace_back(static_cast<std::int64_t>(va_arg(list, std::ptrdiff_t)));
        break;
      case Passed::asDouble:
        arguments.emplace_back(static_cast<long double>(va_arg(list, double)));
        break;
      case Passed::asLongDouble:
        arguments.emplace_back(va_arg(list, long double));
        break;
      case Passed::asPointer:
        arguments.emplace_back(static_cast<const void*>(va_arg(list, void*)));
        break;
    }
  }
  return arguments;
}

// Step 3: the pieces become text.

template <typename... Types>
struct Overloaded : Types... {
  using Types::operator()...;
};
template <typename... Types>
Overloaded(Types...) -> Overloaded<Types...>;

// Number conversions take any number; nothing else has one.
std::optional<std::int64_t> integerOf(const FormatArgument& argument) {
  if (const auto* integer = std::get_if<std::int64_t>(&argument)) return *integer;
  if (const auto* real = std::get_if<long double>(&argument)) {
    return Number::float64(static_cast<double>(*real)).longValue();
  }
  return std::nullopt;
}

// A long double counts with the digits of a double: the conversion of longer ones to text looks at
// the locale.
std::optional<double> realOf(const FormatArgument& argument) {
  if (const auto* real = std::get_if<long double>(&argument)) return static_cast<double>(*real);
  if (const auto* integer = std::get_if<std::int64_t>(&argument)) {
    return static_cast<double>(*integer);
  }
  return std::nullopt;
}

std::int64_t narrowedSigned(std::int64_t value, Length length) {
  switch (length) {
    case Length::hh:
      return static_cast<signed char>(value);
    case Length::h:
      return static_cast<short>(value);
    case Length::standard:
      return static_cast<int>(value);
    case Length::l:
      return static_cast<long>(value);
    default:
      return value;
  }
}

std::uint64_t narrowedUnsigned(std::int64_t value, Length length) {
  switch (length) {
    case Length::hh:
      return static_cast<unsigned char>(value);
    case Length::h:
      return static_cast<unsigned short>(value);
    case Length::standard:
      return static_cast<unsigned>(value);
    case Length::l:
      return static_cast<unsigned long>(value);
    case Length::z:
      return static_cast<std::size_t>(value);
    default:
      return static_cast<std::uint64_t>(value);
  }
}

bool isUpper(char letter) { return letter >= 'A' && letter <= 'Z'; }

void raiseCase(std::string& text) {
  for (char& c : text) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
}

// Up to `limit` bytes of a text that ends with a zero; nothing beyond the limit is looked at.
std::string_view boundedText(const void* pointer, std::optional<std::size_t> limit) {
  const auto* text = static_cast<const char*>(pointer);
  if (text == nullptr) return std::string_view(kAbsentText).substr(0, limit.value_or(SIZE_MAX));
  if (!limit) return text;
  const void* end = *limit == 0 ? text : std::memchr(text, 0, *limit);
  return {text,
          end == nullptr ? *limit : static_cast<std::size_t>(static_cast<const char*>(end) - text)};
}

// The same for wide characters; one that does not fit whole is left out.
std::string wideText(const void* pointer, std::optional<std::size_t> limit) {
  const auto* text = static_cast<const wchar_t*>(pointer);
  if (text == nullptr) return std::string(boundedText(nullptr, limit));
  std::string result;
  while (!limit || result.size() < *limit) {
    if (*text == 0) break;
    std::string character;
    appendUtf8(character, static_cast<char32_t>(*text++));
    if (limit && result.size() + character.size() > *limit) break;
    result += character;
  }
  return result;
}

template <typename... Format>
std::string realText(double value, int precision, Format... format) {
  std::string text(kRoomForReal + static_cast<std::size_t>(precision), '\0');
  char* begin = text.data();
  text.resize(static_cast<std::size_t>(
      std::to_chars(begin, begin + text.size(), value, format...).ptr - begin));
  return text;
}

// A point where there is none, before the exponent if there is one.
void ensurePoint(std::string& text, char exponentLetter) {
  if (text.find('.') == std::string::npos) {
    text.insert(std::min(text.find(exponentLetter), text.size()), 1, '.');
  }
}

// "%#g": as many digits as the precision says, trailing zeros included.
std::string generalTextWithZeros(double value, int precision) {
  std::string text = realText(value, precision, std::chars_format::scientific, precision - 1);
  const std::size_t mark = text.find('e') + 1;
  int exponent = 0;
  std::from_chars(text.data() + mark + (text[mark] == '+' ? 1 : 0), text.data() + text.size(),
                  exponent);
  if (exponent >= -4 && exponent < precision) {
    text = realText(value, precision + 4, std::chars_format::fixed, precision - 1 - exponent);
  }
  ensurePoint(text, 'e');
  return text;
}

// The text of a finite value that is not negative, without prefix, in lower case.
std::string magnitudeText(double value, char lowerLetter, std::optional<int> precision,
                          bool alternate) {
  const int digits = precision.value_or(kDefaultPrecision);
  std::string text;
  switch (lowerLetter) {
    case 'f':
      text = realText(value, digits, std::chars_format::fixed, digits);
      break;
    case 'e':
      text = realText(value, digits, std::chars_format::scientific, digits);
      break;
    case 'a':
      text = precision ? realText(value, digits, std::chars_format::hex, digits)
                       : realText(value, digits, std::chars_format::hex);
      break;
    default:
      if (alternate) return generalTextWithZeros(value, std::max(digits, 1));
      return realText(value, digits, std::chars_format::general, digits);
  }
  if (alternate) ensurePoint(text, lowerLetter == 'a' ? 'p' : 'e');
  return text;
}

class Renderer {
 public:
  explicit Renderer(std::span<const FormatArgument> arguments) : arguments_(arguments) {}

  std::string render(const std::vector<Piece>& pieces) {
    for (const Piece& piece : pieces) {
      if (!renderPiece(piece)) out_ += piece.text;
    }
    return isValidUtf8(out_) ? std::move(out_) : sanitizedUtf8(out_);
  }

 private:
  // False when the piece is to be shown as it stands.
  bool renderPiece(Piece piece) {
    if (piece.letter == 0) return false;
    if (piece.letter == '%') {
      out_ += '%';
      return true;
    }
    if (!isArgument(piece.argument) || !resolve(piece.width) || !resolve(piece.precision)) {
      return false;
    }
    applyNegativeAmounts(piece);
    return renderArgument(piece, arguments_[piece.argument]);
  }

  bool isArgument(std::size_t index) const {
    return index < arguments_.size() && !std::holds_alternative<std::monostate>(arguments_[index]);
  }

  // Puts the number in place of an argument. False when there is no such number.
  bool resolve(Amount& amount) const {
    if (!amount.argument) return true;
    if (!isArgument(*amount.argument)) return false;
    const std::optional<std::int64_t> number = integerOf(arguments_[*amount.argument]);
    if (!number) return false;
    amount.number = static_cast<int>(*number);
    return true;
  }

  // A negative width aligns to the left, a negative precision is none.
  static void applyNegativeAmounts(Piece& piece) {
    if (piece.width.number.value_or(0) < 0) {
      piece.leftAligned = true;
      piece.width.number = -std::max(*piece.width.number, -kLargestPadding);
    }
    if (piece.precision.number.value_or(0) < 0) piece.precision.number.reset();
  }

  bool renderArgument(const Piece& piece, const FormatArgument& argument) {
    switch (piece.letter) {
      case 'd':
      case 'i':
        return renderSigned(piece, integerOf(argument));
      case 'u':
      case 'o':
      case 'x':
      case 'X':
        return renderUnsigned(piece, integerOf(argument));
      case 'c':
      case 'C':
        return renderCharacter(piece, integerOf(argument));
      case 's':
      case 'S':
      case '@':
        renderText(piece, argument);
        return true;
      case 'p':
        return renderPointer(piece, argument);
      case 'n':  // Storing through a pointer out of a format is a well-known way to do harm.
        return true;
      default:
        return renderReal(piece, realOf(argument));
    }
  }

  bool renderSigned(const Piece& piece, std::optional<std::int64_t> argument) {
    if (!argument) return false;
    const std::int64_t value = narrowedSigned(*argument, piece.length);
    const auto bits = static_cast<std::uint64_t>(value);
    appendPadded(piece, signText(piece, value < 0),
                 digitsOf(piece, value < 0 ? 0 - bits : bits, 10), !piece.precision.number);
    return true;
  }

  bool renderUnsigned(const Piece& piece, std::optional<std::int64_t> argument) {
    if (!argument) return false;
    const std::uint64_t value = narrowedUnsigned(*argument, piece.length);
    const int base = piece.letter == 'u' ? 10 : piece.letter == 'o' ? 8 : 16;
    std::string digits = digitsOf(piece, value, base);
    if (base == 8 && piece.alternate && !digits.starts_with('0')) digits.insert(0, 1, '0');
    if (piece.letter == 'X') raiseCase(digits);
    const bool hasPrefix = base == 16 && piece.alternate && value != 0;
    appendPadded(piece,
                 !hasPrefix            ? ""
                 : piece.letter == 'X' ? "0X"
                                       : "0x",
                 digits, !piece.precision.number);
    return true;
  }

  // At least as many digits as the precision says: none for a zero with precision 0.
  static std::string digitsOf(const Piece& piece, std::uint64_t value, int base) {
    const auto fewest =
        static_cast<std::size_t>(std::min(piece.precision.number.value_or(1), kLargestPadding));
    std::string digits;
    if (value != 0) appendNumber(digits, value, base);
    if (digits.size() < fewest) digits.insert(0, fewest - digits.size(), '0');
    return digits;
  }

  static std::string_view signText(const Piece& piece, bool isNegative) {
    if (isNegative) return "-";
    return piece.plus ? "+" : piece.blank ? " " : "";
  }

  bool renderReal(const Piece& piece, std::optional<double> argument) {
    if (!argument) return false;
    const double value = *argument;
    const bool isNumber = !std::isnan(value);
    std::string prefix(isNumber ? signText(piece, std::signbit(value)) : "");
    std::string text = !isNumber ? "nan" : "inf";
    if (std::isfinite(value)) {
      const char letter =
          isUpper(piece.letter) ? static_cast<char>(piece.letter - 'A' + 'a') : piece.letter;
      std::optional<int> precision = piece.precision.number;
      if (precision) precision = std::min(*precision, kLargestPadding);
      if (letter == 'a') prefix += "0x";
      text = magnitudeText(std::fabs(value), letter, precision, piece.alternate);
    }
    if (isUpper(piece.letter)) {
      raiseCase(prefix);
      raiseCase(text);
    }
    appendPadded(piece, prefix, text, std::isfinite(value));
    return true;
  }

  bool renderCharacter(const Piece& piece, std::optional<std::int64_t> argument) {
    if (!argument) return false;
    std::string character;
    if (piece.letter == 'C' || piece.length == Length::l) {
      appendUtf8(character, static_cast<char32_t>(*argument));
    } else {
      character += static_cast<char>(*argument);
    }
    appendPadded(piece, "", character, false);
    return true;
  }

  void renderText(const Piece& piece, const FormatArgument& argument) {
    std::optional<std::size_t> limit;
    if (piece.precision.number) limit = static_cast<std::size_t>(*piece.precision.number);
    const bool isWide = piece.letter == 'S' || (piece.letter == 's' && piece.length == Length::l);
    const std::string text = std::visit(
        Overloaded{
            [](std::monostate) { return std::string(kAbsentText); },
            [](std::int64_t integer) { return Number::int64(integer).description(); },
            [](long double real) {
              return Number::float64(static_cast<double>(real)).description();
            },
            [&](const void* pointer) {
              return isWide ? wideText(pointer, limit) : std::string(boundedText(pointer, limit));
            },
            [](const FormatObject& object) { return object.describe(object.object); },
        },
        argument);
    appendPadded(piece, "", std::string_view(text).substr(0, limit.value_or(text.size())), false);
  }

  bool renderPointer(const Piece& piece, const FormatArgument& argument) {
    const auto* pointer = std::get_if<const void*>(&argument);
    if (pointer == nullptr) return false;
    appendPadded(piece, "", addressText(*pointer), false);
    return true;
  }

  void appendPadded(const Piece& piece, std::string_view prefix, std::string_view text,
                    bool allowsZeros) {
    const auto width =
        static_cast<std::size_t>(std::min(piece.width.number.value_or(0), kLargestPadding));
    const std::size_t length = prefix.size() + text.size();
    const std::size_t missing = width > length ? width - length : 0;
    const bool hasZeros = piece.zero && allowsZeros && !piece.leftAligned;
    if (!piece.leftAligned && !hasZeros) out_.append(missing, ' ');
    out_ += prefix;
    if (hasZeros) out_.append(missing, '0');
    out_ += text;
    if (piece.leftAligned) out_.append(missing, ' ');
  }

  std::span<const FormatArgument> arguments_;
  std::string out_;
};

}  // namespace

std::string renderFormat(std::string_view format, std::span<const FormatArgument> arguments) {
  return Renderer(arguments).render(FormatParser(format).parse());
}

std::optional<std::string> renderFormatList(const char* format, std::va_list arguments) {
  if (format == nullptr) return std::nullopt;
  const std::vector<Piece> pieces = FormatParser(format).parse();
  return Renderer(fetchArguments(passedArguments(pieces), arguments)).render(pieces);
}

}  // namespace zln
