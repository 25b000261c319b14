#pragma once

#include <chrono>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace zln {

// For a fault, in seconds: until it is removed.
inline constexpr int kForever = 600;

// How the server of a life treats reports: of a hundred, so many in each of these ways.
struct Weather {
  std::string name;
  int taken = 100;
  int takenAndCut = 0;  // The server takes the report, its reply does not arrive.
  int refused = 0;      // With all that does not say whether the report was taken, or says "later".
  int rejected = 0;     // For good.
  int cut = 0;          // Not taken, and no reply.
  int stalled = 0;      // Never answered; every second one is taken.
  std::chrono::milliseconds longestDelay{0};
  nlohmann::json fault = nullptr;          // Of the server, for all; null: none.
  std::chrono::milliseconds faultEnds{0};  // 0: never.
  std::chrono::milliseconds cutOff{0};     // When all connections break for good; 0: never.
  bool dead = false;                       // Nobody listens.
  bool gated = false;  // All reports wait until the game has made its calls, and are refused.
};

// How a life ends.
enum class Ending {
  kKilledAfter,   // At a moment.
  kKilledAtLine,  // At a line of the library's log, or at that moment when the line does not come.
  kLeaves,        // The game ends by its last command.
  kDrained,       // As soon as nothing is owed any more.
};

// One process of the game, and the server that it meets.
struct LifePlan {
  std::string name;
  std::uint64_t seed = 0;
  std::vector<std::string> commands;
  int calls = 0;
  Ending ending = Ending::kLeaves;
  std::chrono::milliseconds killedAfter{0};
  Weather weather;
  bool handsOutSettings = true;
  nlohmann::json settings;

  // A line that says all of it.
  std::string description() const;
};

// A life of chance. With `flood` it makes more calls than the library keeps reports. All kills come
// `pace` times as late, for a game that is so much slower than others.
LifePlan drawLife(std::uint64_t seed, int installation, int life, bool flood, int pace);
// The last life of an installation: good settings, a good server, nothing new.
LifePlan lastLife(std::uint64_t seed, int installation, int life);

}  // namespace zln
