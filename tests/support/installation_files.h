#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/value.h"
#include "tests/support/report_identity.h"

namespace zln {

struct StoredReport {
  ReportIdentity identity;
  std::string network;  // Of an attempt.
};

// What the library's files say.
struct StoredState {
  // What cannot be read whole is named here.
  std::vector<std::string> problems;
  bool hasReportFile = false;
  // What the next process loads, in its order.
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
  // The report file is there and holds nothing.
  bool owesNothing() const;
  // What is in the home folder besides the library's own files, by path within it.
  std::vector<std::string> strangers() const;

 private:
  std::string home_;
  std::string reports_;
  std::string spare_;
  std::string settings_;
  std::string defaults_;
};

}  // namespace zln
