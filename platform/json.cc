#include "platform/json.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "platform/joined.h"
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

// Step 2 of reading: what is accepted here and is not in JSON's grammar.

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
  // tokens, which is the mark of the end there.
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

// Step 3 of reading: the tokens.

enum class Token {
  objectBegin,
  objectEnd,
  arrayBegin,
  arrayEnd,
  colon,
  comma,
  text,
  value,
  end,
  bad
};

bool isDigit(char c) { return c >= '0' && c <= '9'; }

class Scanner {
 public:
  explicit Scanner(std::string_view text) : text_(text) {}

  Token take() {
    while (isBlank(peek())) ++position_;
    const std::size_t start = position_;
    switch (get()) {
      case '{':
        return Token::objectBegin;
      case '}':
        return Token::objectEnd;
      case '[':
        return Token::arrayBegin;
      case ']':
        return Token::arrayEnd;
      case ':':
        return Token::colon;
      case ',':
        return Token::comma;
      case '"':
        return takeString() ? Token::text : Token::bad;
      case 't':
        return takeWord("rue", Number::boolean(true));
      case 'f':
        return takeWord("alse", Number::boolean(false));
      case 'n':
        return takeWord("ull", Null{});
      case kEnd:
        return Token::end;
      default:
        position_ = start;
        return takeNumber() ? Token::value : Token::bad;
    }
  }

  // What the last token stands for.
  std::string takeText() { return std::exchange(string_, {}); }
  Value value() const { return value_; }

  // How many characters have been read, the end included.
  std::size_t position() const { return position_; }
  bool isOutOfRange() const { return isOutOfRange_; }

 private:
  // Stands for the end; a zero byte of the text itself is refused wherever it can come up.
  static constexpr char kEnd = '\0';

  char peek() const { return position_ < text_.size() ? text_[position_] : kEnd; }

  char get() {
    const char c = peek();
    ++position_;
    return c;
  }

  bool skip(char c) {
    if (peek() != c) return false;
    ++position_;
    return true;
  }

  Token takeWord(std::string_view rest, Value value) {
    for (const char expected : rest) {
      if (get() != expected) return Token::bad;
    }
    value_ = std::move(value);
    return Token::value;
  }

  // The opening quotation mark has been read.
  bool takeString() {
    string_.clear();
    while (true) {
      const char c = peek();
      if (static_cast<unsigned char>(c) >= 0x80) {
        if (!takeCharacter()) return false;
        continue;
      }
      ++position_;
      if (c == '"') return true;
      if (static_cast<unsigned char>(c) < 0x20) return false;
      if (c != '\\') {
        string_ += c;
      } else if (!takeEscape()) {
        return false;
      }
    }
  }

  // A character of several bytes.
  bool takeCharacter() {
    const Utf8Character character = firstCharacter(text_.substr(position_));
    string_ += text_.substr(position_, character.length);
    position_ += character.length;
    return character.wellFormed;
  }

  bool takeEscape() {
    constexpr std::string_view kLetters = "\"\\/bfnrt";
    constexpr std::string_view kMeanings = "\"\\/\b\f\n\r\t";
    const char letter = get();
    if (letter == 'u') return takeCodePoint();
    const std::size_t index = kLetters.find(letter);
    if (index == std::string_view::npos) return false;
    string_ += kMeanings[index];
    return true;
  }

  bool takeCodePoint() {
    std::optional<char32_t> codePoint = takeUnit();
    if (!codePoint || isLowSurrogate(*codePoint)) return false;
    if (isHighSurrogate(*codePoint)) {
      if (get() != '\\' || get() != 'u') return false;
      const std::optional<char32_t> low = takeUnit();
      if (!low || !isLowSurrogate(*low)) return false;
      codePoint = 0x10000 + ((*codePoint - 0xD800) << 10) + (*low - 0xDC00);
    }
    appendUtf8(string_, *codePoint);
    return true;
  }

