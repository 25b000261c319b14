#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/background_tasks.h"
#include "platform/barrier_queue.h"
#include "platform/operation_queue.h"
#include "reports/ZLNReportBase.h"
#include "support/field.h"
#include "transport/ZLNReportOperationDelegate.h"
#include "transport/ZLNReportOperationPost.h"
#include "transport/report_file.h"

namespace zln {

// Owns every report from queueing until delivery or drop: sends three at a time, tries again after
// temporary failures up to the limit, then holds the report until the application comes to the
// foreground. Writes the pending reports to "reports.json" at every change. Any thread may call it.
class ZLNReportingManager : public ZLNReportOperationDelegate,
                            public std::enable_shared_from_this<ZLNReportingManager> {
 public:
  using Reports = ReportFile::Reports;

  // The one object of the process, made on the first call.
  static std::shared_ptr<ZLNReportingManager> sharedManager();
  // Loads the stored reports on a thread of the pool. For sharedManager().
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

  // The file of the pending reports.
  static std::string savedReportsPath();
  void saveReports();
  // Writes all held reports and all queued ones but those given.
  void saveReportsExcept(const Reports& left);
  // Queues the reports that an earlier process has left, once.
  void loadStoredReports();
  // Queues the held reports again, their failures forgotten.
  void restoreTemporaryErrorReports();

  OperationQueue& reportQueue() { return reportQueue_; }
  Reports temporaryErrorReports();
  BackgroundTaskId backgroundTaskId() const { return backgroundTaskId_.get(); }

 private:
  ZLNReportingManager();

  void registerForNotifications();
  // The end of every outcome. The calling operation is still counted, so a queue of fewer than two
  // holds only the last one.
  void restAfterOutcome();

  // Steps of a save; the caller has the turn. False when the file could not be written.
  bool writeReports(const Reports& left);
  void list(const std::shared_ptr<ZLNReportBase>& report);
  void listOperation(const std::shared_ptr<Operation>& operation, const Reports& left);
  void tellOfSave(bool isWritten);
  ReportFile& reportFile();
  // The save for a report that has moved from the first of the waiting ones to the queue's end.
  void saveMovedReport();
  void saveDropped();

  // Null, with a line in the log, when no report can be made of it.
  static std::shared_ptr<ZLNReportBase> reportFrom(const Value& element);
  // Each inside a barrier. stopWaiting() says whether the report was the first that waited.
  void wait(const Reports& reports);
  bool stopWaiting(const std::shared_ptr<ZLNReportBase>& report);
  void drop(const std::shared_ptr<ZLNReportBase>& report);

  OperationQueue reportQueue_;
  Reports temporaryErrorReports_;
  // Loaded or restored, and on their way into the queue. Like the held reports touched only through
  // the access queue. The file lists the held, the queued and then these.
  std::list<std::shared_ptr<ZLNReportBase>> waitingReports_;
  BarrierQueue temporaryErrorReportsAccessQueue_{"temporaryErrorReportsAccessQueue"};
  Field<BackgroundTaskId> backgroundTaskId_{kBackgroundTaskInvalid};
  // Whether more has changed since the last save than that waiting reports were queued and
  // operations left the queue.
  Field<bool> hasChanged_{false};
  Field<bool> hasDropped_{false};

  // One thread saves at a time. Guards what follows.
  std::mutex saving_;
  std::optional<ReportFile> reportFile_;
  // How many operations had left the queue by the last save, and how many held and queued reports
  // it has saved.
  std::uint64_t listedDepartures_ = 0;
  std::size_t savedReports_ = 0;
};

}  // namespace zln
