#pragma once

#include <cstdint>
#include <random>
#include <vector>

namespace zln {

// Chance that a seed decides.
class Dice {
 public:
  Dice(std::uint64_t seed, std::uint64_t what) : random_(seed * 0x9e3779b97f4a7c15u + what) {}

  int from(int least, int most) {
    const auto span = static_cast<std::uint64_t>(most - least) + 1;
    return least + static_cast<int>(random_() % span);
  }
  bool chance(int percent) { return from(1, 100) <= percent; }
  template <typename Thing>
  const Thing& oneOf(const std::vector<Thing>& things) {
    return things[static_cast<std::size_t>(from(0, static_cast<int>(things.size()) - 1))];
  }

 private:
  std::mt19937_64 random_;
};

}  // namespace zln
