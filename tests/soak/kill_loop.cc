// Kills a game again and again within moments of its start, and checks after every life that no
// acknowledged ad is lost: the server has accepted it or it is in the report file. Each seed plays
// two installations at once, one on a disk and one in memory.
//
// usage: kill_loop [--seed N] [--seeds N] [--lives N] [--pace N]
//   --seed   the first seed, which decides when the kills come; another one each time by default
//   --seeds  how many (1)
//   --lives  of each installation (300)
//   --pace   how many times as late as usual the kills come, for a slow build of the game
#include <stdlib.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/child_process.h"
#include "tests/support/command_line.h"
#include "tests/support/connect_proxy.h"
#include "tests/support/dice.h"
#include "tests/support/file_contents.h"
#include "tests/support/https_server.h"
#include "tests/support/installation_files.h"

namespace zln {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int kLatestKill = 200;
constexpr int kAdsAtATime = 8;
// With what a life adds, and what is retried, still fewer than the queue takes.
constexpr std::size_t kMostPending = 960;
constexpr int kAcceptedInHundred = 60;
constexpr int kRefusedInHundred = 20;
constexpr milliseconds kPatience = std::chrono::minutes(2);
constexpr milliseconds kPause{20};

struct Options {
  std::uint64_t seed = std::random_device()();
  int seeds = 1;
  int lives = 300;
  int pace = 1;
};

// Accepts some reports, refuses others for now and closes the rest of the connections.
class MoodyService {
 public:
  explicit MoodyService(std::uint64_t seed) : dice_(seed, 1) {}

  ServerReply answer(const ReceivedRequest& request) {
    if (request.target != "/session") return replyWith(200, "{}");
    const auto body = nlohmann::json::parse(request.body);
    std::lock_guard lock(mutex_);
    const int mood = isGood ? 1 : dice_.from(1, 100);
    if (mood > kAcceptedInHundred + kRefusedInHundred) return rawReply("", ServerReply::End::kCut);
    if (mood > kAcceptedInHundred) return replyWith(200, R"({"success":false})");
    if (body.contains("network")) events_[body["network"]].insert(body["adEventId"]);
    return successReply();
  }

  // The identifiers under which it has accepted each ad, by network.
  std::map<std::string, std::set<std::string>> events() const {
    std::lock_guard lock(mutex_);
    return events_;
  }

  std::atomic<bool> isGood{false};

 private:
  mutable std::mutex mutex_;
  Dice dice_;
  std::map<std::string, std::set<std::string>> events_;
};

std::string newFolderIn(const std::string& folder) {
  std::string path = folder + "/zln-kill-loop-XXXXXX";
  if (mkdtemp(path.data()) == nullptr) throw std::runtime_error("no folder in " + folder);
  return path;
}

// One installation of the game, and all its lives.
class KilledGame {
 public:
  KilledGame(const Options& options, std::uint64_t seed, const std::string& folder)
      : options_(options),
        dice_(seed),
        home_(newFolderIn(folder)),
        service_(std::make_shared<MoodyService>(seed)) {
    // A connection may outlive this object.
    server_.answer(
        [service = service_](const ReceivedRequest& request) { return service->answer(request); });
  }

  // Returns what is wrong; the files then stay.
  std::vector<std::string> play() {
    for (int life = 0; life < options_.lives && findings_.empty(); ++life) playLife(life);
    if (findings_.empty()) drain(options_.lives);
    if (findings_.empty()) std::filesystem::remove_all(home_);
    return findings_;
  }

  std::string summary() const {
    return home_ + ": " + std::to_string(acknowledged_.size()) + " acknowledged ads, at most " +
           std::to_string(mostPending_) + " pending reports, " +
           std::to_string(service_->events().size()) + " ads accepted";
  }

 private:
  void playLife(int life) {
    const std::size_t pending = files_.read().reports.size();
    mostPending_ = std::max(mostPending_, pending);
    if (pending + 2 * kAdsAtATime > kMostPending) drain(life);
    std::vector<std::string> ads;
    for (int ad = 0; ad < 2 * kAdsAtATime; ++ad) {
      ads.push_back(std::to_string(life) + "." + std::to_string(ad));
    }
    launch();
    const auto end = Clock::now() + options_.pace * milliseconds(dice_.from(0, kLatestKill));
    const std::vector<std::string> commands = commandsFor(ads);
    for (const std::string& command : commands) game_->send(command);
    std::this_thread::sleep_until(end);
    if (game_->waitForEnd(milliseconds(0)) != -1) find(life, "the game has ended by itself");
    game_->kill();
    acknowledge(commands);
    check(life);
  }

