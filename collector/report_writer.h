#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <variant>
#include <vector>

#include "collector/database.h"
#include "collector/report_facts.h"
#include "collector/report_row.h"

namespace zln::collector {

// What can happen to the table of reports.
struct Insertion {
  ReportRow row;
  ReportFacts facts;
  std::vector<std::int64_t> stops;  // Those that this row is the start of.
  std::int64_t lastGone = 0;        // The last of those that make room for it.
};
struct AnswerChange {
  std::int64_t id;
  Answer answer;
};
struct Trimming {
  std::int64_t lastGone;
};
struct Clearing {};
using Change = std::variant<Insertion, AnswerChange, Trimming, Clearing>;

// Writes changes on a thread of its own, all that have gathered in one transaction. While the file
// cannot be written it keeps them and tries again every second. Any thread may call it.
class ReportWriter {
 public:
  explicit ReportWriter(Database database);
  // Writes what has gathered, if it can be written.
  ~ReportWriter();
  ReportWriter(const ReportWriter&) = delete;
  ReportWriter& operator=(const ReportWriter&) = delete;

  // Returns when not too much waits to be written. Throws std::runtime_error while nothing can be.
  void waitForRoom();
  void put(Change change);
  // Returns when all that was put before is written. Throws std::runtime_error while nothing can
  // be.
  void flush();

 private:
  class Table;

  void writeGroups(Table table);
  bool takeGroup(std::vector<Change>& group);
  bool writeGroup(Table& table, const std::vector<Change>& group);
  void finishGroup(std::size_t count, std::size_t size);
  bool hasRoom() const;
  void requireWorking() const;

  std::mutex mutex_;
  std::condition_variable wake_;
  std::condition_variable progress_;
  std::vector<Change> waiting_;
  std::uint64_t put_ = 0;
  std::uint64_t written_ = 0;
  std::size_t unwrittenBytes_ = 0;
  std::string failure_;  // Of the last attempt to write.
  bool ending_ = false;
  std::thread thread_;
};

}  // namespace zln::collector
