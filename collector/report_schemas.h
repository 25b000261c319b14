#pragma once

#include <map>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "collector/report_kinds.h"
#include "collector/report_row.h"

namespace zln::collector {

// The JSON schemas of the reports, compiled once. Any thread may call it.
class ReportSchemas {
 public:
  // Takes the texts of the five schemas. Throws std::invalid_argument when one is missing or is no
  // schema.
  explicit ReportSchemas(const std::map<ReportKind, std::string>& texts);
  ~ReportSchemas();
  ReportSchemas(ReportSchemas&&) noexcept;
  ReportSchemas& operator=(ReportSchemas&&) noexcept;

  // An error for each way in which the report breaks the schema of its kind; one that says so for
  // an unknown kind.
  std::vector<Finding> check(ReportKind kind, const nlohmann::json& report) const;

 private:
  class Compiled;

  std::unique_ptr<Compiled> compiled_;
};

}  // namespace zln::collector
