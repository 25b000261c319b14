#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <string>

#include "collector/report_kinds.h"
#include "collector/report_schemas.h"

namespace zln::collector {

// The texts of the schemas in docs/schema.
std::map<ReportKind, std::string> schemaTexts();

// A random UUID, as the library makes them, but for its being the one of this number.
std::string uuid(int number);

// Reports that break no schema. Equal numbers are the same user, session or event.
nlohmann::json sessionFirst(int user, int session);
nlohmann::json sessionStart(int user, int session);
nlohmann::json sessionStop(int user, int session);
nlohmann::json adAttempt(int user, int event);
nlohmann::json adZoneAttempt(int user, int event);
nlohmann::json sampleOf(ReportKind kind);

}  // namespace zln::collector
