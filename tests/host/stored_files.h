#pragma once

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/property_list.h"
#include "tests/host/played_game.h"

namespace zln {

// A played game whose stored files the test looks into, or puts in place before a launch.
class StoredFilesTest : public PlayedGameTest {
 protected:
  StoredFilesTest() {
    for (const std::string& path : {reportsFile(), settingsFile(), defaultsFile()}) {
      std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    }
  }

  std::string reportsFile() const { return folder() + "/reporting/reports.json"; }
  std::string settingsFile() const { return folder() + "/data/config.dat"; }
  std::string defaultsFile() const { return home.path() + "/config/com.example.game.plist"; }

  static void put(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
  }
  static void put(const std::string& path, const Value& root) {
    put(path, property_list::write(root).value());
  }
  static std::string contentsOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  // Absent when the file cannot be read whole.
  static std::optional<Value> valueIn(const std::string& path) {
    return property_list::read(contentsOf(path));
  }

  // Settings that are stale at every activation, so that each one saves them.
  void putStaleSettings() const {
    put(settingsFile(),
        Dictionary{{"ConfigSerializationKeyConfigUpdateInterval", Number::int32(-1)}});
  }

  static Dictionary adReport(const std::string& network) {
    return {{"type", "ReportTypeAdAttempt"},
            {"adEventId", "00000000-0000-4000-8000-000000000000"},
            {"network", network},
            {"adType", "banner"},
            {"fill", Number::boolean(true)}};
  }

  // The networks of the ad reports in the file, in its order; "unreadable" when it is no list.
  std::vector<std::string> storedNetworks() const {
    const std::optional<Value> root = valueIn(reportsFile());
    if (!root || root->array() == nullptr) return {"unreadable"};
    std::vector<std::string> networks;
    for (const Value& element : *root->array()) {
      const Dictionary* report = element.dictionary();
      const std::string* network = report == nullptr ? nullptr : report->findString("network");
      if (network != nullptr) networks.push_back(*network);
    }
    return networks;
  }

  // From now on nobody answers the game, and none of its requests counts as received.
  void silenceServer() { server.setFault(ConnectionFault::kNoHandshake); }
  void letServerTalk() { server.setFault(ConnectionFault::kNone); }

  // Until no thread of the game has anything to do: all that was stored has been read.
  void waitUntilAtRest() const {
    while (!isAtRest()) std::this_thread::yield();
  }

  static bool isInstalled(const std::string& program) {
    return std::system(("command -v " + program + " >/dev/null").c_str()) == 0;
  }

 private:
  bool isAtRest() const {
    const std::string tasks = "/proc/" + std::to_string(game->pid()) + "/task";
    for (const auto& task : std::filesystem::directory_iterator(tasks)) {
      if (contentsOf(task.path().string() + "/stat").find(") S ") == std::string::npos)
        return false;
    }
    return true;
  }
};

}  // namespace zln
