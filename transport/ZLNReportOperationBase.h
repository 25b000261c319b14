#pragma once

#include <atomic>
#include <cstdint>
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
    report_.set(std::move(report));
    replacements_.fetch_add(1, std::memory_order_release);
  }
  // How many times the report of any operation has been replaced; rises after the replacement.
  static std::uint64_t replacements() { return replacements_.load(std::memory_order_acquire); }
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
  static inline std::atomic<std::uint64_t> replacements_{0};

  Field<bool> validateResponse_;
  Field<std::shared_ptr<ZLNReportBase>> report_;
  Field<std::weak_ptr<ZLNReportOperationDelegate>> delegate_;
};

}  // namespace zln
