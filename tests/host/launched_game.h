#pragma once

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/child_process.h"
#include "tests/support/file_contents.h"
#include "tests/support/temporary_folder.h"

namespace zln {

// A game on the finished library, played in a home folder of its own. The library's hosts are those
// of an unset build; the environment must name a proxy that leads to a server, and its authority.
class LaunchedGameTest : public testing::Test {
 protected:
  using Json = nlohmann::json;

  // Starts the game; what a test adds to `environment` before counts.
  void launch(const std::string& program = ZLN_GAME_PROGRAM) {
    game = std::make_unique<ChildProcess>(program, environment, errorFile);
  }
  // The usual first steps of a game.
  void launchAndStart() {
    launch();
    start();
    tell("active");
  }
  void start() {
    tell("app com.example.game 1.2.3");
    tell("initialize engine-5");
    tell("start");
  }
  std::string tell(const std::string& command) { return game->tell(command); }
  void awaitLine(const std::string& line) const {
    EXPECT_TRUE(awaitContents(
        errorFile,
        [&](const std::string& errors) { return errors.find(line) != std::string::npos; }))
        << "The game does not log \"" << line << "\" but\n"
        << game->errors();
  }

  // Until no thread of the game has anything to do: all that was stored has been read.
  void waitUntilAtRest() const {
    while (!game->isAtRest()) std::this_thread::yield();
  }

  std::string folder() const { return home.path() + "/data/com.example.game/com.zelnor.sdk"; }
  std::string reportsFile() const { return folder() + "/reporting/reports.json"; }
  std::string settingsFile() const { return folder() + "/data/config.dat"; }
  std::string defaultsFile() const { return home.path() + "/config/com.example.game.plist"; }

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
  const std::string errorFile = home.path() + "/errors";
  std::map<std::string, std::string> environment = {
      {"HOME", home.path()},
      {"XDG_DATA_HOME", home.path() + "/data"},
      {"XDG_CONFIG_HOME", home.path() + "/config"},
      {"LANG", "de_DE.UTF-8"},
  };
  std::unique_ptr<ChildProcess> game;
};

}  // namespace zln
