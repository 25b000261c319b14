// Plays a game through many lives, with kills and a collector that misbehaves, and keeps a ledger
// of every report: which came once, which came again, which was lost and why.
//
// usage: soak [--seed N] [--lives N] [--seconds N] [--floods N] [--pace N] [--keep FOLDER]
//   --seed      decides what happens; another one each time by default
//   --lives     how many at the least, the drained ones not counted
//   --seconds   begins no further life after so many
//   --floods    of a hundred installations, how many have a life with too many reports
//   --pace      how many times as late as usual the kills come, for a slow build of the game
//   --keep      leaves all files there; otherwise only those of installations with a finding stay

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>

#include "platform/property_list.h"
#include "tests/soak/ledger.h"
#include "tests/soak/life_plan.h"
#include "tests/soak/life_story.h"
#include "tests/soak/receiver.h"
#include "tests/support/child_process.h"
#include "tests/support/collector_process.h"
#include "tests/support/command_line.h"
#include "tests/support/dice.h"
#include "tests/support/installation_files.h"

namespace zln {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kPatience = std::chrono::minutes(3);
constexpr int kExitStatus = 7;
constexpr std::size_t kShownLines = 25;
constexpr int kTurnsUntilNudged = 10;

struct Options {
  std::uint64_t seed = std::random_device()();
  int lives = 40;
  int seconds = 24 * 3600;
  int floods = 30;
  int pace = 1;
  std::string keep;
};

// ---- One life ----

// Plays a life of the game from its launch to its end.
class Life {
 public:
  Life(const LifePlan& plan, InstallationFiles& files, CollectorProcess& collector)
      : plan_(plan),
        files_(files),
        collector_(collector),
        diary_(files.home() + "/diary-" + plan.name) {}

  // What is wrong with the end of the process is added to the story's complaints.
  LifeRecord play() {
    LifeRecord life;
    life.plan = &plan_;
    life.before = files_.read();
    Receiver receiver(plan_, collector_);
    const auto begin = Clock::now();
    launch(receiver);
    follow(receiver);
    end();
    life.seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    for (const std::string& complaint : receiver.close()) complaints_.push_back(complaint);
    life.after = files_.read();
    life.story = readLifeStory(diary_, plan_.name, life.before);
    life.arrivals = receiver.arrivals();
    life.handedOutSettings = receiver.handedOutSettings();
    judgeEnd(life.story);
    return life;
  }

  // The last lines of its diary.
  std::deque<std::string> lastLines() const {
    std::ifstream file(diary_);
    std::deque<std::string> lines;
    for (std::string line; std::getline(file, line);) {
      lines.push_back(line);
      if (lines.size() > kShownLines) lines.pop_front();
    }
    return lines;
  }
  const std::string& diary() const { return diary_; }

 private:
  void launch(const Receiver& receiver) {
    std::map<std::string, std::string> environment = receiver.environment();
    environment["HOME"] = files_.home();
    environment["XDG_DATA_HOME"] = files_.home() + "/data";
    environment["XDG_CONFIG_HOME"] = files_.home() + "/config";
    environment["SOAK_DIARY"] = diary_;
    environment["SOAK_NAME"] = plan_.name;
    for (const char* name : {"ASAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS"}) {
      if (const char* value = std::getenv(name)) environment[name] = value;
    }
    game_ = std::make_unique<ChildProcess>(ZLN_SOAK_GAME, environment, errorFile());
    launched_ = Clock::now();
    for (const std::string& command : plan_.commands) tell(command);
  }

  // A game that has killed itself listens no more.
  void tell(const std::string& command) {
    try {
      game_->send(command);
    } catch (const std::runtime_error&) {
      deaf_ = true;
    }
  }

  // Does what the plan has for the server, and returns when the game is to end.
  void follow(Receiver& receiver) {
    if (plan_.weather.gated) {
      waitUntil([this] {
        return deaf_ || callsDone() == plan_.calls || hasEndedWithin(milliseconds(0));
      });
      receiver.openGate();
      launched_ = Clock::now();
    }
    if (plan_.ending == Ending::kDrained) return drain();
    const Weather& weather = plan_.weather;
    if (weather.faultEnds.count() > 0 && sleepUntil(weather.faultEnds)) receiver.endFault();
    if (weather.cutOff.count() > 0 && sleepUntil(weather.cutOff)) receiver.cutOff();
  }

