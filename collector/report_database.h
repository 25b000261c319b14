#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>

#include "collector/database.h"
#include "collector/report_facts.h"
#include "collector/report_row.h"

namespace zln::collector {

// The file in which a store keeps its reports: how it is opened and what its table is like.

// Makes the file, readable by its owner only, when there is none. Throws std::runtime_error with a
// text for people when it is none of ours, and leaves it as it is.
Database openForWriting(const std::filesystem::path& file);
// Beside a process that writes it, if need be. Throws std::runtime_error when it cannot be read.
Database openForReading(const std::filesystem::path& file);

// "SELECT ... FROM reports", to which a condition can be added, for `rowOf`.
extern const char kSelectRows[];
ReportRow rowOf(const Statement& selected);

// The highest identifier that was ever given.
std::int64_t highestId(Database& database);

// What a store remembers of a report.
struct StoredReport {
  std::int64_t id = 0;
  std::int64_t size = 0;   // Of its body, in bytes.
  ReportFacts facts = {};  // What a judge goes by.
};
// Tells of every report, the oldest first.
void forEachReport(Database& database,
                   const std::function<void(const StoredReport& report)>& visit);

}  // namespace zln::collector
