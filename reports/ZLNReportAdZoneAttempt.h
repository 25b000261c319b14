#pragma once

#include <memory>
#include <optional>
#include <string>

#include "reports/ad_report.h"

namespace zln {

// Tells of one attempt to show an advertisement in a zone of the game.
class ZLNReportAdZoneAttempt : public AdReport {
 public:
  // A new attempt. Throws std::invalid_argument when the network, the ad type or the zone is
  // absent.
  static std::shared_ptr<ZLNReportAdZoneAttempt> reportWithNetwork(
      std::optional<std::string> network, std::optional<std::string> adType,
      std::optional<std::string> zone, bool filled);
  // Builds a report from a creation dictionary or a stored one.
  static std::shared_ptr<ZLNReportAdZoneAttempt> initWithDictionary(const Dictionary& dictionary);

  ReportKind kind() const override { return ReportKind::adZoneAttempt; }
  const char* className() const override { return "ZLNReportAdZoneAttempt"; }

  const std::optional<Value>& zoneId() const { return zoneId_; }

 protected:
  explicit ZLNReportAdZoneAttempt(const Dictionary& dictionary);

  void addKindKeys(Dictionary& dictionary) const override;

 private:
  static const Kind kKind;

  std::optional<Value> zoneId_;
};

}  // namespace zln
