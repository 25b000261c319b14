#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "collector/database.h"
#include "collector/json.h"
#include "collector/report_row.h"

namespace zln::collector {

// Which reports are asked for. Absent members allow any.
struct ReportQuery {
  std::optional<std::int64_t> after;   // Greater identifiers only.
  std::optional<std::int64_t> before;  // Smaller ones only.
  std::optional<ReportKind> kind;
  std::optional<Verdict> verdict;
  std::optional<std::string> user;
  std::optional<std::string> session;
  std::optional<std::string> text;              // Is somewhere in the body, byte for byte.
  std::map<std::string, nlohmann::json> match;  // Members of the body and their values.
  bool newestFirst = false;
  int limit = 100;
};

struct ReportList {
  std::vector<ReportRow> reports;  // As many as the limit allows; fewer when they are large.
  std::int64_t total = 0;          // How many the query has without its limit.
  bool more = false;
};

// What can be asked of a database of reports. All throw DatabaseError.
ReportList listReports(Database& database, const ReportQuery& query);
std::optional<ReportRow> findReport(Database& database, std::int64_t id);

}  // namespace zln::collector