  std::optional<char32_t> takeUnit() {
    char32_t unit = 0;
    for (int digits = 0; digits < 4; ++digits) {
      const char c = get();
      if (isDigit(c)) {
        unit = unit << 4 | static_cast<char32_t>(c - '0');
      } else if ((c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F')) {
        unit = unit << 4 | static_cast<char32_t>((c | 0x20) - 'a' + 10);
      } else {
        return std::nullopt;
      }
    }
    return unit;
  }

  bool takeNumber() {
    const std::size_t start = position_;
    skip('-');
    if (!skip('0') && !takeDigits()) return false;
    bool isWhole = true;
    if (skip('.')) {
      isWhole = false;
      if (!takeDigits()) return false;
    }
    if (skip('e') || skip('E')) {
      isWhole = false;
      if (!skip('-')) skip('+');
      if (!takeDigits()) return false;
    }
    return setNumber(text_.substr(start, position_ - start), isWhole);
  }

  // At least one digit; reads what stands in its place.
  bool takeDigits() {
    if (!isDigit(get())) return false;
    while (isDigit(peek())) ++position_;
    return true;
  }

  // An integer of more than 64 bits becomes a real.
  bool setNumber(std::string_view number, bool isWhole) {
    const char* end = number.data() + number.size();
    std::int64_t integer = 0;
    if (isWhole && std::from_chars(number.data(), end, integer).ec == std::errc{}) {
      value_ = Number::int64(integer);
      return true;
    }
    double real = 0;
    isOutOfRange_ = std::from_chars(number.data(), end, real).ec != std::errc{};
    value_ = Number::float64(real);
    return !isOutOfRange_;
  }

  std::string_view text_;
  std::size_t position_ = 0;
  std::string string_;
  Value value_ = Null{};
  bool isOutOfRange_ = false;
};

// Step 4 of reading: from the tokens to a value. Containers do not nest in calls, so that their
// depth takes nothing of the stack.

class Reader {
 public:
  explicit Reader(std::string_view text) : scanner_(text) {}

  std::optional<Value> read() {
    bool isGood = readValue(scanner_.take());
    while (isGood && !open_.empty()) isGood = readNext();
    if (!isGood || scanner_.take() != Token::end) return std::nullopt;
    return std::move(root_);
  }

  // Why read() returned nothing.
  std::string problem() const {
    if (isTooDeep_) return "Too many nested arrays or dictionaries.";
    if (scanner_.isOutOfRange()) return "A number is out of range.";
    return at("Badly formed text", scanner_.position());
  }

 private:
  struct Container {
    bool isArray;
    bool isEmpty = true;
    Array array;
    std::vector<Dictionary::Entry> entries;
    std::string key;
  };

  // An item of the innermost container, or its end.
  bool readNext() {
    const bool isFirst = std::exchange(open_.back().isEmpty, false);
    const bool isArray = open_.back().isArray;
    Token token = scanner_.take();
    if (token == (isArray ? Token::arrayEnd : Token::objectEnd)) {
      close();
      return true;
    }
    if (!isFirst) {
      if (token != Token::comma) return false;
      token = scanner_.take();
    }
    return isArray ? readValue(token) : readEntry(token);
  }

  bool readEntry(Token token) {
    if (token != Token::text) return false;
    open_.back().key = scanner_.takeText();
    return scanner_.take() == Token::colon && readValue(scanner_.take());
  }

  bool readValue(Token token) {
    switch (token) {
      case Token::objectBegin:
        return open(false);
      case Token::arrayBegin:
        return open(true);
      case Token::text:
        add(scanner_.takeText());
        return true;
      case Token::value:
        add(scanner_.value());
        return true;
      default:
        return false;
    }
  }

  bool open(bool isArray) {
    isTooDeep_ = open_.size() == kDeepestLevel;
    if (!isTooDeep_) open_.push_back(Container{isArray, true, {}, {}, {}});
    return !isTooDeep_;
  }

  void close() {
    Container closed = std::move(open_.back());
    open_.pop_back();
    if (closed.isArray) {
      add(std::move(closed.array));
    } else {
      add(Dictionary::fromEntries(std::move(closed.entries), Dictionary::Repeated::firstCounts));
    }
  }

  void add(Value value) {
    if (open_.empty()) {
      root_ = std::move(value);
    } else if (Container& container = open_.back(); container.isArray) {
      container.array.push_back(std::move(value));
    } else {
      container.entries.emplace_back(std::move(container.key), std::move(value));
    }
  }

  Scanner scanner_;
  std::vector<Container> open_;
  std::optional<Value> root_;
  bool isTooDeep_ = false;
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
    appendValidString(out, sanitizedUtf8(text));
  }
}

// The shortest text that reads back to the same double.
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

  Reader reader(*text);
  std::optional<Value> value = reader.read();
  return value ? value : fail(reader.problem());
}

bool isValidObject(const Dictionary& object) { return firstUnwritable(object, 1) == nullptr; }

std::optional<std::string> serialize(const Dictionary& object, Error* error) {
  if (const Value* value = firstUnwritable(object, 1)) {
    fillError(error, errorWith(joined({"Invalid type in JSON write (", value->className(), ")"})));
    return std::nullopt;
  }
  std::string text;
  appendDictionary(text, object);
  return text;
}

}  // namespace zln::json
