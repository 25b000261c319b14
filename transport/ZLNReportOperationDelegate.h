#pragma once

#include <memory>

#include "platform/error.h"
#include "reports/ZLNReportBase.h"

namespace zln {

// Is told what became of a report, on the thread of that report's own request, before its operation
// completes. Callbacks of different reports may run at the same time.
class ZLNReportOperationDelegate {
 public:
  virtual ~ZLNReportOperationDelegate() = default;
  // The report could not be delivered now and may be tried again.
  virtual void reportFailedWithTemporaryError(const std::shared_ptr<ZLNReportBase>& report,
                                              const Error& error) = 0;
  // The report must not be tried again. The report is null when the operation had none.
  virtual void reportFailedWithPermanentError(const std::shared_ptr<ZLNReportBase>& report,
                                              const Error& error) = 0;
  // The server accepted the report.
  virtual void reportTransmittedSuccessfully(const std::shared_ptr<ZLNReportBase>& report) = 0;
};

}  // namespace zln
