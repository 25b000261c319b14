#include <expat.h>

#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/calendar.h"
#include "platform/posix/binary_property_list.h"
#include "platform/property_list.h"

namespace zln::property_list {
namespace {

constexpr int kDeepestLevel = 128;
// A value takes several times the room of a short element's text, so the size alone does not bound
// it. No document of ours has shorter elements.
constexpr std::size_t kMostElements = 1000000;
constexpr std::size_t kShortestElement = 24;
// Room for a report's keys, so that a full queue is read without moving what has been read.
constexpr std::size_t kOrdinaryEntries = 16;

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

bool isDigit(char c) { return c >= '0' && c <= '9'; }

void skipBlanks(std::string_view& text) {
  while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
}

bool skip(std::string_view& text, char c) {
  if (!text.starts_with(c)) return false;
  text.remove_prefix(1);
  return true;
}

// True when there was a minus.
bool skipSign(std::string_view& text) {
  if (skip(text, '-')) return true;
  skip(text, '+');
  return false;
}

template <typename T, typename... Format>
std::optional<T> numberFrom(std::string_view text, Format... format) {
  T value{};
  const char* end = text.data() + text.size();
  const auto [rest, problem] = std::from_chars(text.data(), end, value, format...);
  if (problem != std::errc{} || rest != end) return std::nullopt;
  return value;
}

bool isHexadecimal(std::string_view text) {
  return text.starts_with("0x") || text.starts_with("0X");
}

// Decimal or hexadecimal with a sign, from -2^63 to 2^64-1.
std::optional<Value> integerFrom(std::string_view text) {
  constexpr std::uint64_t kLargest = std::numeric_limits<std::int64_t>::max();
  skipBlanks(text);
  const bool isNegative = skipSign(text);
  skipBlanks(text);
  const int base = isHexadecimal(text) ? 16 : 10;
  if (base == 16) text.remove_prefix(2);

  const auto magnitude = numberFrom<std::uint64_t>(text, base);
  if (!magnitude) return std::nullopt;
  if (isNegative) {
    if (*magnitude > kLargest + 1) return std::nullopt;
    return Number::int64(static_cast<std::int64_t>(0 - *magnitude));
  }
  if (*magnitude > kLargest) return Number::float64(static_cast<double>(*magnitude));
  return Number::int64(static_cast<std::int64_t>(*magnitude));
}

bool equalsInAnyCase(std::string_view text, std::string_view lowerCase) {
  if (text.size() != lowerCase.size()) return false;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const char c = text[at];
    const char lower = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    if (lower != lowerCase[at]) return false;
  }
  return true;
}

std::optional<double> magnitudeFrom(std::string_view text) {
  if (equalsInAnyCase(text, "nan")) return std::numeric_limits<double>::quiet_NaN();
  if (equalsInAnyCase(text, "inf") || equalsInAnyCase(text, "infinity")) {
    return std::numeric_limits<double>::infinity();
  }
  const bool isDecimal = !text.empty() && (isDigit(text.front()) || text.front() == '.');
  return isDecimal ? numberFrom<double>(text, std::chars_format::general) : std::nullopt;
}

std::optional<Value> realFrom(std::string_view text) {
  skipBlanks(text);
  const bool isNegative = skipSign(text);
  const std::optional<double> magnitude = magnitudeFrom(text);
  if (!magnitude) return std::nullopt;
  return Number::float64(isNegative ? -*magnitude : *magnitude);
}

// Takes exactly `count` digits from the front.
std::optional<int> takeDigits(std::string_view& text, std::size_t count) {
  if (text.size() < count) return std::nullopt;
  int number = 0;
  for (const char c : text.substr(0, count)) {
    if (!isDigit(c)) return std::nullopt;
    number = number * 10 + (c - '0');
  }
  text.remove_prefix(count);
  return number;
}

// "2023-11-14T22:13:20Z" and nothing else.
std::optional<Value> dateFrom(std::string_view text) {
  constexpr std::string_view kSeparators = "--T::Z";
  int fields[6] = {};
  for (std::size_t at = 0; at < std::size(fields); ++at) {
    const std::optional<int> number = takeDigits(text, at == 0 ? 4 : 2);
    if (!number || !skip(text, kSeparators[at])) return std::nullopt;
    fields[at] = *number;
  }
  if (!text.empty()) return std::nullopt;

  const CalendarTime time{fields[0], fields[1], fields[2], fields[3], fields[4], fields[5]};
  const std::optional<std::int64_t> seconds = time.secondsSince1970();
  if (!seconds) return std::nullopt;
  return Date{static_cast<double>(*seconds)};
}

int base64Digit(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (isDigit(c)) return c - '0' + 52;
  if (c == '+') return 62;
  return c == '/' ? 63 : -1;
}

// Whole groups of four digits, the last one padded; blanks anywhere.
std::optional<Value> dataFrom(std::string_view text) {
  std::string bytes;
  unsigned group = 0;
  int digits = 0;
  int padding = 0;
  for (const char c : text) {
    if (isBlank(c)) continue;
    const int digit = base64Digit(c);
    const bool isPadding = c == '=';
    if ((digit < 0 && !isPadding) || (padding > 0 && !isPadding)) return std::nullopt;
    padding += isPadding ? 1 : 0;
    group = group << 6 | static_cast<unsigned>(isPadding ? 0 : digit);
    if (++digits < 4) continue;

    if (padding > 2) return std::nullopt;
    for (int at = 0; at < 3 - padding; ++at) {
      bytes += static_cast<char>(group >> (16 - 8 * at) & 0xFF);
    }
    digits = 0;
    group = 0;
  }
  if (digits != 0) return std::nullopt;
  return Data{std::move(bytes)};
}

enum class Tag { plist, array, dict, key, string, integer, real, date, data, yes, no };

std::optional<Tag> tagNamed(std::string_view name) {
  constexpr std::pair<std::string_view, Tag> kTags[] = {
      {"plist", Tag::plist},   {"array", Tag::array},     {"dict", Tag::dict}, {"key", Tag::key},
      {"string", Tag::string}, {"integer", Tag::integer}, {"real", Tag::real}, {"date", Tag::date},
      {"data", Tag::data},     {"true", Tag::yes},        {"false", Tag::no},
  };
  for (const auto& [known, tag] : kTags) {
    if (known == name) return tag;
  }
  return std::nullopt;
}

std::optional<Value> valueFrom(Tag tag, std::string text) {
  switch (tag) {
    case Tag::string:
      return text;
    case Tag::integer:
      return integerFrom(text);
    case Tag::real:
      return realFrom(text);
    case Tag::date:
      return dateFrom(text);
    case Tag::data:
      return dataFrom(text);
    case Tag::yes:
    case Tag::no:
      if (!text.empty()) return std::nullopt;
      return Number::boolean(tag == Tag::yes);
    case Tag::plist:
    case Tag::array:
    case Tag::dict:
    case Tag::key:
      break;
  }
  return std::nullopt;
}

// Builds a value from the events of the XML parser. The first thing that is wrong stops it.
class XmlReader {
 public:
  std::optional<Value> read(std::string_view document) {
    if (parser_ == nullptr) return std::nullopt;
    mostElements_ = std::max(kMostElements, document.size() / kShortestElement);
    XML_SetUserData(parser_.get(), this);
    XML_SetElementHandler(
        parser_.get(), [](void* self, const char* name, const char**) { of(self).start(name); },
        [](void* self, const char*) { of(self).end(); });
    XML_SetCharacterDataHandler(parser_.get(), [](void* self, const char* text, int length) {
      of(self).take({text, static_cast<std::size_t>(length)});
    });
    // Declarations of a document's own can make much out of little, and an entity that is not
    // declared would be left out without a word.
    XML_SetStartDoctypeDeclHandler(
        parser_.get(), [](void* self, const char*, const char*, const char*, int hasDeclarations) {
          if (hasDeclarations != 0) of(self).fail("declarations of the document's own");
        });
    XML_SetSkippedEntityHandler(
        parser_.get(), [](void* self, const char*, int) { of(self).fail("an unknown entity"); });

    const XML_Status status =
        XML_Parse(parser_.get(), document.data(), static_cast<int>(document.size()), XML_TRUE);
    if (status != XML_STATUS_OK && !hasFailed_) {
      fail(XML_ErrorString(XML_GetErrorCode(parser_.get())));
    }
    return hasFailed_ ? std::nullopt : std::move(root_);
  }

