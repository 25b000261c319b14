#include "platform/number.h"

#include <cmath>
#include <limits>
#include <type_traits>

#include "platform/number_text.h"

namespace zln {
namespace {

// As many digits as log lines show.
constexpr int kFloat32Digits = 7;
constexpr int kFloat64Digits = 16;

// Cut toward zero and held within the range of `Integer`. A plain conversion of a real that does
// not fit is undefined.
template <typename Integer>
Integer integerFromReal(double real) {
  using Limits = std::numeric_limits<Integer>;
  // The power of two just above the range; the range itself has no exact end in double.
  const double end = -static_cast<double>(Limits::min());
  if (std::isnan(real)) return 0;
  if (real >= end) return Limits::max();
  if (real <= -end) return Limits::min();
  return static_cast<Integer>(real);
}

template <typename Integer, typename T>
Integer integerFrom(T value) {
  if constexpr (std::is_floating_point_v<T>) {
    return integerFromReal<Integer>(static_cast<double>(value));
  } else {
    return static_cast<Integer>(value);
  }
}

void appendReal(std::string& text, double real, int digits) {
  if (std::isnan(real)) {
    text += "nan";  // A not-a-number has a sign bit, which means nothing.
  } else {
    appendNumber(text, real, std::chars_format::general, digits);
  }
}

}  // namespace

bool Number::boolValue() const {
  return std::visit([](auto value) { return value != decltype(value){}; }, value_);
}

std::int32_t Number::intValue() const {
  return std::visit([](auto value) { return integerFrom<std::int32_t>(value); }, value_);
}

std::int64_t Number::longValue() const {
  return std::visit([](auto value) { return integerFrom<std::int64_t>(value); }, value_);
}

float Number::floatValue() const {
  return std::visit([](auto value) { return static_cast<float>(value); }, value_);
}

double Number::doubleValue() const {
  return std::visit([](auto value) { return static_cast<double>(value); }, value_);
}

std::string Number::description() const {
  std::string text;
  switch (kind()) {
    case Kind::float32:
      appendReal(text, doubleValue(), kFloat32Digits);
      break;
    case Kind::float64:
      appendReal(text, doubleValue(), kFloat64Digits);
      break;
    case Kind::boolean:
    case Kind::int32:
    case Kind::int64:
      appendNumber(text, longValue());
      break;
  }
  return text;
}

}  // namespace zln
