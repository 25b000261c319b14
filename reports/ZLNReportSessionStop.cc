#include "reports/ZLNReportSessionStop.h"

#include "reports/report_types.h"
#include "support/endpoints.h"

namespace zln {

constinit const SessionReport::Kind ZLNReportSessionStop::kKind = {
    kSessionStopUrl, kReportTypeSessionStop, kReportTypeSessionStop};

std::shared_ptr<ZLNReportSessionStop> ZLNReportSessionStop::reportWithSession(
    const std::shared_ptr<ZLNSession>& session) {
  return initWithSession(session);
}

std::shared_ptr<ZLNReportSessionStop> ZLNReportSessionStop::initWithSession(
    const std::shared_ptr<ZLNSession>& session) {
  return std::shared_ptr<ZLNReportSessionStop>(new ZLNReportSessionStop(session));
}

std::shared_ptr<ZLNReportSessionStop> ZLNReportSessionStop::initWithDictionary(
    const Dictionary& dictionary) {
  return std::shared_ptr<ZLNReportSessionStop>(new ZLNReportSessionStop(dictionary));
}

ZLNReportSessionStop::ZLNReportSessionStop(const std::shared_ptr<ZLNSession>& session)
    : SessionReport(kKind, session) {}

ZLNReportSessionStop::ZLNReportSessionStop(const Dictionary& dictionary)
    : SessionReport(kKind, dictionary) {}

}  // namespace zln
