#include <cstddef>
#include <mutex>
#include <optional>

#include "platform/path.h"
#include "platform/property_list.h"
#include "reports/ZLNReportFactory.h"
#include "support/ZLNDirectories.h"
#include "support/held_log_lines.h"
#include "support/log.h"
#include "support/process_state.h"
#include "transport/ZLNReportingManager.h"

namespace zln {
namespace {

// A full queue of reports with long texts still fits.
constexpr std::size_t kLargestFile = std::size_t{64} << 20;

// In the root folder, whose contents nothing lists or clears.
std::string sparePath() {
  return appendPathComponent(ZLNDirectories::rootPath(), ".reports.json.spare");
}

}  // namespace

std::string ZLNReportingManager::savedReportsPath() {
  return appendPathComponent(ZLNDirectories::reportingPath(), "reports.json");
}

void ZLNReportingManager::saveReports() { saveReportsExcept({}); }

void ZLNReportingManager::saveReportsExcept(
    const std::vector<std::shared_ptr<ZLNReportBase>>& left) {
  HeldLogLines lines;
  std::lock_guard turn(saving_);
  image_.begin();
  listHeldReports();
  queuedReports_.list(reportQueue_, left, image_);
  if (writeListedReports()) {
    logDebug("saved %i reports", image_.count());
  } else {
    logWarn("failed to save %i pending reports!", image_.count());
  }
}

// Kept: a held report is written also when it is to be left out.
void ZLNReportingManager::listHeldReports() {
  temporaryErrorReportsAccessQueue_.read([&] {
    for (const auto& report : temporaryErrorReports_) {
      const auto element = report->toElement();
      if (element) {
        image_.add(element);
      } else {
        logError("unable to serialize report %@", report);
      }
    }
  });
}

bool ZLNReportingManager::writeListedReports() {
  // Before anything is written: opening the file keeps what it holds now for the one who loads it.
  AtomicFile& file = reportFile();
  if (!image_.finish() || !file.replace(image_.text(), image_.unchanged(), nullptr)) return false;
  image_.written();
  return true;
}

AtomicFile& ZLNReportingManager::reportFile() {
  if (!reportFile_) {
    reportFile_ = environment().files.atomicFile(savedReportsPath(), sparePath());
  }
  return *reportFile_;
}

void ZLNReportingManager::loadStoredReports() {
  const std::optional<Value> root = readStoredReports();
  if (!root) {
    prepareReportFile();
    return;
  }
  for (const Value& element : *root->array()) {
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

// So that the first save, which may be the game's, finds all in place.
void ZLNReportingManager::prepareReportFile() {
  std::lock_guard turn(saving_);
  reportFile().prepare();
}

std::optional<Value> ZLNReportingManager::readStoredReports() {
  AtomicFile* file = nullptr;
  {
    std::lock_guard turn(saving_);
    file = &reportFile();
  }
  std::optional<Value> root;
  file->offerOldContent(kLargestFile, [&](const std::string& content) {
    root = property_list::read(content);
    if (root && root->array() == nullptr) root.reset();
    return root.has_value();
  });
  return root;
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
