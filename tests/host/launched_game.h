#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/child_process.h"
#include "tests/support/temporary_folder.h"

namespace zln {

// A game on the finished library, played in a home folder of its own. The library's hosts are those
// of an unset build; the environment must name a proxy that leads to a server, and its authority.
class LaunchedGameTest : public testing::Test {
 protected:
  using Json = nlohmann::json;

  // Starts the game; what a test adds to `environment` before counts.
  void launch() {
    game = std::make_unique<ChildProcess>(ZLN_GAME_PROGRAM, environment, home.path() + "/errors");
  }
  // The usual first steps of a game.
  void launchAndStart() {
    launch();
    tell("app com.example.game 1.2.3");
    tell("initialize engine-5");
    tell("start");
    tell("active");
  }
  std::string tell(const std::string& command) { return game->tell(command); }
  // Lets the game log until the line has come; for two minutes at the most.
  void awaitLine(const std::string& line) const {
    EXPECT_TRUE(waitUntil([&] { return game->errors().find(line) != std::string::npos; }))
        << "The game does not log \"" << line << "\" but\n"
        << game->errors();
  }
  template <typename Condition>
  static bool waitUntil(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(2);
    while (!condition()) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      std::this_thread::yield();
    }
    return true;
  }

  std::string folder() const { return home.path() + "/data/com.example.game/com.zelnor.sdk"; }

  // Those with that value under that key.
  static std::vector<Json> having(const std::vector<Json>& bodies, const std::string& key,
                                  const Json& value) {
    std::vector<Json> found;
    for (const Json& body : bodies) {
      if (body.contains(key) && body[key] == value) found.push_back(body);
    }
    return found;
  }

  TemporaryFolder home;
  std::map<std::string, std::string> environment = {
      {"HOME", home.path()},
      {"XDG_DATA_HOME", home.path() + "/data"},
      {"XDG_CONFIG_HOME", home.path() + "/config"},
      {"LANG", "de_DE.UTF-8"},
  };
  std::unique_ptr<ChildProcess> game;
};

}  // namespace zln