  // What stopped it, and where.
  const std::string& problem() const { return problem_; }

 private:
  struct Container {
    bool isDictionary;
    Array array;
    std::vector<Dictionary::Entry> entries;
    std::optional<std::string> key;
  };

  static XmlReader& of(void* self) { return *static_cast<XmlReader*>(self); }

  void fail(std::string_view problem) {
    hasFailed_ = true;
    problem_ = problem;
    problem_ += " in line " + std::to_string(XML_GetCurrentLineNumber(parser_.get()));
    XML_StopParser(parser_.get(), XML_FALSE);
  }

  // The parser may still deliver an event after it was stopped, hence the first test.
  void start(std::string_view name) {
    if (hasFailed_) return;
    const std::optional<Tag> tag = tagNamed(name);
    if (!tag) return fail("an unknown element");
    if (leaf_ || !isAllowedHere(*tag)) return fail("an element in a wrong place");
    if (++elements_ > mostElements_) return fail("too many elements");
    if (*tag == Tag::plist) {
      isInDocument_ = true;
    } else if (*tag == Tag::array || *tag == Tag::dict) {
      if (open_.size() == kDeepestLevel) return fail("too many levels");
      open_.push_back(Container{*tag == Tag::dict, {}, {}, {}});
      if (*tag == Tag::dict) open_.back().entries.reserve(kOrdinaryEntries);
    } else {
      leaf_ = tag;
      text_.clear();
    }
  }

