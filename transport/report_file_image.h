#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "reports/report_element.h"

namespace zln {

// The bytes of the report file, put together from its elements in one pass.
class ReportFileImage {
 public:
  void add(const ReportElement& element);

  // How many were added.
  std::size_t count() const { return count_; }

  // The whole document; absent when an element could not be held. Ends the image.
  std::optional<std::string> finish();

 private:
  std::string bytes_;
  std::size_t count_ = 0;
  bool holdsAll_ = true;
};

}  // namespace zln
