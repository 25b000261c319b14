#pragma once

#include <memory>

#include "reports/ZLNReportBase.h"

namespace zln {

// Turns a stored dictionary back into a report of the right kind. Has no state.
class ZLNReportFactory {
 public:
  // Null, with a line in the log, when "type" is no string or names no kind.
  static std::shared_ptr<ZLNReportBase> newReportFromDictionary(const Dictionary& dictionary);
};

}  // namespace zln
