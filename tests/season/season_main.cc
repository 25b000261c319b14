// Plays a season: many sessions of one installation, with all that can go wrong, in a short time.

#include <malloc.h>

#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <optional>
#include <string>

#include "tests/season/season.h"

namespace {

constexpr char kUsage[] =
    "usage: season [--seed N] [--sessions N]\n"
    "Plays that many sessions and checks after every step; 100000 with seed 1 unless told.\n";

// What a process may grow by between a fifth of a season and its end. A leak of a byte for each
// step would be more.
constexpr double kMostGrowth = 4.0 * 1024 * 1024;

// In a shorter season the queue may be filled for the first time after a fifth of it, which takes
// memory that the allocator then keeps.
constexpr std::uint64_t kLongSeason = 20000;

// Texts of a long queue's size go back to the system when they are freed. By default the allocator
// comes to keep them, in one piece or another, and a growth would mean nothing.
constexpr int kGivenBack = 128 * 1024;

struct Options {
  std::uint64_t seed = 1;
  std::uint64_t sessions = 100000;
};

std::optional<Options> readOptions(int count, char** arguments) {
  Options options;
  for (int index = 1; index < count; index += 2) {
    std::uint64_t* target = nullptr;
    if (std::strcmp(arguments[index], "--seed") == 0) target = &options.seed;
    if (std::strcmp(arguments[index], "--sessions") == 0) target = &options.sessions;
    if (target == nullptr || index + 1 == count) return std::nullopt;
    const char* text = arguments[index + 1];
    const char* end = text + std::strlen(text);
    const auto read = std::from_chars(text, end, *target);
    if (read.ec != std::errc() || read.ptr != end) return std::nullopt;
  }
  return options;
}

struct Memory {
  double resident = 0;
  // As the allocator counts it; 0 where a sanitizer has taken its place.
  double allocated = 0;
};

Memory memoryNow() {
  Memory memory;
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    if (word == "VmRSS:") status >> memory.resident;
  }
  memory.resident *= 1024;
  memory.allocated = static_cast<double>(mallinfo2().uordblks);
  return memory;
}

bool isGrown(const char* what, double before, double after) {
  std::printf("%s: %.2f MB at a fifth, %.2f MB at the end\n", what, before / 1048576,
              after / 1048576);
  return after - before > kMostGrowth;
}

}  // namespace

int main(int count, char** arguments) {
  const std::optional<Options> options = readOptions(count, arguments);
  if (!options) {
    std::fputs(kUsage, stderr);
    return 2;
  }
  std::printf("season: seed %s, %s sessions\n", std::to_string(options->seed).c_str(),
              std::to_string(options->sessions).c_str());
  std::fflush(stdout);
  mallopt(M_MMAP_THRESHOLD, kGivenBack);
  std::optional<Memory> atAFifth;
  const auto begin = std::chrono::steady_clock::now();
  zln::season::Season season(options->seed, options->sessions);
  const bool isRight = season.play([&](std::uint64_t sessions) {
    if (!atAFifth && sessions >= options->sessions / 5) atAFifth = memoryNow();
  });
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
  std::printf("%.1f s\n%s", taken.count(), season.summary().c_str());
  if (!isRight) {
    std::fputs(season.failure().c_str(), stderr);
    return 1;
  }
  const Memory atTheEnd = memoryNow();
  if (!atAFifth || atTheEnd.allocated == 0) return 0;
  bool isTooMuch = isGrown("allocated", atAFifth->allocated, atTheEnd.allocated);
  const bool residentGrows = isGrown("resident", atAFifth->resident, atTheEnd.resident);
  isTooMuch |= residentGrows && options->sessions >= kLongSeason;
  if (isTooMuch) std::fputs("season: the memory grows\n", stderr);
  return isTooMuch ? 1 : 0;
}
