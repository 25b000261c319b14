#include "reports/ZLNReportSessionFirst.h"

#include "reports/report_types.h"
#include "support/endpoints.h"

namespace zln {

// Kept: a session-start report under another name, so it asks for the view of the start.
constinit const SessionReport::Kind ZLNReportSessionFirst::kKind = {
    kSessionFirstUrl, kReportTypeSessionFirst, kReportTypeSessionStart};

std::shared_ptr<ZLNReportSessionFirst> ZLNReportSessionFirst::reportWithSession(
    const std::shared_ptr<ZLNSession>& session) {
  return initWithSession(session);
}

std::shared_ptr<ZLNReportSessionFirst> ZLNReportSessionFirst::initWithSession(
    const std::shared_ptr<ZLNSession>& session) {
  return std::shared_ptr<ZLNReportSessionFirst>(new ZLNReportSessionFirst(session));
}

std::shared_ptr<ZLNReportSessionFirst> ZLNReportSessionFirst::initWithDictionary(
    const Dictionary& dictionary) {
  return std::shared_ptr<ZLNReportSessionFirst>(new ZLNReportSessionFirst(dictionary));
}

ZLNReportSessionFirst::ZLNReportSessionFirst(const std::shared_ptr<ZLNSession>& session)
    : SessionReport(kKind, session) {}

ZLNReportSessionFirst::ZLNReportSessionFirst(const Dictionary& dictionary)
    : SessionReport(kKind, dictionary) {}

}  // namespace zln