  // False when the life does not last so long.
  bool sleepUntil(milliseconds moment) {
    if (plan_.ending != Ending::kLeaves && plan_.killedAfter < moment) return false;
    std::this_thread::sleep_until(launched_ + moment);
    return true;
  }

  // Two reports that are delivered at once may each still stand in the other one's save, so the
  // game is made to save until nothing is left.
  void drain() {
    int turn = 0;
    const bool drained = waitUntil([&] {
      if (turn++ % kTurnsUntilNudged == 0) {
        tell("foreground");
        tell("background");
      }
      return files_.owesNothing();
    });
    if (!drained) complaints_.push_back("it does not come to rest with a good server");
  }

  void end() {
    const bool leaves = plan_.ending == Ending::kLeaves;
    if (plan_.ending == Ending::kKilledAfter) {
      std::this_thread::sleep_until(launched_ + plan_.killedAfter);
    } else if (plan_.ending == Ending::kKilledAtLine) {
      hasEndedWithin(plan_.killedAfter);
    } else if (leaves && !hasEndedWithin(kPatience)) {
      complaints_.push_back("it does not end");
    }
    if (!hasEndedWithin(milliseconds(0))) game_->kill();
  }

  bool hasEndedWithin(milliseconds patience) {
    if (status_ == -1) status_ = game_->waitForEnd(patience);
    return status_ != -1;
  }

  void judgeEnd(LifeStory& story) {
    const bool leaves = plan_.ending == Ending::kLeaves;
    if (status_ != -1 && !(WIFSIGNALED(status_) && WTERMSIG(status_) == SIGKILL) &&
        !(leaves && WIFEXITED(status_) && WEXITSTATUS(status_) == kExitStatus)) {
      complaints_.push_back("it ends with the status " + std::to_string(status_));
    }
    const std::string errors = game_->errors();
    if (!errors.empty()) complaints_.push_back("it complains: " + errors);
    for (const std::string& complaint : complaints_) story.complaints.push_back(complaint);
  }

  std::string errorFile() const { return diary_ + ".errors"; }

  int callsDone() const {
    std::ifstream file(diary_);
    int count = 0;
    for (std::string line; std::getline(file, line);) {
      if (line.find(" D ad ") != std::string::npos) ++count;
    }
    return count;
  }

  template <typename Condition>
  static bool waitUntil(Condition condition) {
    const auto deadline = Clock::now() + kPatience;
    while (!condition()) {
      if (Clock::now() > deadline) return false;
      std::this_thread::sleep_for(milliseconds(20));
    }
    return true;
  }

  const LifePlan& plan_;
  InstallationFiles& files_;
  CollectorProcess& collector_;
  std::string diary_;
  std::unique_ptr<ChildProcess> game_;
  Clock::time_point launched_;
  int status_ = -1;
  bool deaf_ = false;
  std::vector<std::string> complaints_;
};

// ---- One installation ----

// Plays lives on one player's machine until they are over and all is delivered.
class Installation {
 public:
  Installation(const Options& options, int number, const std::string& folder,
               CollectorProcess& collector, Tally& tally)
      : options_(options),
        collector_(collector),
        number_(number),
        dice_(options.seed, static_cast<std::uint64_t>(number)),
        lives_(dice_.from(8, 24)),
        flood_(dice_.percent(options.floods) ? dice_.from(1, lives_ / 2) : -1),
        files_(folder + "/" + std::to_string(number), "com.example.soak"),
        ledger_(tally) {
    // What a flood leaves is delivered in a last life, or meets further lives.
    if (flood_ >= 0 && dice_.percent(50)) lives_ = flood_ + 1;
    std::filesystem::create_directories(files_.home());
    if (dice_.percent(80)) putStaleSettings();
  }

