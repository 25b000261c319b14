#include "session/ZLNReportBackgroundMonitor.h"

#include "config/ZLNReportingConfig.h"
#include "support/log.h"
#include "support/process_state.h"

namespace zln {
namespace {

// What is left of the system's background time when waiting ends at the latest, in seconds.
constexpr double kRemainingTimeMargin = 10.0;
// Stands for the remaining time until it is first asked for, so that the first step always runs.
constexpr double kInitialTimeLeft = 999.0;

}  // namespace

std::shared_ptr<ZLNReportBackgroundMonitor> ZLNReportBackgroundMonitor::initWithDelegate(
    const std::shared_ptr<ZLNSessionBackgroundMonitorDelegate>& delegate) {
  std::shared_ptr<ZLNReportBackgroundMonitor> monitor(new ZLNReportBackgroundMonitor(delegate));
  if (environment().backgroundTasks.offersMultitaskingSupport()) {
    monitor->registerForNotifications();
  }
  return monitor;
}

ZLNReportBackgroundMonitor::ZLNReportBackgroundMonitor(
    const std::shared_ptr<ZLNSessionBackgroundMonitorDelegate>& delegate)
    : delegate_(delegate) {}

ZLNReportBackgroundMonitor::~ZLNReportBackgroundMonitor() {
  if (uploadTask() == kBackgroundTaskInvalid) return;
  logDebug("end monitor background task (on dealloc) %i", uploadTask());
  environment().backgroundTasks.end(uploadTask());
  setUploadTask(kBackgroundTaskInvalid);
}

void ZLNReportBackgroundMonitor::registerForNotifications() {
  environment().notificationCenter.addObserver(shared_from_this(),
                                               Notification::applicationDidEnterBackground,
                                               &ZLNReportBackgroundMonitor::doBackground);
}

void ZLNReportBackgroundMonitor::doBackground() {
  if (!environment().backgroundTasks.offersBegin()) return;
  environment().dispatch.globalAsync([self = shared_from_this()] { self->runWorker(); });
}

void ZLNReportBackgroundMonitor::runWorker() {
  BackgroundTasks& application = environment().backgroundTasks;
  logDebug("Starting background task");
  setUploadTask(application.begin([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->taskWillExpire();
  }));
  logDebug("Started background task %i", uploadTask());
  const double limit = static_cast<double>(
      ZLNReportingConfig::sharedConfig()->userSessionBackgroundTimeoutSeconds());
  // A monitor that is cancelled by now leaves the task open; its end or cancel() ends it.
  if (!isProcessing_.get()) return;
  if (!waitForTimeout(limit)) return;

  logSuperVerbose("Sending stop report from background task %i", uploadTask());
  if (const auto target = delegate()) {
    target->reportBackgroundMonitorTimerExpired(shared_from_this());
  }
  application.end(uploadTask());
  logDebug("Stopped background task %i", uploadTask());
  setUploadTask(kBackgroundTaskInvalid);
}

bool ZLNReportBackgroundMonitor::waitForTimeout(double limit) {
  Environment& system = environment();
  double timeLeft = kInitialTimeLeft;
  double elapsed = 0.0;
  while (uploadTask() != kBackgroundTaskInvalid) {
    if (!(timeLeft > kRemainingTimeMargin) || !(elapsed < limit)) return true;
    logSuperVerbose("Time left: %f", timeLeft);
    system.clock.sleep(1);
    system.dispatch.mainSync([&] {
      timeLeft = system.backgroundTasks.remaining();
      elapsed += 1.0;
    });
    if (!isProcessing_.get()) return false;
  }
  return false;
}

void ZLNReportBackgroundMonitor::taskWillExpire() {
  if (uploadTask() == kBackgroundTaskInvalid) return;
  // Kept: the task is not ended here; the worker sees that it is gone and returns.
  logDebug("Background task is getting killed %i", uploadTask());
  setUploadTask(kBackgroundTaskInvalid);
}

void ZLNReportBackgroundMonitor::cancel() {
  isProcessing_.set(false);
  endTask();
}

void ZLNReportBackgroundMonitor::endTask() {
  if (!environment().backgroundTasks.offersEnd()) return;
  if (uploadTask() == kBackgroundTaskInvalid) return;
  logDebug("end monitor background task %i", uploadTask());
  environment().backgroundTasks.end(uploadTask());
  setUploadTask(kBackgroundTaskInvalid);
}

std::string ZLNReportBackgroundMonitor::description() const {
  const FormatArgument arguments[] = {static_cast<const void*>(this), formatArgument(uploadTask())};
  return renderFormat("background task monitor %p with task id %i", arguments);
}

}  // namespace zln
