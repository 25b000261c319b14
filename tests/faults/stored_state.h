#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

namespace zln::faults {

// What the library has stored in a home folder.
struct StoredState {
  // Files that are there and cannot be read whole.
  std::vector<std::string> torn;
  // What lies there besides the library's own files.
  std::vector<std::string> strangers;
  // The identities of the reports that are owed; absent without a file.
  std::optional<std::set<std::string>> reports;
  // The networks of the attempts among them.
  std::set<std::string> networks;
  bool hasSettings = false;
  // Empty when there is none.
  std::string user;
  bool isFirstSessionSent = false;
};

// Of the game "com.example.game".
StoredState readStoredState(const std::string& home);

// The files that cannot be read whole; also while the game is running.
std::vector<std::string> tornFiles(const std::string& home);

}  // namespace zln::faults
