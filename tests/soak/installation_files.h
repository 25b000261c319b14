#pragma once

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/value.h"

namespace zln {

// A report in the file of those that are owed.
struct StoredReport {
  std::string identity;
  std::string adEventId;
};

// The library's files between two lives.
struct StoredState {
  // What cannot be read is named here.
  std::vector<std::string> problems;
  // All that the next process takes up, in its order: what an earlier one had not taken up whole,
  // then what stands in the report file beside.
  std::vector<StoredReport> reports;
  // What stands in the report file.
  std::set<std::string> inPlace;
  // Of the kinds of session report that the settings can switch off.
  bool sendsFirst = true;
  bool sendsStart = true;
  bool sendsStop = true;
  bool firstSessionSent = false;
  std::string user;

  int copiesOf(const std::string& identity) const;
};

// One player's machine, as the game finds it from life to life.
class InstallationFiles {
 public:
  explicit InstallationFiles(std::string home) : home_(std::move(home)) {}

  const std::string& home() const { return home_; }
  // Settings that are fetched anew again and again, as an earlier server may have handed them out.
  void putStaleSettings() const;
  StoredState read() const;
  // The report file is there and holds nothing, and nothing is left to be taken up.
  bool owesNothing() const;

 private:
  std::string reportsFile() const;
  std::string keptReportsFile() const;
  std::string settingsFile() const;
  void readReports(StoredState& state) const;
  static void addReports(const Array& elements, StoredState& state);
  void readSettings(StoredState& state) const;
  void readDefaults(StoredState& state) const;

  std::string home_;
};

}  // namespace zln
