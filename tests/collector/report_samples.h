#pragma once

#include <map>
#include <string>
#include <vector>

#include "collector/report_kinds.h"
#include "collector/report_row.h"
#include "tests/collector/json_text.h"

namespace zln::collector {

// The texts of the schemas in docs/schema.
std::map<ReportKind, std::string> schemaTexts();

// A random UUID, as the library makes them, but for its being the one of this number.
std::string uuid(int number);

// Reports that break no schema, as text. Equal numbers are the same user, session or event.
std::string sessionFirst(int user, int session);
std::string sessionStart(int user, int session);
std::string sessionStop(int user, int session);
std::string adAttempt(int user, int event);
std::string adZoneAttempt(int user, int event);
std::string sampleOf(ReportKind kind);

// A report with other members, and without one.
std::string with(const std::string& report, const std::string& members);
std::string without(const std::string& report, const std::string& name);
std::vector<std::string> membersOf(const std::string& report);

JsonText shown(const ReportRow& row);
JsonText shown(const std::vector<Finding>& findings);

}  // namespace zln::collector
