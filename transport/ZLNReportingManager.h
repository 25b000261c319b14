#pragma once

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "platform/background_tasks.h"
#include "platform/barrier_queue.h"
#include "platform/files.h"
#include "platform/operation_queue.h"
#include "platform/turn_mutex.h"
#include "reports/ZLNReportBase.h"
#include "support/field.h"
#include "transport/ZLNReportOperationDelegate.h"
#include "transport/ZLNReportOperationPost.h"
#include "transport/queued_reports.h"
#include "transport/report_file_image.h"

namespace zln {

// Owns every report from queueing until delivery or drop: sends three at a time, tries again after
// temporary failures up to the limit, then holds the report until the application comes to the
// foreground. Writes all that is owed to "reports.json" at every change. Any thread may call it.
class ZLNReportingManager : public ZLNReportOperationDelegate,
                            public std::enable_shared_from_this<ZLNReportingManager> {
 public:
  // The one object of the process, made on the first call.
  static std::shared_ptr<ZLNReportingManager> sharedManager();
  // Takes up the stored reports on a thread of the pool. For sharedManager().
  static std::shared_ptr<ZLNReportingManager> init();

  ZLNReportingManager(const ZLNReportingManager&) = delete;
  ZLNReportingManager& operator=(const ZLNReportingManager&) = delete;

  // True when the report was queued, or dropped because the settings switch its kind off.
  bool queueReportForTransmission(const std::shared_ptr<ZLNReportBase>& report);
  // Sends what is queued, under a background task.
  void transmitPendingReports();
  // Null, with a line in the log, when the report is of no kind that can be sent.
  std::shared_ptr<ZLNReportOperationPost> getReportingOperationForReport(
      const std::shared_ptr<ZLNReportBase>& report);

  // Begins, or ends, the one background task that covers sending.
  void startBackgroundTask();
  void stopBackgroundTask();

  void applicationForegrounding();
  void applicationBackgrounding();

  void reportTransmittedSuccessfully(const std::shared_ptr<ZLNReportBase>& report) override;
  void reportFailedWithPermanentError(const std::shared_ptr<ZLNReportBase>& report,
                                      const Error& error) override;
  void reportFailedWithTemporaryError(const std::shared_ptr<ZLNReportBase>& report,
                                      const Error& error) override;

  // The file of the reports that are owed.
  static std::string savedReportsPath();
  void saveReports();
  // Writes all held reports and all queued ones but those given.
  void saveReportsExcept(const std::vector<std::shared_ptr<ZLNReportBase>>& left);
  // Queues the reports that an earlier process has left, once.
  void loadStoredReports();
  // Queues the held reports again, their failures forgotten.
  void restoreTemporaryErrorReports();

  OperationQueue& reportQueue() { return reportQueue_; }
  std::vector<std::shared_ptr<ZLNReportBase>> temporaryErrorReports();
  BackgroundTaskId backgroundTaskId() const { return backgroundTaskId_.get(); }

 private:
  ZLNReportingManager();

  void registerForNotifications();
  // The report file, opened before the first save replaces what an earlier process left there:
  // reports may be queued while the stored ones still wait for their thread. The caller has the
  // turn to save.
  AtomicFile& reportFile();
  // Steps of a save; the caller has the turn.
  void listHeldReports();
  bool writeListedReports();
  void prepareReportFile();
  // The report file, for a thread that has no turn to save.
  AtomicFile& openedReportFile();
  // Queues the reports of a stored list but those among `loaded`, to which it adds its own.
  void queueStoredReports(const Array& elements, std::set<std::string>& loaded);
  // The end of every outcome. The calling operation is still counted, so a queue of fewer than two
  // holds only the last one.
  void restAfterOutcome();

  OperationQueue reportQueue_;
  std::vector<std::shared_ptr<ZLNReportBase>> temporaryErrorReports_;
  BarrierQueue temporaryErrorReportsAccessQueue_{"temporaryErrorReportsAccessQueue"};
  Field<BackgroundTaskId> backgroundTaskId_{kBackgroundTaskInvalid};

  // Saves run one after the other, in the order of their asking, and the last one to begin wins.
  // Guards what follows.
  TurnMutex saving_;
  std::unique_ptr<AtomicFile> reportFile_;
  QueuedReports queuedReports_;
  ReportFileImage image_;
};

}  // namespace zln
