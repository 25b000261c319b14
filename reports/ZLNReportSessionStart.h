#pragma once

#include <memory>

#include "reports/session_report.h"

namespace zln {

// Tells of every session that starts on an installation after the first.
class ZLNReportSessionStart : public SessionReport {
 public:
  static std::shared_ptr<ZLNReportSessionStart> reportWithSession(
      const std::shared_ptr<ZLNSession>& session);
  static std::shared_ptr<ZLNReportSessionStart> initWithSession(
      const std::shared_ptr<ZLNSession>& session);
  // Restores a stored report.
  static std::shared_ptr<ZLNReportSessionStart> initWithDictionary(const Dictionary& dictionary);

  ReportKind kind() const override { return ReportKind::sessionStart; }
  const char* className() const override { return "ZLNReportSessionStart"; }

 protected:
  explicit ZLNReportSessionStart(const std::shared_ptr<ZLNSession>& session);
  explicit ZLNReportSessionStart(const Dictionary& dictionary);

 private:
  static const Kind kKind;
};

}  // namespace zln
