#include "platform/json.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <limits>
#include <utility>
#include <vector>

// The parser's own check that a number was read to its end would fail where the locale has a
// decimal point of several bytes, or changes meanwhile. Numbers are converted here again.
#define JSON_ASSERT(condition) static_cast<void>(0)
#include <nlohmann/json.hpp>

#include "platform/number_text.h"
#include "platform/utf8.h"

namespace zln::json {
namespace {

constexpr std::size_t kDeepestLevel = 512;

// Whole doubles below this are written as integers.
constexpr double kPlainWholeLimit = 1e15;

Error errorWith(std::string explanation) {
  Error error{kCocoaErrorDomain, kErrorCode, std::nullopt, {}};
  error.userInfo.emplace_back("NSDebugDescription", std::move(explanation));
  return error;
}

std::string at(std::string text, std::size_t position) {
  text += " around character ";
  appendNumber(text, position);
  return text += '.';
}

// Step 1 of reading: one encoding for all.

enum class ByteOrder { little, big };

struct Encoding {
  std::size_t unitSize = 1;
  ByteOrder order = ByteOrder::little;
  std::size_t markLength = 0;
};

std::optional<Encoding> markedEncoding(std::string_view bytes) {
  using namespace std::string_view_literals;
  if (bytes.starts_with("\xEF\xBB\xBF"sv)) return Encoding{1, ByteOrder::little, 3};
  if (bytes.starts_with("\xFF\xFE\0\0"sv)) return Encoding{4, ByteOrder::little, 4};
  if (bytes.starts_with("\0\0\xFE\xFF"sv)) return Encoding{4, ByteOrder::big, 4};
  if (bytes.starts_with("\xFF\xFE"sv)) return Encoding{2, ByteOrder::little, 2};
  if (bytes.starts_with("\xFE\xFF"sv)) return Encoding{2, ByteOrder::big, 2};
  return std::nullopt;
}

// A text begins with two characters of ASCII, so the zero bytes tell the encoding.
Encoding encodingOf(std::string_view bytes) {
  if (const auto marked = markedEncoding(bytes)) return *marked;
  if (bytes.size() < 4) return Encoding{};
  const bool isZero[] = {bytes[0] == 0, bytes[1] == 0, bytes[2] == 0, bytes[3] == 0};
  if (isZero[0] && isZero[1] && isZero[2] && !isZero[3]) return Encoding{4, ByteOrder::big, 0};
  if (!isZero[0] && isZero[1] && isZero[2] && isZero[3]) return Encoding{4, ByteOrder::little, 0};
  if (isZero[0] && !isZero[1] && isZero[2] && !isZero[3]) return Encoding{2, ByteOrder::big, 0};
  if (!isZero[0] && isZero[1] && !isZero[2] && isZero[3]) return Encoding{2, ByteOrder::little, 0};
  return Encoding{};
}

char32_t unitAt(std::string_view bytes, const Encoding& encoding) {
  char32_t unit = 0;
  for (std::size_t index = 0; index < encoding.unitSize; ++index) {
    const std::size_t place =
        encoding.order == ByteOrder::big ? index : encoding.unitSize - 1 - index;
    unit = unit << 8 | static_cast<unsigned char>(bytes[place]);
  }
  return unit;
}

bool isHighSurrogate(char32_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool isLowSurrogate(char32_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

std::optional<std::string> utf8FromUnits(std::string_view bytes, const Encoding& encoding) {
  if (bytes.size() % encoding.unitSize != 0) return std::nullopt;
  std::string text;
  text.reserve(bytes.size() / encoding.unitSize);
  while (!bytes.empty()) {
    char32_t codePoint = unitAt(bytes, encoding);
    bytes.remove_prefix(encoding.unitSize);
    if (encoding.unitSize == 2 && isHighSurrogate(codePoint) && !bytes.empty()) {
      const char32_t low = unitAt(bytes, encoding);
      if (!isLowSurrogate(low)) return std::nullopt;
      bytes.remove_prefix(encoding.unitSize);
      codePoint = 0x10000 + ((codePoint - 0xD800) << 10) + (low - 0xDC00);
    }
    const bool isLone = isHighSurrogate(codePoint) || isLowSurrogate(codePoint);
    if (isLone || codePoint > 0x10FFFF) return std::nullopt;
    appendUtf8(text, codePoint);
  }
  return text;
}

std::optional<std::string> utf8From(std::string_view bytes) {
  const Encoding encoding = encodingOf(bytes);
  bytes.remove_prefix(encoding.markLength);
  return encoding.unitSize == 1 ? std::string(bytes) : utf8FromUnits(bytes, encoding);
}

// Step 2 of reading: the differences between the texts accepted here and those of the parser.

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

// Walks over a text outside of its strings, which is where its structure lies.
class Structure {
 public:
  explicit Structure(std::string& text) : text_(text) {}

  bool startsWithContainer() const {
    const auto first = std::find_if_not(text_.begin(), text_.end(), isBlank);
    return first != text_.end() && (*first == '{' || *first == '[');
  }

  // Puts a blank in place of every trailing comma. False when there is a zero byte between the
  // tokens, which the parser would take for the end.
  bool removeTrailingCommas() {
    for (position_ = 0; position_ < text_.size(); ++position_) {
      const char c = text_[position_];
      if (c == '\0') return false;
      if (isBlank(c)) continue;
      if (c == '"') skipString();
      if (c == ',') comma_ = position_;
      if ((c == '}' || c == ']') && last_ == ',' && !isOpening(beforeLast_)) text_[comma_] = ' ';
      beforeLast_ = std::exchange(last_, c);
    }
    return true;
  }

 private:
  static bool isOpening(char c) { return c == '{' || c == '[' || c == ','; }

  // From the opening quotation mark to the closing one.
  void skipString() {
    for (++position_; position_ < text_.size() && text_[position_] != '"'; ++position_) {
      if (text_[position_] == '\\') ++position_;
    }
  }

  std::string& text_;
  std::size_t position_ = 0;
  std::size_t comma_ = 0;
  char last_ = '{';
  char beforeLast_ = '{';
};

// Step 3 of reading: from the parser's events to a value.

// Absent when the text is not that of a finite number, or of one too small to be told from zero.
std::optional<double> realFrom(std::string text) {
  // The parser puts the first byte of the locale's decimal point in place of the text's own.
  const auto isMark = [](char c) {
    const bool isDigit = c >= '0' && c <= '9';
    return !isDigit && c != '-' && c != '+' && c != 'e' && c != 'E';
  };
  std::replace_if(text.begin(), text.end(), isMark, '.');

  double value = 0;
  const char* end = text.data() + text.size();
  const auto [rest, problem] = std::from_chars(text.data(), end, value);
  if (problem != std::errc{} || rest != end) return std::nullopt;
  return value;
}

class Builder {
 public:
  std::optional<Value> takeRoot() { return std::exchange(root_, std::nullopt); }
  const std::string& problem() const { return problem_; }

  bool null() { return add(Null{}); }
  bool boolean(bool value) { return add(Number::boolean(value)); }
  bool number_integer(std::int64_t value) { return add(Number::int64(value)); }

  bool number_unsigned(std::uint64_t value) {
    constexpr std::uint64_t kLargest = std::numeric_limits<std::int64_t>::max();
    return add(value <= kLargest ? Number::int64(static_cast<std::int64_t>(value))
                                 : Number::float64(static_cast<double>(value)));
  }

  bool number_float(double /*followsTheLocale*/, const std::string& text) {
    const std::optional<double> value = realFrom(text);
    return value ? add(Number::float64(*value)) : fail("A number is out of range.");
  }

  bool string(std::string& text) { return add(std::move(text)); }
  bool binary(const nlohmann::json::binary_t&) { return fail("There is no binary data in JSON."); }

  bool start_object(std::size_t) { return open(false); }
  bool start_array(std::size_t) { return open(true); }

  bool key(std::string& text) {
    open_.back().key = std::move(text);
    return true;
  }

  bool end_object() {
    auto entries = std::move(open_.back().entries);
    open_.pop_back();
    return add(Dictionary::fromEntries(std::move(entries), Dictionary::Repeated::firstCounts));
  }

  bool end_array() {
    auto array = std::move(open_.back().array);
    open_.pop_back();
    return add(std::move(array));
  }

  template <typename Exception>
  bool parse_error(std::size_t position, const std::string&, const Exception&) {
    return fail(at("Badly formed text", position));
  }

 private:
  struct Container {
    bool isArray;
    Array array;
    std::vector<Dictionary::Entry> entries;
    std::string key;
  };

  bool open(bool isArray) {
    if (open_.size() == kDeepestLevel) return fail("Too many nested arrays or dictionaries.");
    open_.push_back(Container{isArray, {}, {}, {}});
    return true;
  }

  bool add(Value value) {
    if (open_.empty()) {
      root_ = std::move(value);
    } else if (Container& container = open_.back(); container.isArray) {
      container.array.push_back(std::move(value));
    } else {
      container.entries.emplace_back(std::move(container.key), std::move(value));
    }
    return true;
  }

  bool fail(std::string problem) {
    problem_ = std::move(problem);
    return false;
  }

  std::vector<Container> open_;
  std::optional<Value> root_;
  std::string problem_;
};

// A type of our own, so that the parser made for it here, without its checks, stays apart from
// those that a host program makes.
class TextIterator {
 public:
  using iterator_category = std::forward_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = const char&;

  explicit TextIterator(const char* position) : position_(position) {}
  reference operator*() const { return *position_; }
  TextIterator& operator++() {
    ++position_;
    return *this;
  }
  TextIterator operator++(int) { return TextIterator(position_++); }
  friend bool operator==(const TextIterator&, const TextIterator&) = default;

 private:
  const char* position_;
};

// Writing.

bool isFinite(const Number& number) { return std::isfinite(number.doubleValue()); }

// The value that cannot be written, or null.
const Value* firstUnwritable(const Dictionary& dictionary, std::size_t level);

const Value* firstUnwritable(const Value& value, std::size_t level) {
  if (const Dictionary* dictionary = value.dictionary()) {
    return level > kDeepestLevel ? &value : firstUnwritable(*dictionary, level);
  }
  if (const Array* array = value.array()) {
    if (level > kDeepestLevel) return &value;
    for (const Value& element : *array) {
      if (const Value* found = firstUnwritable(element, level + 1)) return found;
    }
    return nullptr;
  }
  const Number* number = value.number();
  const bool isWritable =
      value.string() != nullptr || value.isNull() || (number != nullptr && isFinite(*number));
  return isWritable ? nullptr : &value;
}

const Value* firstUnwritable(const Dictionary& dictionary, std::size_t level) {
  for (const auto& [key, value] : dictionary.entries()) {
    if (const Value* found = firstUnwritable(value, level + 1)) return found;
  }
  return nullptr;
}

void appendControl(std::string& out, char c) {
  constexpr char kHex[] = "0123456789abcdef";
  out += "\\u00";
  out += kHex[static_cast<unsigned char>(c) >> 4];
  out += kHex[static_cast<unsigned char>(c) & 0xF];
}

void appendEscape(std::string& out, char c) {
  switch (c) {
    case '\b':
      out += "\\b";
      break;
    case '\f':
      out += "\\f";
      break;
    case '\n':
      out += "\\n";
      break;
    case '\r':
      out += "\\r";
      break;
    case '\t':
      out += "\\t";
      break;
    case '"':
    case '\\':
    case '/':
      out += '\\';
      out += c;
      break;
    default:
      appendControl(out, c);
      break;
  }
}

bool needsEscape(char c) {
  return static_cast<unsigned char>(c) < 0x20 || c == '"' || c == '\\' || c == '/';
}

void appendValidString(std::string& out, std::string_view text) {
  out += '"';
  while (!text.empty()) {
    const auto special = std::find_if(text.begin(), text.end(), needsEscape);
    const auto length = static_cast<std::size_t>(special - text.begin());
    out += text.substr(0, length);
    text.remove_prefix(length);
    if (text.empty()) break;
    appendEscape(out, text.front());
    text.remove_prefix(1);
  }
  out += '"';
}

void appendString(std::string& out, std::string_view text) {
  if (isValidUtf8(text)) {
    appendValidString(out, text);
  } else {
    appendValidString(out, mendUtf8(text));
  }
}

// The shortest text that reads back to the same double. The JSON library's own text is now and then
// a digit longer.
void appendReal(std::string& out, double real) {
  const bool isPlainWhole = std::trunc(real) == real && std::fabs(real) < kPlainWholeLimit;
  if (isPlainWhole) {
    appendNumber(out, static_cast<std::int64_t>(real));
  } else {
    appendNumber(out, real);
  }
}

void appendNumberValue(std::string& out, const Number& number) {
  if (number.isBoolean()) {
    out += number.boolValue() ? "true" : "false";
  } else if (number.isReal()) {
    appendReal(out, number.doubleValue());
  } else {
    appendNumber(out, number.longValue());
  }
}

void appendDictionary(std::string& out, const Dictionary& dictionary);
void appendArray(std::string& out, const Array& array);

void appendValue(std::string& out, const Value& value) {
  if (const std::string* text = value.string()) {
    appendString(out, *text);
  } else if (const Number* number = value.number()) {
    appendNumberValue(out, *number);
  } else if (const Array* array = value.array()) {
    appendArray(out, *array);
  } else if (const Dictionary* dictionary = value.dictionary()) {
    appendDictionary(out, *dictionary);
  } else {
    out += "null";
  }
}

void appendArray(std::string& out, const Array& array) {
  char separator = '[';
  for (const Value& element : array) {
    out += std::exchange(separator, ',');
    appendValue(out, element);
  }
  out += array.empty() ? "[]" : "]";
}

void appendDictionary(std::string& out, const Dictionary& dictionary) {
  char separator = '{';
  for (const auto& [key, value] : dictionary.entries()) {
    out += std::exchange(separator, ',');
    appendString(out, key);
    out += ':';
    appendValue(out, value);
  }
  out += dictionary.empty() ? "{}" : "}";
}

}  // namespace

std::optional<Value> parse(std::string_view bytes, Error* error) {
  const auto fail = [error](std::string explanation) {
    fillError(error, errorWith(std::move(explanation)));
    return std::nullopt;
  };
  if (bytes.empty()) return fail("Unable to parse empty data.");
  std::optional<std::string> text = utf8From(bytes);
  if (!text) return fail("Unable to convert the data to a text.");

  Structure structure(*text);
  if (!structure.startsWithContainer())
    return fail("The text does not start with array or object.");
  if (!structure.removeTrailingCommas()) return fail("There is a zero byte outside of strings.");

  Builder builder;
  const bool isRead = nlohmann::json::sax_parse(
      TextIterator(text->data()), TextIterator(text->data() + text->size()), &builder);
  return isRead ? builder.takeRoot() : fail(builder.problem());
}

bool isValidObject(const Dictionary& object) { return firstUnwritable(object, 1) == nullptr; }

std::optional<std::string> serialize(const Dictionary& object, Error* error) {
  if (const Value* value = firstUnwritable(object, 1)) {
    fillError(error,
              errorWith(std::string("Invalid type in JSON write (") + value->className() + ")"));
    return std::nullopt;
  }
  std::string text;
  appendDictionary(text, object);
  return text;
}

}  // namespace zln::json
