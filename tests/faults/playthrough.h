#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/faults/fault_plan.h"
#include "tests/support/https_server.h"

namespace zln::faults {

inline constexpr std::size_t kCallKinds = static_cast<std::size_t>(Call::kCount);

// What one playthrough is put to.
struct Trial {
  Disk disk = Disk::kOrdinary;
  Fault fault = Fault::kNone;
  Call call = Call::kNone;
  std::uint32_t ordinal = 0;
  std::uint8_t part = 128;
  // Whether the first life waits until what it has written is flushed.
  bool isQuiet = false;
};

struct Outcome {
  bool isStruck = false;
  // What is not as it should be; empty when all is right.
  std::vector<std::string> wrongs;
  // How many calls of each kind the lives with the fault have made.
  std::array<std::uint32_t, kCallKinds> calls{};
  // Reports that a kill has cost while they were taken up, where nothing could keep them.
  int lostInTakingUp = 0;
  // The end of the game's error output.
  std::string log;
};

// Plays a game through two lives with a fault and a last one without, on a fresh installation, and
// holds what is stored and sent against what must be. `level` is the game's log level.
//
// The first life is an installation's first: settings, delivery, a refusal, failures up to the
// holding, the way to the background and back, reports that nobody answers. The second takes these
// up again. The game does one step after the other, each when the one before has had its effect.
Outcome playThrough(HttpsServer& server, const Trial& trial, int level);

}  // namespace zln::faults
