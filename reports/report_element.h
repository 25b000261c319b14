#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/value.h"

namespace zln {

// A report as the report file holds it.
struct ReportElement {
  // Absent when the report holds a value that the file cannot.
  std::optional<std::string> text;

  static std::shared_ptr<const ReportElement> of(const Dictionary& report);
};

}  // namespace zln
