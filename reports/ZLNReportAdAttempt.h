#pragma once

#include <memory>
#include <optional>
#include <string>

#include "reports/ad_report.h"

namespace zln {

// Tells of one attempt to show an advertisement.
class ZLNReportAdAttempt : public AdReport {
 public:
  // A new attempt. Throws std::invalid_argument when the network or the ad type is absent.
  static std::shared_ptr<ZLNReportAdAttempt> reportWithNetwork(std::optional<std::string> network,
                                                               std::optional<std::string> adType,
                                                               bool filled);
  // Builds a report from a creation dictionary or a stored one.
  static std::shared_ptr<ZLNReportAdAttempt> initWithDictionary(const Dictionary& dictionary);

  ReportKind kind() const override { return ReportKind::adAttempt; }
  const char* className() const override { return "ZLNReportAdAttempt"; }

 protected:
  explicit ZLNReportAdAttempt(const Dictionary& dictionary);

 private:
  static const Kind kKind;
};

}  // namespace zln
