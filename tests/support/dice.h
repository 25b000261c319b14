#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <random>

namespace zln {

// Chance that a seed decides.
class Dice {
 public:
  explicit Dice(std::uint64_t seed) : random_(seed) {}
  // Another one for each of the things that share a seed.
  Dice(std::uint64_t seed, std::uint64_t what) : random_(seed * 0x9e3779b97f4a7c15u + what) {}

  std::uint64_t below(std::uint64_t count) { return random_() % count; }
  int from(int least, int most) {
    return least + static_cast<int>(below(static_cast<std::uint64_t>(most - least) + 1));
  }
  double between(double from, double to) {
    return from + (to - from) * static_cast<double>(below(1u << 20)) / (1u << 20);
  }
  bool percent(int chance) { return from(1, 100) <= chance; }
  bool perMille(std::uint64_t chance) { return below(1000) < chance; }
  template <typename Things>
  const auto& oneOf(const Things& things) {
    return *std::next(std::begin(things), static_cast<std::ptrdiff_t>(below(std::size(things))));
  }
  template <typename Thing>
  Thing oneOf(std::initializer_list<Thing> things) {
    return things.begin()[below(things.size())];
  }

 private:
  std::mt19937_64 random_;
};

}  // namespace zln
