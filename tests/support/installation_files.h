#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/value.h"
#include "tests/support/report_identity.h"

namespace zln {

struct StoredReport {
  ReportIdentity identity;
  std::string network;     // Of an attempt.
  bool isInPlace = false;  // It is in the report file.
};

// What the library's files say.
struct StoredState {
  // What cannot be read whole is named here.
  std::vector<std::string> problems;
  bool hasReportFile = false;
  // All that the next process takes up, in its order: what an earlier one had not taken up whole,
  // then what else is in the report file.
  std::vector<StoredReport> reports;
  std::optional<Dictionary> settings;
  bool isFirstSessionSent = false;
  std::string user;
};

// The library's files in the home folder of a game, which may be running. The tests of whole
// processes look into them between and during lives.
class InstallationFiles {
 public:
  InstallationFiles(const std::string& home, const std::string& application);

  const std::string& home() const { return home_; }
  const std::string& settingsFile() const { return settings_; }
  StoredState read() const;
  // The report file is there and holds nothing, and nothing is left to be taken up.
  bool owesNothing() const;
  // What is in the home folder besides the library's own files, by path within it.
  std::vector<std::string> strangers() const;

 private:
  void readReports(StoredState& state) const;

  std::string home_;
  std::string reports_;
  std::string spare_;
  std::string kept_;
  std::string settings_;
  std::string defaults_;
};

}  // namespace zln
