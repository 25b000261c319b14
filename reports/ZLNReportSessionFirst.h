#pragma once

#include <memory>

#include "reports/session_report.h"

namespace zln {

// Tells of the first session ever on an installation, in place of a session-start report.
class ZLNReportSessionFirst : public SessionReport {
 public:
  static std::shared_ptr<ZLNReportSessionFirst> reportWithSession(
      const std::shared_ptr<ZLNSession>& session);
  static std::shared_ptr<ZLNReportSessionFirst> initWithSession(
      const std::shared_ptr<ZLNSession>& session);
  // Restores a stored report.
  static std::shared_ptr<ZLNReportSessionFirst> initWithDictionary(const Dictionary& dictionary);

  ReportKind kind() const override { return ReportKind::sessionFirst; }
  const char* className() const override { return "ZLNReportSessionFirst"; }

 protected:
  explicit ZLNReportSessionFirst(const std::shared_ptr<ZLNSession>& session);
  explicit ZLNReportSessionFirst(const Dictionary& dictionary);

 private:
  static const Kind kKind;
};

}  // namespace zln
