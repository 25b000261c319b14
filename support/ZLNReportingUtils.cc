#include "support/ZLNReportingUtils.h"

#include <utility>

#include "platform/utf8.h"
#include "support/process_state.h"

namespace zln {

std::optional<std::string> ZLNReportingUtils::getDeviceName() {
  std::string machine = environment().deviceFacts.machine();
  if (!isValidUtf8(machine)) return std::nullopt;
  return machine;
}

void ZLNReportingUtils::setMarlwickVersion(std::optional<std::string> version) {
  processState().marlwickVersion.set(std::move(version));
}

std::optional<std::string> ZLNReportingUtils::getMarlwickVersion() {
  return processState().marlwickVersion.get();
}

std::optional<std::string> ZLNReportingUtils::getReportingVersion() {
  return environment().deviceFacts.libraryBundleValue(kBundleShortVersionKey);
}

void ZLNReportingUtils::enable() { processState().enabled.set(true); }

bool ZLNReportingUtils::isEnabled() { return processState().enabled.get(); }

}  // namespace zln
