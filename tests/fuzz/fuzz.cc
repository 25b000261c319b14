#include "tests/fuzz/fuzz.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>

namespace zln::fuzz {

void require(bool holds, std::string_view what, std::string_view detail) {
  if (holds) return;
  std::cerr << "\nDoes not hold: " << what << "\n" << detail << "\n";
  std::abort();
}

std::uint8_t Input::takeByte() {
  if (rest_.empty()) return 0;
  const auto byte = static_cast<std::uint8_t>(rest_.front());
  rest_.remove_prefix(1);
  return byte;
}

std::uint64_t Input::takeWord() {
  std::uint64_t word = 0;
  for (int shift = 0; shift < 64; shift += 8) word |= std::uint64_t{takeByte()} << shift;
  return word;
}

std::string_view Input::takeUpTo(char end) {
  const std::string_view taken = rest_.substr(0, rest_.find(end));
  rest_.remove_prefix(std::min(taken.size() + 1, rest_.size()));
  return taken;
}

}  // namespace zln::fuzz
