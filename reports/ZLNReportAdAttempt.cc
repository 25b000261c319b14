#include "reports/ZLNReportAdAttempt.h"

#include <utility>

#include "reports/report_types.h"
#include "support/endpoints.h"

namespace zln {

constinit const AdReport::Kind ZLNReportAdAttempt::kKind = {kAdAttemptUrl, kReportTypeAdAttempt};

std::shared_ptr<ZLNReportAdAttempt> ZLNReportAdAttempt::reportWithNetwork(
    std::optional<std::string> network, std::optional<std::string> adType, bool filled) {
  return initWithDictionary(creationDictionary(std::move(network), std::move(adType), filled));
}

std::shared_ptr<ZLNReportAdAttempt> ZLNReportAdAttempt::initWithDictionary(
    const Dictionary& dictionary) {
  return std::shared_ptr<ZLNReportAdAttempt>(new ZLNReportAdAttempt(dictionary));
}

ZLNReportAdAttempt::ZLNReportAdAttempt(const Dictionary& dictionary)
    : AdReport(kKind, dictionary) {}

}  // namespace zln