  // Plays on while `goesOn` says so. Returns how many checks have failed.
  template <typename Condition>
  int play(Condition goesOn) {
    int life = 0;
    for (; life < lives_ && goesOn(); ++life) {
      playLife(drawLife(options_.seed, number_, life, life == flood_, options_.pace));
    }
    playLife(lastLife(options_.seed, number_, life));
    const std::vector<std::string> findings = ledger_.close();
    if (!findings.empty()) ++failed_;
    for (const std::string& finding : findings) tell("the end of it all", finding);
    std::printf("installation %d: %d lives, %d failed\n", number_, life + 1, failed_);
    std::fflush(stdout);
    if (failed_ == 0 && options_.keep.empty()) std::filesystem::remove_all(files_.home());
    return failed_;
  }

 private:
  // Settings that are fetched again and again, as an earlier server may have handed them out.
  void putStaleSettings() const {
    const std::filesystem::path path = files_.settingsFile();
    std::filesystem::create_directories(path.parent_path());
    const Dictionary settings{{"ConfigSerializationKeyConfigUpdateInterval", Number::int32(-1)}};
    std::ofstream(path) << property_list::write(settings).value();
  }

  void playLife(const LifePlan& plan) {
    Life life(plan, files_, collector_);
    const std::vector<std::string> findings = ledger_.enter(life.play());
    if (findings.empty()) return;
    ++failed_;
    for (const std::string& finding : findings) tell("life " + plan.name, finding);
    std::printf("  plan: %s\n  the diary ends with:\n", plan.description().c_str());
    for (const std::string& line : life.lastLines()) std::printf("    %s\n", line.c_str());
    std::fflush(stdout);
  }

  void tell(const std::string& where, const std::string& finding) {
    std::printf("FOUND   installation %d, %s: %s   (all files: %s)\n", number_, where.c_str(),
                finding.c_str(), files_.home().c_str());
  }

  const Options& options_;
  CollectorProcess& collector_;
  int number_;
  Dice dice_;
  int lives_;
  int flood_;  // Which life makes too many calls; -1 when none does.
  InstallationFiles files_;
  Ledger ledger_;
  int failed_ = 0;
};

// ---- All ----

std::string folderFor(const Options& options) {
  if (!options.keep.empty()) return options.keep;
  std::string path = (std::filesystem::temp_directory_path() / "zln-soak-XXXXXX").string();
  if (mkdtemp(path.data()) == nullptr) throw std::runtime_error("no temporary folder");
  return path;
}

int soak(const Options& options) {
  std::printf("seed %llu\n", static_cast<unsigned long long>(options.seed));
  const std::string folder = folderFor(options);
  const auto deadline = Clock::now() + std::chrono::seconds(options.seconds);
  CollectorProcess collector(folder + "/collector");
  Tally tally;
  int failed = 0;
  int begun = 0;
  const auto goesOn = [&] { return Clock::now() < deadline && begun++ < options.lives; };
  for (int number = 0; begun < options.lives && Clock::now() < deadline; ++number) {
    failed += Installation(options, number, folder, collector, tally).play(goesOn);
  }
  tally.print();
  collector.end();
  std::error_code ignored;
  if (options.keep.empty() && failed == 0) std::filesystem::remove_all(folder, ignored);
  const int checks = tally.played("lives") + tally.played("installations");
  std::printf("\nseed %llu: %d passed, %d failed\n", static_cast<unsigned long long>(options.seed),
              checks - failed, failed);
  return failed == 0 && tally.played("lives") > 0 ? 0 : 1;
}

}  // namespace
}  // namespace zln

int main(int count, char** words) {
  zln::Options options;
  zln::CommandLine(
      "soak [--seed N] [--lives N] [--seconds N] [--floods N] [--pace N] [--keep FOLDER]")
      .option("--seed", options.seed)
      .option("--lives", options.lives)
      .option("--seconds", options.seconds)
      .option("--floods", options.floods)
      .option("--pace", options.pace)
      .option("--keep", options.keep)
      .read(count, words);
  return zln::soak(options);
}
