#include <algorithm>
#include <mutex>
#include <optional>
#include <utility>

#include "platform/path.h"
#include "reports/ZLNReportFactory.h"
#include "support/ZLNDirectories.h"
#include "support/held_log_lines.h"
#include "support/log.h"
#include "support/process_state.h"
#include "transport/ZLNReportingManager.h"

namespace zln {

std::string ZLNReportingManager::savedReportsPath() {
  return appendPathComponent(ZLNDirectories::reportingPath(), "reports.json");
}

void ZLNReportingManager::saveReports() { saveReportsExcept({}); }

void ZLNReportingManager::saveReportsExcept(const Reports& left) {
  HeldLogLines lines;
  std::lock_guard turn(saving_);
  tellOfSave(writeReports(left));
}

// Where nothing but this move has happened since the last save, the file has the list already.
void ZLNReportingManager::saveMovedReport() {
  HeldLogLines lines;
  std::lock_guard turn(saving_);
  const bool isSame = !hasChanged_.get() && reportQueue_.departures() == listedDepartures_;
  ++savedReports_;
  tellOfSave((isSame && !isLogged(LogLevel::verbose)) || writeReports({}));
}

void ZLNReportingManager::tellOfSave(bool isWritten) {
  if (isWritten) {
    logDebug("saved %i reports", savedReports_);
  } else {
    logWarn("failed to save %i pending reports!", savedReports_);
  }
}

// Reports go round: from the queue to the holding, from there to those that wait to be queued
// again, and back to the queue. Each step is a barrier, or, for the holding, is over before the
// operation leaves the queue. So all three are listed in one block, and of the queue what it had
// before.
bool ZLNReportingManager::writeReports(const Reports& left) {
  ReportFile& file = reportFile();
  hasChanged_.set(false);
  hasDropped_.set(false);
  file.begin();
  listedDepartures_ = reportQueue_.departures();
  const std::size_t queued = reportQueue_.operationCount();
  std::size_t operations = 0;
  Reports waiting;
  temporaryErrorReportsAccessQueue_.read([&] {
    // Kept: a held report is written also when it is to be left out.
    for (const auto& report : temporaryErrorReports_) list(report);
    const bool tellsOfEach = isLogged(LogLevel::verbose);
    reportQueue_.visit([&](const std::shared_ptr<Operation>& operation) {
      if (operations == queued) return;
      ++operations;
      if (tellsOfEach || !file.keep(operation.get(), left)) listOperation(operation, left);
    });
    for (const auto& report : waitingReports_) waiting.push_back(report);
  });
  savedReports_ = file.count();
  for (const auto& report : waiting) list(report);
  const bool isWritten = file.write();
  if (!isWritten) hasChanged_.set(true);
  return isWritten;
}

void ZLNReportingManager::list(const std::shared_ptr<ZLNReportBase>& report) {
  if (!reportFile().add(report, report)) logError("unable to serialize report %@", report);
}

void ZLNReportingManager::listOperation(const std::shared_ptr<Operation>& operation,
                                        const Reports& left) {
  const auto* carrier = dynamic_cast<const ZLNReportOperationBase*>(operation.get());
  if (carrier == nullptr) {
    logError("unexpected report in op queue: %@", operation);
    return;
  }
  const auto report = carrier->report();
  if (std::find(left.begin(), left.end(), report) != left.end()) return;
  if (!report || !reportFile().add(operation, report)) {
    logError("unable to serialize report %@", report);
  } else {
    logVerbose("saving report %@ to %@", report, report->urlString());
  }
}

// The spare file is in the root folder, whose contents nothing lists or clears.
ReportFile& ZLNReportingManager::reportFile() {
  if (!reportFile_) {
    reportFile_.emplace(savedReportsPath(),
                        appendPathComponent(ZLNDirectories::rootPath(), ".reports.json.spare"));
  }
  return *reportFile_;
}

// All reports are made before the first is queued, so that each is listed at every moment. What
// that logs is written when its report's turn has come.
void ZLNReportingManager::loadStoredReports() {
  struct Loaded {
    std::shared_ptr<ZLNReportBase> report;
    std::vector<std::string> lines;
  };
  ReportFile::Stored stored;
  {
    std::lock_guard turn(saving_);
    stored = reportFile().stored();
  }
  std::vector<Loaded> loaded;
  Reports reports;
  for (const Value& element : ReportFile::listIn(stored)) {
    HeldLogLines lines;
    const auto report = reportFrom(element);
    loaded.push_back({report, lines.release()});
    if (!report) continue;
    reports.push_back(report);
    // Cached from here on, so that the next save, which may be the game's, finds it made.
    report->toElement();
  }
  {
    std::lock_guard turn(saving_);
    const bool isCarried = reportFile().forgetStored();
    if (isCarried && reports.size() < loaded.size()) hasDropped_.set(true);
    temporaryErrorReportsAccessQueue_.barrier([&] { wait(reports); });
  }
  for (const Loaded& one : loaded) {
    for (const std::string& line : one.lines) environment().logSink.write(line);
    if (one.report) queueReportForTransmission(one.report);
  }
  saveDropped();
}

std::shared_ptr<ZLNReportBase> ZLNReportingManager::reportFrom(const Value& element) {
  const Dictionary* dictionary = element.dictionary();
  auto report = dictionary ? ZLNReportFactory::newReportFromDictionary(*dictionary) : nullptr;
  if (report) {
    logVerbose("recovered report %@ to %@", report, report->urlString());
  } else {
    logError("unable to recover report from %@", element);
  }
  return report;
}

void ZLNReportingManager::restoreTemporaryErrorReports() {
  Reports restored;
  temporaryErrorReportsAccessQueue_.barrier([&] {
    logDebug("temporary error\"d reports restoring");
    for (const auto& report : temporaryErrorReports_) report->setTemporaryFailureCount(0);
    restored.swap(temporaryErrorReports_);
    wait(restored);
  });
  for (const auto& report : restored) queueReportForTransmission(report);
  saveDropped();
}

void ZLNReportingManager::wait(const Reports& reports) {
  for (const auto& report : reports) waitingReports_.push_back(report);
  if (!reports.empty()) hasChanged_.set(true);
}

bool ZLNReportingManager::stopWaiting(const std::shared_ptr<ZLNReportBase>& report) {
  const auto found = std::find(waitingReports_.begin(), waitingReports_.end(), report);
  if (found == waitingReports_.end()) return false;
  const bool isFirst = found == waitingReports_.begin();
  waitingReports_.erase(found);
  if (!isFirst) hasChanged_.set(true);
  return isFirst;
}

// A report that waited and was not queued leaves the file without a save of its own.
void ZLNReportingManager::drop(const std::shared_ptr<ZLNReportBase>& report) {
  temporaryErrorReportsAccessQueue_.barrier([&] {
    const auto before = waitingReports_.size();
    stopWaiting(report);
    if (waitingReports_.size() == before) return;
    hasChanged_.set(true);
    hasDropped_.set(true);
  });
}

// After dropped reports, or carried elements that are no reports, that no save has followed. It is
// no save that anybody is told of.
void ZLNReportingManager::saveDropped() {
  HeldLogLines lines;
  std::lock_guard turn(saving_);
  if (hasDropped_.get()) writeReports({});
  lines.release();
}

ZLNReportingManager::Reports ZLNReportingManager::temporaryErrorReports() {
  Reports held;
  temporaryErrorReportsAccessQueue_.read([&] { held = temporaryErrorReports_; });
  return held;
}

}  // namespace zln
