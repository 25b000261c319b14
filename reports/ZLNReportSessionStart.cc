#include "reports/ZLNReportSessionStart.h"

#include "reports/report_types.h"
#include "support/endpoints.h"

namespace zln {

constinit const SessionReport::Kind ZLNReportSessionStart::kKind = {
    kSessionStartUrl, kReportTypeSessionStart, kReportTypeSessionStart};

std::shared_ptr<ZLNReportSessionStart> ZLNReportSessionStart::reportWithSession(
    const std::shared_ptr<ZLNSession>& session) {
  return initWithSession(session);
}

std::shared_ptr<ZLNReportSessionStart> ZLNReportSessionStart::initWithSession(
    const std::shared_ptr<ZLNSession>& session) {
  return std::shared_ptr<ZLNReportSessionStart>(new ZLNReportSessionStart(session));
}

std::shared_ptr<ZLNReportSessionStart> ZLNReportSessionStart::initWithDictionary(
    const Dictionary& dictionary) {
  return std::shared_ptr<ZLNReportSessionStart>(new ZLNReportSessionStart(dictionary));
}

ZLNReportSessionStart::ZLNReportSessionStart(const std::shared_ptr<ZLNSession>& session)
    : SessionReport(kKind, session) {}

ZLNReportSessionStart::ZLNReportSessionStart(const Dictionary& dictionary)
    : SessionReport(kKind, dictionary) {}

}  // namespace zln