  static std::vector<std::string> commandsFor(const std::vector<std::string>& ads) {
    std::vector<std::string> commands = {"app com.example.game 1.2.3", "initialize engine-5",
                                         "start", "active"};
    for (std::size_t ad = 0; ad < ads.size(); ++ad) {
      if (ad == kAdsAtATime) {
        commands.insert(commands.end(), {"resign", "background", "foreground", "active"});
      }
      commands.push_back("banner " + ads[ad] + " 1");
    }
    return commands;
  }

  void launch() {
    std::filesystem::remove(outputFile());
    const std::map<std::string, std::string> environment = {{"HOME", home_},
                                                            {"XDG_DATA_HOME", home_ + "/data"},
                                                            {"XDG_CONFIG_HOME", home_ + "/config"},
                                                            {"SSL_CERT_FILE", server_.caFile()},
                                                            {"https_proxy", proxy_.url()}};
    game_ = std::make_unique<ChildProcess>(
        ChildStart{ZLN_GAME_PROGRAM, {}, environment, home_ + "/errors", outputFile()});
  }

  // The game answers a command when the call has returned.
  void acknowledge(const std::vector<std::string>& commands) {
    const std::string output = contentsOf(outputFile());
    const auto answers = static_cast<std::size_t>(std::count(output.begin(), output.end(), '\n'));
    for (std::size_t at = 0; at < std::min(answers, commands.size()); ++at) {
      if (!commands[at].starts_with("banner ")) continue;
      const std::string ad = commands[at].substr(commands[at].find(' ') + 1);
      acknowledged_.insert(ad.substr(0, ad.find(' ')));
    }
  }

  void check(int life) {
    const StoredState state = files_.read();
    for (const std::string& problem : state.problems) find(life, problem);
    std::set<std::string> kept;
    for (const StoredReport& report : state.reports) kept.insert(report.network);
    for (const auto& [network, events] : service_->events()) kept.insert(network);
    for (const std::string& network : acknowledged_) {
      if (!kept.contains(network)) find(life, "lost: the ad " + network);
    }
    const std::string errors = game_->errors();
    if (errors.find("failed to save") != std::string::npos) find(life, errors);
  }

  // A life with a good server, before the killed one of that number.
  void drain(int life) {
    service_->isGood = true;
    launch();
    for (const std::string& command : commandsFor({})) game_->send(command);
    const auto deadline = Clock::now() + kPatience;
    while (!files_.owesNothing() && Clock::now() < deadline) {
      game_->send("foreground");
      game_->send("background");
      std::this_thread::sleep_for(kPause);
    }
    game_->kill();
    service_->isGood = false;
    check(life);
    if (!files_.owesNothing()) find(life, "reports stay in the file");
    for (const auto& [network, events] : service_->events()) {
      if (events.size() > 1) find(life, "several identifiers: the ad " + network);
    }
  }

  void find(int life, const std::string& what) {
    findings_.push_back("life " + std::to_string(life) + ": " + what);
  }

  std::string outputFile() const { return home_ + "/answers"; }

  const Options& options_;
  Dice dice_;
  const std::string home_;
  const InstallationFiles files_{home_, "com.example.game"};
  const std::shared_ptr<MoodyService> service_;
  HttpsServer server_;
  ConnectProxy proxy_{server_.port()};
  std::unique_ptr<ChildProcess> game_;
  std::set<std::string> acknowledged_;
  std::size_t mostPending_ = 0;
  std::vector<std::string> findings_;
};

// Plays a seed in each folder and returns how many of them have failed.
int playSeed(const Options& options, std::uint64_t seed) {
  std::atomic<int> failed{0};
  std::vector<std::thread> players;
  for (const char* folder : {"/var/tmp", "/dev/shm"}) {
    players.emplace_back([&options, &failed, seed, folder] {
      KilledGame game(options, seed, folder);
      std::string text;
      for (const std::string& finding : game.play()) text += "FOUND   " + finding + '\n';
      if (!text.empty()) ++failed;
      text += "seed " + std::to_string(seed) + ", " + game.summary() + '\n';
      std::fputs(text.c_str(), stdout);
      std::fflush(stdout);
    });
  }
  for (std::thread& player : players) player.join();
  return failed;
}

int loop(const Options& options) {
  int failed = 0;
  for (int more = 0; more < options.seeds; ++more) {
    failed += playSeed(options, options.seed + static_cast<std::uint64_t>(more));
  }
  std::printf("%d passed, %d failed\n", 2 * options.seeds - failed, failed);
  return failed == 0 ? 0 : 1;
}

}  // namespace
}  // namespace zln

int main(int count, char** words) {
  zln::Options options;
  zln::CommandLine("kill_loop [--seed N] [--seeds N] [--lives N] [--pace N]")
      .option("--seed", options.seed)
      .option("--seeds", options.seeds)
      .option("--lives", options.lives)
      .option("--pace", options.pace)
      .read(count, words);
  return zln::loop(options);
}
