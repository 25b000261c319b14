#include "transport/ZLNReportOperationBase.h"

#include <utility>

#include "support/text_format.h"

namespace zln {

std::shared_ptr<ZLNReportOperationBase> ZLNReportOperationBase::initWithReport(
    std::shared_ptr<ZLNReportBase> report, bool validateResponse,
    const std::shared_ptr<ZLNReportOperationDelegate>& delegate) {
  return std::shared_ptr<ZLNReportOperationBase>(
      new ZLNReportOperationBase(std::move(report), validateResponse, delegate));
}

ZLNReportOperationBase::ZLNReportOperationBase(
    std::shared_ptr<ZLNReportBase> report, bool validateResponse,
    const std::shared_ptr<ZLNReportOperationDelegate>& delegate)
    : validateResponse_(validateResponse), report_(std::move(report)), delegate_(delegate) {}

std::string ZLNReportOperationBase::description() const {
  const auto carried = report();
  const FormatArgument arguments[] = {formatArgument(carried), formatArgument(isExecuting())};
  return renderFormat("report operation with report %@, isExecuting %i", arguments);
}

}  // namespace zln
