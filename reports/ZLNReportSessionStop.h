#pragma once

#include <memory>

#include "reports/session_report.h"

namespace zln {

// Tells of a session that has stopped with plausible times.
class ZLNReportSessionStop : public SessionReport {
 public:
  static std::shared_ptr<ZLNReportSessionStop> reportWithSession(
      const std::shared_ptr<ZLNSession>& session);
  static std::shared_ptr<ZLNReportSessionStop> initWithSession(
      const std::shared_ptr<ZLNSession>& session);
  // Restores a stored report.
  static std::shared_ptr<ZLNReportSessionStop> initWithDictionary(const Dictionary& dictionary);

  ReportKind kind() const override { return ReportKind::sessionStop; }
  const char* className() const override { return "ZLNReportSessionStop"; }

 protected:
  explicit ZLNReportSessionStop(const std::shared_ptr<ZLNSession>& session);
  explicit ZLNReportSessionStop(const Dictionary& dictionary);

 private:
  static const Kind kKind;
};

}  // namespace zln
