#include "transport/ZLNReportingManager.h"

#include "config/ZLNReportingConfig.h"
#include "support/log.h"
#include "support/process_state.h"

namespace zln {
namespace {

constexpr std::size_t kConcurrentOperations = 3;
// Kept: one more than the round thousand.
constexpr std::size_t kQueueLimit = 1001;

bool isSwitchedOff(ReportKind kind) {
  const auto settings = ZLNReportingConfig::sharedConfig();
  switch (kind) {
    case ReportKind::sessionStart:
      return !settings->sendStartSessionReports();
    case ReportKind::sessionStop:
      return !settings->sendStopSessionReports();
    case ReportKind::sessionFirst:
      return !settings->sendFirstSessionReports();
    default:
      return false;
  }
}

std::optional<std::string> urlOf(const std::shared_ptr<ZLNReportBase>& report) {
  if (!report) return std::nullopt;
  return report->urlString();
}

bool transmitsImmediately() {
  return ZLNReportingConfig::sharedConfig()->transmitReportsImmediately();
}

}  // namespace

std::shared_ptr<ZLNReportingManager> ZLNReportingManager::sharedManager() {
  return processState().reportingManager.get(&ZLNReportingManager::init);
}

std::shared_ptr<ZLNReportingManager> ZLNReportingManager::init() {
  std::shared_ptr<ZLNReportingManager> manager(new ZLNReportingManager);
  manager->registerForNotifications();
  environment().dispatch.globalAsync([manager] {
    manager->loadStoredReports();
    if (transmitsImmediately()) manager->transmitPendingReports();
  });
  return manager;
}

ZLNReportingManager::ZLNReportingManager() : reportQueue_(environment().dispatch) {
  reportQueue_.setMaxConcurrentOperationCount(kConcurrentOperations);
  if (!transmitsImmediately()) reportQueue_.setSuspended(true);
}

void ZLNReportingManager::registerForNotifications() {
  NotificationCenter& center = environment().notificationCenter;
  center.addObserver(shared_from_this(), Notification::applicationWillEnterForeground,
                     &ZLNReportingManager::applicationForegrounding);
  center.addObserver(shared_from_this(), Notification::applicationDidEnterBackground,
                     &ZLNReportingManager::applicationBackgrounding);
}

void ZLNReportingManager::applicationForegrounding() {
  restoreTemporaryErrorReports();
  if (ZLNReportingConfig::sharedConfig()->transmitReportsOnApplicationForegrounding()) {
    transmitPendingReports();
  }
}

void ZLNReportingManager::applicationBackgrounding() {
  if (ZLNReportingConfig::sharedConfig()->transmitReportsOnApplicationBackgrounding()) {
    transmitPendingReports();
  }
  saveReports();
}

bool ZLNReportingManager::queueReportForTransmission(const std::shared_ptr<ZLNReportBase>& report) {
  if (!report) {
    logDebug("attempted to queue nil report");
    return false;
  }
  if (isSwitchedOff(report->kind())) {
    drop(report);
    return true;
  }
  logDebug("queue report %@", report);
  const auto operation = getReportingOperationForReport(report);
  if (!operation) {
    logError("unable to queue report %@", report);
    drop(report);
    saveReports();
    return false;
  }
  if (operation->queuePriority() <= 0 && reportQueue_.operationCount() >= kQueueLimit) {
    logError("cannot queue report, queue is full");
    drop(report);
    return false;
  }
  bool hasMoved = false;
  temporaryErrorReportsAccessQueue_.barrier([&] {
    reportQueue_.addOperation(operation);
    hasMoved = stopWaiting(report);
    if (!hasMoved) hasChanged_.set(true);
  });
  if (transmitsImmediately()) transmitPendingReports();
  hasMoved ? saveMovedReport() : saveReports();
  return true;
}

std::shared_ptr<ZLNReportOperationPost> ZLNReportingManager::getReportingOperationForReport(
    const std::shared_ptr<ZLNReportBase>& report) {
  if (!report || report->kind() == ReportKind::other) {
    logError("unexpected report type %@", report ? report->className() : nullptr);
    return nullptr;
  }
  return ZLNReportOperationPost::initWithReport(report, true, shared_from_this());
}

void ZLNReportingManager::transmitPendingReports() {
  logDebug("transmit reports");
  if (reportQueue_.operationCount() == 0) return;
  startBackgroundTask();
  reportQueue_.setSuspended(false);
}

void ZLNReportingManager::startBackgroundTask() {
  if (backgroundTaskId_.get() != kBackgroundTaskInvalid) return;
  backgroundTaskId_.set(environment().backgroundTasks.begin([weak = weak_from_this()] {
    const auto self = weak.lock();
    if (!self) return;
    self->saveReports();
    // Kept: the task is not ended here.
    self->backgroundTaskId_.set(kBackgroundTaskInvalid);
  }));
  logVerbose("manager background task started %i", backgroundTaskId_.get());
}

void ZLNReportingManager::stopBackgroundTask() {
  if (backgroundTaskId_.get() == kBackgroundTaskInvalid) return;
  environment().backgroundTasks.end(backgroundTaskId_.get());
  logVerbose("manager background task stopped %i", backgroundTaskId_.get());
  backgroundTaskId_.set(kBackgroundTaskInvalid);
}

void ZLNReportingManager::reportTransmittedSuccessfully(
    const std::shared_ptr<ZLNReportBase>& report) {
  logDebug("report transmitted successfully");
  logVerbose("report %@ to %@ transmitted successfully", report, urlOf(report));
  saveReportsExcept({report});
  restAfterOutcome();
}

void ZLNReportingManager::reportFailedWithPermanentError(
    const std::shared_ptr<ZLNReportBase>& report, const Error& error) {
  logError("report failed with permanent error: %@", error);
  logVerbose("report %@ to %@ failed permanently", report, urlOf(report));
  saveReportsExcept({report});
  restAfterOutcome();
}

void ZLNReportingManager::reportFailedWithTemporaryError(
    const std::shared_ptr<ZLNReportBase>& report, const Error& error) {
  logWarn("report failed with temporary error: %@", error);
  logVerbose("report %@ to %@ failed temporarily", report, urlOf(report));
  saveReports();
  const std::int32_t failures = report->temporaryFailureCount() + 1;
  report->setTemporaryFailureCount(failures);
  if (failures < ZLNReportingConfig::sharedConfig()->reportTemporaryFailureLimit()) {
    queueReportForTransmission(report);
    return;
  }
  temporaryErrorReportsAccessQueue_.barrier([&] {
    logDebug("report added to temporary error holding");
    temporaryErrorReports_.push_back(report);
    hasChanged_.set(true);
  });
  restAfterOutcome();
}

void ZLNReportingManager::restAfterOutcome() {
  if (!transmitsImmediately() && reportQueue_.operationCount() < 2) {
    reportQueue_.setSuspended(true);
  }
  if (reportQueue_.operationCount() < 2) stopBackgroundTask();
}

}  // namespace zln
