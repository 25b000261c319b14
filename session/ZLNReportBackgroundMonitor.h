#pragma once

#include <memory>
#include <string>

#include "platform/background_tasks.h"
#include "session/ZLNSessionBackgroundMonitorDelegate.h"
#include "support/field.h"

namespace zln {

// Waits out the time that a session may stay in the background. Made by the session manager when
// the application resigns active; once the application is in the background it holds a background
// task, waits in steps of one second on a worker thread and then tells its delegate.
class ZLNReportBackgroundMonitor : public std::enable_shared_from_this<ZLNReportBackgroundMonitor> {
 public:
  // Armed: it waits for the application to enter the background. The delegate is held weakly.
  static std::shared_ptr<ZLNReportBackgroundMonitor> initWithDelegate(
      const std::shared_ptr<ZLNSessionBackgroundMonitorDelegate>& delegate);

  ZLNReportBackgroundMonitor(const ZLNReportBackgroundMonitor&) = delete;
  ZLNReportBackgroundMonitor& operator=(const ZLNReportBackgroundMonitor&) = delete;
  ~ZLNReportBackgroundMonitor();

  // Ends the wait and the background task. The worker returns within about a second, without
  // telling the delegate.
  void cancel();
  // Ends the background task, if there is one.
  void endTask();

  BackgroundTaskId uploadTask() const { return uploadTask_.get(); }
  void setUploadTask(BackgroundTaskId task) { uploadTask_.set(task); }
  std::shared_ptr<ZLNSessionBackgroundMonitorDelegate> delegate() const {
    return delegate_.get().lock();
  }
  void setDelegate(const std::shared_ptr<ZLNSessionBackgroundMonitorDelegate>& delegate) {
    delegate_.set(delegate);
  }

  std::string description() const;

 private:
  explicit ZLNReportBackgroundMonitor(
      const std::shared_ptr<ZLNSessionBackgroundMonitorDelegate>& delegate);

  void registerForNotifications();
  // The application is in the background: starts the worker.
  void doBackground();
  void runWorker();
  // True when the time is up, false when the wait was ended from outside.
  bool waitForTimeout(double limit);
  void taskWillExpire();

  Field<bool> isProcessing_{true};
  Field<BackgroundTaskId> uploadTask_{kBackgroundTaskInvalid};
  Field<std::weak_ptr<ZLNSessionBackgroundMonitorDelegate>> delegate_;
};

}  // namespace zln
