#pragma once

#include <memory>
#include <string>
#include <utility>

#include "reports/ZLNReportBase.h"
#include "support/field.h"
#include "transport/ZLNAsynchronousOperation.h"
#include "transport/ZLNReportOperationDelegate.h"

namespace zln {

// An asynchronous operation that carries one report and knows whom to tell its outcome.
class ZLNReportOperationBase : public ZLNAsynchronousOperation {
 public:
  // With `validateResponse` a reply counts as a delivery only when it says so. The delegate is held
  // weakly; once it is gone nobody is told.
  static std::shared_ptr<ZLNReportOperationBase> initWithReport(
      std::shared_ptr<ZLNReportBase> report, bool validateResponse,
      const std::shared_ptr<ZLNReportOperationDelegate>& delegate);

  std::string description() const override;

  std::shared_ptr<ZLNReportBase> report() const { return report_.get(); }
  void setReport(std::shared_ptr<ZLNReportBase> report) {
    const auto replaced = this->report();
    report_.set(std::move(report));
    // Whoever has listed the old report for this operation sees that it has to look again.
    if (replaced) replaced->raiseRevision();
  }
  std::shared_ptr<ZLNReportOperationDelegate> delegate() const { return delegate_.get().lock(); }
  void setDelegate(const std::shared_ptr<ZLNReportOperationDelegate>& delegate) {
    delegate_.set(delegate);
  }
  bool validateResponse() const { return validateResponse_.get(); }
  void setValidateResponse(bool validate) { validateResponse_.set(validate); }

 protected:
  ZLNReportOperationBase(std::shared_ptr<ZLNReportBase> report, bool validateResponse,
                         const std::shared_ptr<ZLNReportOperationDelegate>& delegate);

 private:
  Field<bool> validateResponse_;
  Field<std::shared_ptr<ZLNReportBase>> report_;
  Field<std::weak_ptr<ZLNReportOperationDelegate>> delegate_;
};

}  // namespace zln
