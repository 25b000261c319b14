#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/process_state.h"
#include "tests/season/machine.h"
#include "tests/season/model.h"

namespace zln::season {

// The life of one installation, played at random on a machine of fakes: launches and kills, breaks
// and long stays in the background, servers and disks that fail for a while, a clock that jumps.
// After every step it compares what the library has done with the model. Everything follows from
// the seed.
class Season : private MachineWatcher {
 public:
  Season(std::uint64_t seed, std::uint64_t sessions);
  ~Season() override;

  // Plays all sessions, or until something is wrong. `ended` is told, each time the process has
  // ended and nothing of it is left, how many sessions there have been.
  bool play(const std::function<void(std::uint64_t sessions)>& ended);

  // What was wrong, with the steps that led to it; empty when nothing was.
  std::string failure() const;
  std::string summary() const;

 private:
  enum class Step {
    launch,
    mainTask,
    poolTask,
    answer,
    adAttempt,
    passTime,
    resignActive,
    becomeActive,
    enterBackground,
    enterForeground,
    terminate,
    stopReporting,
    describe,
    clearCache,
    expireTask,
    changeServer,
    changeFaults,
    setClock,
    storm,
    armKill,
    kill,
    exit,
    loseStorage,
    damageFiles,
  };
  enum class Server { good, mixed, failing, rejecting, nonsense, unreachable, silent };
  enum class Life { active, inactive, background, ended };

  struct Record {
    std::uint64_t number = 0;
    Step step = Step::launch;
    double detail = 0;
    double time = 0;
    bool isNested = false;
  };

  // The process.
  void beginProcess();
  void endProcess(bool inACall);
  void playProcess();
  void playBetweenProcesses();

  // One step: the model's part, the library's, the comparison.
  void play(Step step);
  void perform(Step step);
  Step chooseStep();
  Step chooseLifecycle();
  Step chooseNested();

  void launch();
  void runMainTask();
  void runPoolTask();
  void answer();
  void attemptAd();
  void passTime();
  void expireTask();
  void changeServer();
  void changeFaults();
  void setClock();
  void storm();
  void describe();
  void damageFiles();

  std::pair<HttpReply, Model::Outcome> reportReply();
  std::pair<HttpReply, std::optional<Model::SettingsReply>> settingsReply();

  // After every step.
  void compare();
  void compareCount(const char* what, std::uint64_t found, std::uint64_t expected);
  void compareWithManager();
  void compareSession();

  // What the library does.
  void reportFileWritten(std::string_view text, bool succeeded) override;
  void settingsFileWritten(std::string_view text, bool succeeded) override;
  void requested(std::uint64_t number, const HttpRequest& request) override;
  void defaultsStored(const std::map<std::string, Value>& values) override;
  void slept() override;
  void askedRemaining(double seconds) override;
  void waitsForMain() override;

  const std::vector<Key>& keysIn(std::string_view text);
  void checkRepeats(const std::vector<Key>& keys);
  void checkBody(const HttpRequest& request, const Report& report);

  void record(Step step);
  void detail(double value) { records_[(steps_ - 1) % records_.size()].detail = value; }
  bool failed() const { return !model_.problem().empty(); }

  std::uint64_t below(std::uint64_t count) { return random_() % count; }
  bool chance(std::uint64_t perMille) { return below(1000) < perMille; }
  double between(double from, double to);

  const std::uint64_t seed_;
  const std::uint64_t sessions_;
  std::mt19937_64 random_;
  Machine machine_;
  Model model_;
  ProcessState* state_ = nullptr;

  Server server_ = Server::good;
  Life life_ = Life::active;
  int depth_ = 0;
  std::map<std::uint64_t, Model::OperationPtr> requests_;
  // How often the file that this process has found holds a report; and which is tried again now.
  std::map<Key, int> found_;
  Key retried_ = 0;

  // The report file as it was last looked through.
  std::string seenText_;
  std::vector<Key> seenKeys_;
  std::vector<std::size_t> seenEnds_;

  std::uint64_t steps_ = 0;
  std::array<Record, 50> records_;
  std::uint64_t processes_ = 0;
  std::uint64_t kills_ = 0;
  std::uint64_t killsInACall_ = 0;
  std::uint64_t saves_ = 0;
  std::uint64_t failedSaves_ = 0;
  std::uint64_t savedReports_ = 0;
  std::uint64_t posts_ = 0;
  std::uint64_t mostAtOnce_ = 0;
  std::uint64_t longestQueue_ = 0;
  std::uint64_t storms_ = 0;
};

}  // namespace zln::season
