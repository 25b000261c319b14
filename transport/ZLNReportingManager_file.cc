#include <algorithm>
#include <cstddef>
#include <optional>
#include <utility>

#include "platform/path.h"
#include "platform/property_list.h"
#include "reports/ZLNReportFactory.h"
#include "support/ZLNDirectories.h"
#include "support/log.h"
#include "support/process_state.h"
#include "transport/ZLNReportingManager.h"
#include "transport/report_file_image.h"

namespace zln {
namespace {

// A full queue of reports with long texts still fits.
constexpr std::size_t kLargestFile = std::size_t{64} << 20;

void addHeldReport(ReportFileImage& image, const std::shared_ptr<ZLNReportBase>& report) {
  const auto element = report->toElement();
  if (!element) {
    logError("unable to serialize report %@", report);
    return;
  }
  image.add(*element);
}

void addQueuedReport(ReportFileImage& image, const std::shared_ptr<ZLNReportBase>& report) {
  const auto element = report ? report->toElement() : nullptr;
  if (!element) {
    logError("unable to serialize report %@", report);
    return;
  }
  logVerbose("saving report %@ to %@", report, report->urlString());
  image.add(*element);
}

}  // namespace

std::string ZLNReportingManager::savedReportsPath() {
  return appendPathComponent(ZLNDirectories::reportingPath(), "reports.json");
}

void ZLNReportingManager::saveReports() { saveReportsExcept({}); }

void ZLNReportingManager::saveReportsExcept(
    const std::vector<std::shared_ptr<ZLNReportBase>>& left) {
  secureStoredReports();
  const std::uint64_t turn = ++lastTurn_;
  const auto operations = reportQueue_.operations();
  ReportFileImage image;
  temporaryErrorReportsAccessQueue_.read([&] {
    // Kept: a held report is written also when it is to be left out.
    for (const auto& report : temporaryErrorReports_) addHeldReport(image, report);
  });
  for (const auto& operation : operations) {
    const auto reportOperation = dynamic_cast<const ZLNReportOperationBase*>(operation.get());
    if (reportOperation == nullptr) {
      logError("unexpected report in op queue: %@", operation);
      continue;
    }
    const auto report = reportOperation->report();
    if (std::find(left.begin(), left.end(), report) == left.end()) addQueuedReport(image, report);
  }
  const std::optional<std::string> bytes = image.finish();
  if (!bytes || !replaceFile(turn, *bytes)) {
    logWarn("failed to save %i pending reports!", image.count());
  } else {
    logDebug("saved %i reports", image.count());
  }
}

bool ZLNReportingManager::replaceFile(std::uint64_t turn, const std::string& bytes) {
  std::lock_guard lock(writing_);
  if (turn < writtenTurn_) return true;
  if (!environment().files.writeAtomically(savedReportsPath(), bytes, nullptr)) return false;
  writtenTurn_ = turn;
  return true;
}

void ZLNReportingManager::loadStoredReports() {
  secureStoredReports();
  const std::optional<std::string> bytes = std::exchange(storedReports_, std::nullopt);
  const std::optional<Value> root = bytes ? property_list::read(*bytes) : std::nullopt;
  const Array* elements = root ? root->array() : nullptr;
  if (elements == nullptr) return;
  for (const Value& element : *elements) {
    const Dictionary* dictionary = element.dictionary();
    const auto report =
        dictionary ? ZLNReportFactory::newReportFromDictionary(*dictionary) : nullptr;
    if (!report) {
      logError("unable to recover report from %@", element);
      continue;
    }
    logVerbose("recovered report %@ to %@", report, report->urlString());
    queueReportForTransmission(report);
  }
}

void ZLNReportingManager::secureStoredReports() {
  std::call_once(storedReportsSecured_, [this] {
    storedReports_ = environment().files.read(savedReportsPath(), kLargestFile);
  });
}

void ZLNReportingManager::restoreTemporaryErrorReports() {
  std::vector<std::shared_ptr<ZLNReportBase>> restored;
  temporaryErrorReportsAccessQueue_.barrier([&] {
    logDebug("temporary error\"d reports restoring");
    for (const auto& report : temporaryErrorReports_) report->setTemporaryFailureCount(0);
    restored.swap(temporaryErrorReports_);
  });
  for (const auto& report : restored) queueReportForTransmission(report);
}

std::vector<std::shared_ptr<ZLNReportBase>> ZLNReportingManager::temporaryErrorReports() {
  std::vector<std::shared_ptr<ZLNReportBase>> held;
  temporaryErrorReportsAccessQueue_.read([&] { held = temporaryErrorReports_; });
  return held;
}

}  // namespace zln
