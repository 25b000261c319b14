#include "reports/ZLNReportAdZoneAttempt.h"

#include <utility>

#include "reports/report_types.h"
#include "support/endpoints.h"

namespace zln {
namespace {

constexpr char kZoneIdKey[] = "zoneId";

}  // namespace

constinit const AdReport::Kind ZLNReportAdZoneAttempt::kKind = {kAdZoneAttemptUrl,
                                                                kReportTypeAdZoneAttempt};

std::shared_ptr<ZLNReportAdZoneAttempt> ZLNReportAdZoneAttempt::reportWithNetwork(
    std::optional<std::string> network, std::optional<std::string> adType,
    std::optional<std::string> zone, bool filled) {
  Dictionary dictionary = creationDictionary(std::move(network), std::move(adType), filled);
  dictionary.require(kZoneIdKey, std::move(zone));
  return initWithDictionary(dictionary);
}

std::shared_ptr<ZLNReportAdZoneAttempt> ZLNReportAdZoneAttempt::initWithDictionary(
    const Dictionary& dictionary) {
  return std::shared_ptr<ZLNReportAdZoneAttempt>(new ZLNReportAdZoneAttempt(dictionary));
}

ZLNReportAdZoneAttempt::ZLNReportAdZoneAttempt(const Dictionary& dictionary)
    : AdReport(kKind, dictionary), zoneId_(storedValue(dictionary, kZoneIdKey)) {}

void ZLNReportAdZoneAttempt::addKindKeys(Dictionary& dictionary) const {
  dictionary.set(kZoneIdKey, zoneId_.value_or("unknown"));
}

}  // namespace zln
