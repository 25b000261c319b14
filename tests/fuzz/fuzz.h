#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string_view>

// What libFuzzer and replay_main.cc call with each input. Every target has one; nothing outlives a
// call.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace zln::fuzz {

// Ends the process when something that must hold does not: says what, and shows the detail.
inline void require(bool holds, std::string_view what, std::string_view detail = {}) {
  if (holds) return;
  std::cerr << "\nDoes not hold: " << what << "\n" << detail << "\n";
  std::abort();
}

// Takes an input apart from its front. What has been used up is zeros and empty texts.
class Input {
 public:
  explicit Input(std::string_view bytes) : rest_(bytes) {}
  Input(const std::uint8_t* data, std::size_t size)
      : rest_(reinterpret_cast<const char*>(data), size) {}

  bool isEmpty() const { return rest_.empty(); }

  std::uint8_t takeByte() {
    if (rest_.empty()) return 0;
    const auto byte = static_cast<std::uint8_t>(rest_.front());
    rest_.remove_prefix(1);
    return byte;
  }

  // The next eight bytes, the lowest first.
  std::uint64_t takeWord() {
    std::uint64_t word = 0;
    for (int shift = 0; shift < 64; shift += 8) word |= std::uint64_t{takeByte()} << shift;
    return word;
  }

  // What stands before `end`, which goes too; all there is when it does not come.
  std::string_view takeUpTo(char end) {
    const std::string_view taken = rest_.substr(0, rest_.find(end));
    rest_.remove_prefix(std::min(taken.size() + 1, rest_.size()));
    return taken;
  }

 private:
  std::string_view rest_;
};

}  // namespace zln::fuzz