  bool isAllowedHere(Tag tag) const {
    if (open_.empty()) {
      if (tag == Tag::plist) return !isInDocument_;
      return tag != Tag::key && !root_;
    }
    if (tag == Tag::plist) return false;
    const Container& container = open_.back();
    if (!container.isDictionary) return tag != Tag::key;
    return container.key.has_value() != (tag == Tag::key);
  }

  void take(std::string_view text) {
    if (hasFailed_) return;
    if (leaf_) {
      text_ += text;
      return;
    }
    skipBlanks(text);
    if (!text.empty()) fail("text in a wrong place");
  }

  void end() {
    if (hasFailed_) return;
    if (leaf_) {
      endLeaf(*std::exchange(leaf_, std::nullopt));
    } else if (!open_.empty()) {
      endContainer();
    } else if (!root_) {
      fail("a document without content");
    }
  }

  void endLeaf(Tag tag) {
    if (tag == Tag::key) {
      open_.back().key = std::move(text_);
      return;
    }
    std::optional<Value> value = valueFrom(tag, std::move(text_));
    if (!value) return fail("a malformed value");
    add(*std::move(value));
  }

  void endContainer() {
    Container container = std::move(open_.back());
    open_.pop_back();
    if (container.key) return fail("a key without a value");
    if (container.isDictionary) {
      add(Dictionary::fromEntries(std::move(container.entries), Dictionary::Repeated::lastCounts));
    } else {
      add(std::move(container.array));
    }
  }

  void add(Value value) {
    if (open_.empty()) {
      root_ = std::move(value);
      return;
    }
    Container& container = open_.back();
    if (container.isDictionary) {
      container.entries.emplace_back(*std::exchange(container.key, std::nullopt), std::move(value));
    } else {
      container.array.push_back(std::move(value));
    }
  }

  std::unique_ptr<std::remove_pointer_t<XML_Parser>, decltype(&XML_ParserFree)> parser_{
      XML_ParserCreate(nullptr), &XML_ParserFree};
  bool hasFailed_ = false;
  std::string problem_;
  bool isInDocument_ = false;
  std::size_t elements_ = 0;
  std::size_t mostElements_ = 0;
  std::vector<Container> open_;
  std::optional<Tag> leaf_;
  std::string text_;
  std::optional<Value> root_;
};

}  // namespace

std::optional<Value> read(std::string_view bytes, std::string* problem) {
  std::string found;
  std::optional<Value> root;
  if (bytes.size() > kLargestDocument) {
    found = "more than 256 MB";
  } else if (isBinary(bytes)) {
    root = readBinary(bytes, kDeepestLevel);
    found = "a damaged binary form";
  } else {
    XmlReader reader;
    root = reader.read(bytes);
    found = reader.problem();
  }
  if (!root && problem != nullptr) *problem = std::move(found);
  return root;
}

}  // namespace zln::property_list
