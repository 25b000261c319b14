#include "reports/ZLNReportFactory.h"

#include "reports/ZLNReportAdAttempt.h"
#include "reports/ZLNReportAdZoneAttempt.h"
#include "reports/ZLNReportSessionFirst.h"
#include "reports/ZLNReportSessionStart.h"
#include "reports/ZLNReportSessionStop.h"
#include "reports/report_types.h"
#include "support/log.h"

namespace zln {

std::shared_ptr<ZLNReportBase> ZLNReportFactory::newReportFromDictionary(
    const Dictionary& dictionary) {
  const Value* value = dictionary.find("type");
  const std::string* type = value == nullptr ? nullptr : value->string();
  if (type == nullptr) {
    const char* kind = value == nullptr ? nullptr : value->className();
    logError("invalid report type value: %@ (%@)", value, kind);
    return nullptr;
  }
  if (*type == kReportTypeSessionStart)
    return ZLNReportSessionStart::initWithDictionary(dictionary);
  if (*type == kReportTypeSessionStop) return ZLNReportSessionStop::initWithDictionary(dictionary);
  if (*type == kReportTypeSessionFirst)
    return ZLNReportSessionFirst::initWithDictionary(dictionary);
  if (*type == kReportTypeAdAttempt) return ZLNReportAdAttempt::initWithDictionary(dictionary);
  if (*type == kReportTypeAdZoneAttempt) {
    return ZLNReportAdZoneAttempt::initWithDictionary(dictionary);
  }
  logError("unknown report type %@", *type);
  return nullptr;
}

}  // namespace zln
