#pragma once

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/faults/answering_server.h"
#include "tests/faults/fault_plan.h"
#include "tests/faults/shared_plan.h"
#include "tests/faults/stored_state.h"
#include "tests/support/child_process.h"
#include "tests/support/connect_proxy.h"
#include "tests/support/temporary_folder.h"

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
  // What was wrong; empty when all was right.
  std::vector<std::string> wrongs;
  // How many calls of each kind the lives with the fault have made.
  std::array<std::uint32_t, kCallKinds> calls{};
  // Reports that a kill has cost while they were taken up, where nothing could keep them.
  int lostInTakingUp = 0;
  // The end of the game's error output.
  std::string log;
};

// Plays a game through two lives with a fault and a last one without, on a fresh installation, and
// holds what is stored and sent against what must be.
//
// The first life is an installation's first: settings, delivery, a refusal, failures up to the
// holding, the way to the background and back, reports that nobody answers. The second takes these
// up again. The game does one step after the other, each when the one before has had its effect.
class Playthrough {
 public:
  // `program` is the game, `preload` what LD_PRELOAD is to name, `level` its log level.
  Playthrough(AnsweringServer& server, const Trial& trial, std::string program, std::string preload,
              int level);

  Outcome play();

 private:
  static constexpr int kLives = 3;

  // The fault has ended the game, as it should.
  struct Killed {};

  void playLife(int life, const std::function<void()>& steps);
  void firstLife();
  void quietLife();
  void secondLife();
  void lastLife();
  void start();
  void leaveForBackground();

  void tell(const std::string& command);
  // An attempt's network names it; it counts as acknowledged when the game has answered.
  void tellOfAttempt(const std::string& network, const std::string& command);
  void await(const std::string& what, const std::function<bool()>& isTrue);
  void awaitSent(const std::string& network, int times);
  void awaitStored();
  void rest();
  bool hasConnection() const;
  bool isAsleep() const;
  bool hasEnded() const;
  void throwIfEnded() const;
  bool isKilledByPlan() const;
  void expectKill();

  void checkWhole();
  void checkStored(int life);
  void checkAcknowledged(const StoredState& state);
  void checkAllSent();
  void checkSent(int life);
  void checkFirstSessions();
  void checkLastState();
  void checkStrangers(const StoredState& state);
  bool mayLoseWhatIsNotSent() const;
  std::set<std::string> sentAfter(int life) const;
  void wrong(const std::string& what);

  AnsweringServer& server_;
  const Trial trial_;
  const std::string program_;
  const std::string preload_;
  const int level_;
  TemporaryFolder folder_;
  const std::string home_ = folder_.path() + "/home";
  SharedPlan plan_;
  ConnectProxy proxy_;
  std::unique_ptr<ChildProcess> game_;
  int life_ = 0;
  pid_t process_ = -1;
  Outcome outcome_;

  // What the ends of the lives have shown.
  std::vector<std::string> acknowledged_;
  std::map<int, std::set<std::string>> storedAtEnd_;
  bool hadReports_ = false;
  std::string user_;
  int killedLife_ = 0;
  bool wroteSettingsInLastLife_ = false;
  int livesWithoutFirstSession_ = 0;
};

}  // namespace zln::faults
