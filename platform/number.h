#pragma once

#include <cstdint>
#include <string>
#include <variant>

namespace zln {

// A number that remembers how it was made, because the kind decides its text in files and on the
// wire. A boolean is a number to every reader.
class Number {
 public:
  enum class Kind { boolean, int32, int64, float32, float64 };

  static Number boolean(bool value) { return Number(value); }
  static Number int32(std::int32_t value) { return Number(value); }
  static Number int64(std::int64_t value) { return Number(value); }
  static Number float32(float value) { return Number(value); }
  static Number float64(double value) { return Number(value); }

  Kind kind() const { return static_cast<Kind>(value_.index()); }
  bool isBoolean() const { return kind() == Kind::boolean; }
  bool isReal() const { return kind() == Kind::float32 || kind() == Kind::float64; }

  // Non-zero is true, NaN included.
  bool boolValue() const;
  // An integer's low 32 bits; a real is cut toward zero and stops at the ends, NaN is 0.
  std::int32_t intValue() const;
  // As intValue, with 64 bits.
  std::int64_t longValue() const;
  // The nearest value; a double beyond the range of float becomes an infinity.
  float floatValue() const;
  double doubleValue() const;

  // Decimal integers, booleans as 1 and 0, reals with as many digits as log lines show.
  std::string description() const;

  // The same kind and the same value.
  friend bool operator==(const Number&, const Number&) = default;

 private:
  using Storage = std::variant<bool, std::int32_t, std::int64_t, float, double>;

  explicit Number(Storage value) : value_(value) {}

  Storage value_;
};

}  // namespace zln
