#pragma once

#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "platform/date.h"
#include "platform/number.h"

namespace zln {

class Value;

// The null that a JSON text can hold. A present value, unlike an absent one.
struct Null {
  friend bool operator==(const Null&, const Null&) = default;
};

// Raw bytes.
struct Data {
  std::string bytes;

  // "{length = 3, bytes = 0x615e08}"; long data shows its first 16 and last 8 bytes.
  std::string description() const;

  friend bool operator==(const Data&, const Data&) = default;
};

using Array = std::vector<Value>;

// String keys to values, in the order in which the keys were first set. Meant for the few dozen
// keys of a report or of the settings: it searches linearly.
class Dictionary {
 public:
  using Entry = std::pair<std::string, Value>;

  // Which of the values under a repeated key counts.
  enum class Repeated { firstCounts, lastCounts };

  Dictionary();
  Dictionary(std::initializer_list<Entry> entries);
  // For readers, whose input decides how many keys there are: any number of them is sorted out
  // without searching for each.
  static Dictionary fromEntries(std::vector<Entry> entries, Repeated repeated);
  Dictionary(const Dictionary&);
  Dictionary(Dictionary&&) noexcept;
  Dictionary& operator=(const Dictionary&);
  Dictionary& operator=(Dictionary&&) noexcept;
  ~Dictionary();

  // Null when the key is absent; valid until the dictionary changes.
  const Value* find(std::string_view key) const;
  // The value's string, number or nothing: nothing also when the value is of another kind.
  const std::string* findString(std::string_view key) const;
  const Number* findNumber(std::string_view key) const;

  // Adds the key at the end or replaces its value in place.
  void set(std::string_view key, Value value);
  void setIfPresent(std::string_view key, std::optional<std::string> value);
  // As set. Throws std::invalid_argument when the value is absent.
  void require(std::string_view key, std::optional<std::string> value);
  void remove(std::string_view key);
  // Sets every entry of `other`.
  void merge(const Dictionary& other);

  std::size_t size() const;
  bool empty() const { return size() == 0; }
  const std::vector<Entry>& entries() const { return entries_; }
  // The entries by key, in the order of UTF-16 code units; valid until the dictionary changes.
  std::vector<const Entry*> sortedEntries() const;

  // One entry a line between braces, sorted by key, as log lines show it.
  std::string description() const;

  // The same keys with the same values, in whatever order.
  friend bool operator==(const Dictionary& a, const Dictionary& b);

 private:
  std::vector<Entry> entries_;
};

// Anything that a report, a reply or a stored file can hold.
class Value {
 public:
  Value(const char* text);
  Value(std::string text);
  Value(Number number) : value_(number) {}
  Value(Date date) : value_(date) {}
  Value(Data data);
  Value(Array array);
  Value(Dictionary dictionary);
  Value(Null null) : value_(null) {}
  Value(const Value&);
  Value(Value&&) noexcept;
  Value& operator=(const Value&);
  Value& operator=(Value&&) noexcept;
  ~Value();

  // Each is null when the value is of another kind.
  const std::string* string() const { return std::get_if<std::string>(&value_); }
  const Number* number() const { return std::get_if<Number>(&value_); }
  const Date* date() const { return std::get_if<Date>(&value_); }
  const Data* data() const { return std::get_if<Data>(&value_); }
  const Array* array() const { return std::get_if<Array>(&value_); }
  const Dictionary* dictionary() const { return std::get_if<Dictionary>(&value_); }
  bool isNull() const { return std::holds_alternative<Null>(value_); }

  // The text that a log line shows for the value, and the name of its kind there.
  std::string description() const;
  const char* className() const;

  friend bool operator==(const Value& a, const Value& b);

 private:
  std::variant<std::string, Number, Date, Data, Array, Dictionary, Null> value_;
};

// The text of an array in log lines: one element a line between parentheses.
std::string description(const Array& array);

}  // namespace zln
