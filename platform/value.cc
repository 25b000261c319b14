#include "platform/value.h"

#include <algorithm>
#include <stdexcept>

#include "platform/number_text.h"
#include "platform/utf8.h"

namespace zln {
namespace {

constexpr std::size_t kBlanksPerLevel = 4;
// Deeper levels are not indented further: input decides the depth, and every line would pay for it.
constexpr std::size_t kDeepestIndent = 64;

constexpr char kLowerHex[] = "0123456789abcdef";

// Data of at most this length is shown whole.
constexpr std::size_t kWholeDataLength = 24;
constexpr std::size_t kShownHead = 16;
constexpr std::size_t kShownTail = 8;
constexpr std::size_t kShownGroup = 4;

void appendHex(std::string& out, std::string_view bytes) {
  for (const char byte : bytes) {
    out += kLowerHex[static_cast<unsigned char>(byte) >> 4];
    out += kLowerHex[static_cast<unsigned char>(byte) & 0xF];
  }
}

void appendHexGroups(std::string& out, std::string_view bytes) {
  for (; !bytes.empty(); bytes.remove_prefix(kShownGroup)) {
    appendHex(out, bytes.substr(0, kShownGroup));
    out += ' ';
  }
}

void appendIndent(std::string& out, std::size_t level) {
  out.append(kBlanksPerLevel * std::min(level, kDeepestIndent), ' ');
}

bool isBareCharacter(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
}

void appendCodeUnit(std::string& out, char32_t unit) {
  out += "\\U";
  for (int shift = 12; shift >= 0; shift -= 4) out += kLowerHex[unit >> shift & 0xF];
}

void appendEscaped(std::string& out, char32_t codePoint) {
  switch (codePoint) {
    case '"':
      out += "\\\"";
      return;
    case '\\':
      out += "\\\\";
      return;
    case '\n':
      out += "\\n";
      return;
    case '\r':
      out += "\\r";
      return;
    case '\t':
      out += "\\t";
      return;
    default:
      break;
  }
  if (codePoint >= 0x20 && codePoint < 0x7F) {
    out += static_cast<char>(codePoint);
  } else if (codePoint < 0x10000) {
    appendCodeUnit(out, codePoint);
  } else {
    appendCodeUnit(out, 0xD800 + ((codePoint - 0x10000) >> 10));
    appendCodeUnit(out, 0xDC00 + ((codePoint - 0x10000) & 0x3FF));
  }
}

// A text as it stands inside a container: bare where nothing in it needs care, else quoted.
void appendQuoted(std::string& out, std::string_view text) {
  if (!text.empty() && std::all_of(text.begin(), text.end(), isBareCharacter)) {
    out += text;
    return;
  }
  out += '"';
  while (!text.empty()) {
    const Utf8Character character = firstCharacter(text);
    appendEscaped(out, character.codePoint);
    text.remove_prefix(character.length);
  }
  out += '"';
}

void appendArray(std::string& out, const Array& array, std::size_t level);
void appendDictionary(std::string& out, const Dictionary& dictionary, std::size_t level);

// `level` is that of a container that stands here.
void appendInside(std::string& out, const Value& value, std::size_t level) {
  if (const Array* array = value.array()) {
    appendIndent(out, level);
    appendArray(out, *array, level);
  } else if (const Dictionary* dictionary = value.dictionary()) {
    appendIndent(out, level);
    appendDictionary(out, *dictionary, level);
  } else if (const Data* data = value.data()) {
    out += data->description();
  } else if (const std::string* text = value.string()) {
    appendQuoted(out, *text);
  } else {
    appendQuoted(out, value.description());
  }
}

void appendArray(std::string& out, const Array& array, std::size_t level) {
  out += "(\n";
  for (const Value& element : array) {
    appendIndent(out, level + 1);
    appendInside(out, element, level + 1);
    out += &element == &array.back() ? "\n" : ",\n";
  }
  appendIndent(out, level);
  out += ')';
}

void appendDictionary(std::string& out, const Dictionary& dictionary, std::size_t level) {
  out += "{\n";
  for (const auto* entry : dictionary.sortedEntries()) {
    appendIndent(out, level + 1);
    appendQuoted(out, entry->first);
    out += " = ";
    appendInside(out, entry->second, level + 1);
    out += ";\n";
  }
  appendIndent(out, level);
  out += '}';
}

using Entry = Dictionary::Entry;

std::vector<const Entry*> entriesSortedBy(bool (*less)(const Entry*, const Entry*),
                                          const std::vector<Entry>& entries) {
  std::vector<const Entry*> sorted;
  sorted.reserve(entries.size());
  for (const Entry& entry : entries) sorted.push_back(&entry);
  std::sort(sorted.begin(), sorted.end(), less);
  return sorted;
}

// By key; equal keys in the order in which they came.
bool standsBefore(const Entry* a, const Entry* b) {
  const int difference = a->first.compare(b->first);
  return difference != 0 ? difference < 0 : a < b;
}

}  // namespace

std::string Data::description() const {
  std::string text = "{length = ";
  appendNumber(text, bytes.size());
  text += ", bytes = 0x";
  if (bytes.size() <= kWholeDataLength) {
    appendHex(text, bytes);
    return text += '}';
  }
  const std::string_view all = bytes;
  appendHexGroups(text, all.substr(0, kShownHead));
  text += "... ";
  appendHexGroups(text, all.substr(all.size() - kShownTail));
  return text += '}';
}

Dictionary::Dictionary() = default;
Dictionary::Dictionary(const Dictionary&) = default;
Dictionary::Dictionary(Dictionary&&) noexcept = default;
Dictionary& Dictionary::operator=(const Dictionary&) = default;
Dictionary& Dictionary::operator=(Dictionary&&) noexcept = default;
Dictionary::~Dictionary() = default;

Dictionary::Dictionary(std::initializer_list<Entry> entries) {
  entries_.reserve(entries.size());
  for (const auto& [key, value] : entries) set(key, value);
}

Dictionary Dictionary::fromEntries(std::vector<Entry> entries, Repeated repeated) {
  const std::vector<const Entry*> sorted = entriesSortedBy(&standsBefore, entries);
  const auto placeOf = [&](std::size_t at) {
    return static_cast<std::size_t>(sorted[at] - entries.data());
  };

  // The first entry of a key keeps its place, whichever value counts.
  std::vector<bool> isSuperfluous(entries.size());
  std::size_t first = 0;
  for (std::size_t at = 1; at < sorted.size(); ++at) {
    if (sorted[at]->first != sorted[first]->first) {
      first = at;
      continue;
    }
    isSuperfluous[placeOf(at)] = true;
    if (repeated == Repeated::lastCounts) {
      entries[placeOf(first)].second = std::move(entries[placeOf(at)].second);
    }
  }

  Dictionary dictionary;
  dictionary.entries_.reserve(entries.size());
  for (std::size_t at = 0; at < entries.size(); ++at) {
    if (!isSuperfluous[at]) dictionary.entries_.push_back(std::move(entries[at]));
  }
  return dictionary;
}

const Value* Dictionary::find(std::string_view key) const {
  const auto found = std::find_if(entries_.begin(), entries_.end(),
                                  [key](const Entry& entry) { return entry.first == key; });
  return found == entries_.end() ? nullptr : &found->second;
}

const std::string* Dictionary::findString(std::string_view key) const {
  const Value* value = find(key);
  return value == nullptr ? nullptr : value->string();
}

const Number* Dictionary::findNumber(std::string_view key) const {
  const Value* value = find(key);
  return value == nullptr ? nullptr : value->number();
}

void Dictionary::set(std::string_view key, Value value) {
  const auto found = std::find_if(entries_.begin(), entries_.end(),
                                  [key](const Entry& entry) { return entry.first == key; });
  if (found == entries_.end()) {
    entries_.emplace_back(std::string(key), std::move(value));
  } else {
    found->second = std::move(value);
  }
}

void Dictionary::setIfPresent(std::string_view key, std::optional<std::string> value) {
  if (value.has_value()) set(key, *std::move(value));
}

void Dictionary::require(std::string_view key, std::optional<std::string> value) {
  if (!value.has_value()) throw std::invalid_argument("absent value for " + std::string(key));
  set(key, *std::move(value));
}

void Dictionary::remove(std::string_view key) {
  std::erase_if(entries_, [key](const Entry& entry) { return entry.first == key; });
}

void Dictionary::merge(const Dictionary& other) {
  if (&other == this) return;
  for (const auto& [key, value] : other.entries_) set(key, value);
}

std::size_t Dictionary::size() const { return entries_.size(); }

std::vector<const Dictionary::Entry*> Dictionary::sortedEntries() const {
  return entriesSortedBy(
      [](const Entry* a, const Entry* b) { return lessByCodeUnit(a->first, b->first); }, entries_);
}

std::string Dictionary::description() const {
  std::string text;
  appendDictionary(text, *this, 0);
  return text;
}

bool operator==(const Dictionary& a, const Dictionary& b) {
  if (a.size() != b.size()) return false;
  return std::all_of(a.entries_.begin(), a.entries_.end(), [&b](const Dictionary::Entry& entry) {
    const Value* other = b.find(entry.first);
    return other != nullptr && *other == entry.second;
  });
}

Value::Value(const char* text) : value_(std::string(text)) {}
Value::Value(std::string text) : value_(std::move(text)) {}
Value::Value(Data data) : value_(std::move(data)) {}
Value::Value(Array array) : value_(std::move(array)) {}
Value::Value(Dictionary dictionary) : value_(std::move(dictionary)) {}
Value::Value(const Value&) = default;
Value::Value(Value&&) noexcept = default;
Value& Value::operator=(const Value&) = default;
Value& Value::operator=(Value&&) noexcept = default;
Value::~Value() = default;

bool operator==(const Value& a, const Value& b) { return a.value_ == b.value_; }

std::string Value::description() const {
  if (const std::string* text = string()) return *text;
  if (const Number* found = number()) return found->description();
  if (const Date* found = date()) return found->description();
  if (const Data* found = data()) return found->description();
  if (const Array* found = array()) return zln::description(*found);
  if (const Dictionary* found = dictionary()) return found->description();
  return "<null>";
}

const char* Value::className() const {
  if (string() != nullptr) return "__NSCFString";
  if (const Number* found = number()) return found->isBoolean() ? "__NSCFBoolean" : "__NSCFNumber";
  if (date() != nullptr) return "__NSDate";
  if (data() != nullptr) return "NSConcreteData";
  if (array() != nullptr) return "__NSArrayM";
  if (dictionary() != nullptr) return "__NSDictionaryM";
  return "NSNull";
}

std::string description(const Array& array) {
  std::string text;
  appendArray(text, array, 0);
  return text;
}

}  // namespace zln
