#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

// What libFuzzer and replay_main.cc call with each input. Every target has one; nothing outlives a
// call.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace zln::fuzz {

// Ends the process when something that must hold does not: says what, and shows the detail.
void require(bool holds, std::string_view what, std::string_view detail = {});

// Takes an input apart from its front. What has been used up is zeros and empty texts.
class Input {
 public:
  explicit Input(std::string_view bytes) : rest_(bytes) {}
  Input(const std::uint8_t* data, std::size_t size)
      : rest_(reinterpret_cast<const char*>(data), size) {}

  bool isEmpty() const { return rest_.empty(); }

  std::uint8_t takeByte();
  // The next eight bytes, the lowest first.
  std::uint64_t takeWord();
  // What stands before `end`, which goes too; all there is when it does not come.
  std::string_view takeUpTo(char end);

 private:
  std::string_view rest_;
};

}  // namespace zln::fuzz
