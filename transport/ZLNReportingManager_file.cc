#include <cstddef>
#include <mutex>
#include <optional>
#include <set>

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

std::string textIn(const Dictionary& dictionary, const char* key) {
  const std::string* text = dictionary.findString(key);
  return text == nullptr ? "" : *text;
}

// What a stored report has in common with itself in another list, and with no other; empty when
// there is no such thing.
std::string identityOf(const Dictionary* report) {
  if (report == nullptr) return "";
  const std::string own = textIn(*report, "adEventId") + textIn(*report, "sessionId");
  return own.empty() ? "" : textIn(*report, "type") + own;
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
  // Looked at before what is held: a report that comes to be held meanwhile is in both, not in
  // none.
  queuedReports_.follow(reportQueue_);
  listHeldReports();
  queuedReports_.list(left, image_);
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

// Everything is queued before the offer returns: until then the file keeps what it offers.
void ZLNReportingManager::loadStoredReports() {
  std::set<std::string> loaded;
  bool isFound = false;
  openedReportFile().offerOldContent(kLargestFile, [&](const std::string& content) {
    const std::optional<Value> root = property_list::read(content);
    if (!root || root->array() == nullptr) return false;
    queueStoredReports(*root->array(), loaded);
    isFound = true;
    return true;
  });
  if (!isFound) prepareReportFile();
}

// A process that was killed while it loaded leaves two lists, with some reports in both.
void ZLNReportingManager::queueStoredReports(const Array& elements, std::set<std::string>& loaded) {
  std::set<std::string> loadedHere;
  for (const Value& element : elements) {
    const Dictionary* dictionary = element.dictionary();
    const std::string identity = identityOf(dictionary);
    if (loaded.contains(identity)) continue;
    const auto report =
        dictionary ? ZLNReportFactory::newReportFromDictionary(*dictionary) : nullptr;
    if (!report) {
      logError("unable to recover report from %@", element);
      continue;
    }
    logVerbose("recovered report %@ to %@", report, report->urlString());
    queueReportForTransmission(report);
    if (!identity.empty()) loadedHere.insert(identity);
  }
  loaded.merge(loadedHere);
}

// So that the first save, which may be the game's, finds all in place.
void ZLNReportingManager::prepareReportFile() {
  std::lock_guard turn(saving_);
  reportFile().prepare();
}

AtomicFile& ZLNReportingManager::openedReportFile() {
  std::lock_guard turn(saving_);
  return reportFile();
}

void ZLNReportingManager::restoreTemporaryErrorReports() {
  std::vector<std::shared_ptr<ZLNReportBase>> restored;
  temporaryErrorReportsAccessQueue_.barrier([&] {
    logDebug("temporary error\"d reports restoring");
    for (const auto& report : temporaryErrorReports_) report->setTemporaryFailureCount(0);
    restored.swap(temporaryErrorReports_);
  });
  if (restored.empty()) return;
  // From here on each save leaves out those that are not queued yet.
  openedReportFile().keep();
  for (const auto& report : restored) queueReportForTransmission(report);
  openedReportFile().release();
}

std::vector<std::shared_ptr<ZLNReportBase>> ZLNReportingManager::temporaryErrorReports() {
  std::vector<std::shared_ptr<ZLNReportBase>> held;
  temporaryErrorReportsAccessQueue_.read([&] { held = temporaryErrorReports_; });
  return held;
}

}  // namespace zln
