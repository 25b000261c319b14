#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/property_list.h"
#include "tests/host/played_game.h"

namespace zln {

// A played game whose stored files the test looks into, or puts in place before a launch.
class StoredFilesTest : public PlayedGameTest {
 protected:
  StoredFilesTest() {
    for (const std::string& path : storedFiles) {
      std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    }
  }

  static void put(const std::string& path, const std::string& bytes) { writeFile(path, bytes); }
  static void put(const std::string& path, const Value& root) {
    put(path, property_list::write(root).value());
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

  const std::vector<std::string> storedFiles = {reportsFile(), settingsFile(), defaultsFile()};
};

}  // namespace zln
