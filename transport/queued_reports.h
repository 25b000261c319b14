#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/operation_queue.h"
#include "reports/ZLNReportBase.h"
#include "transport/ZLNReportOperationBase.h"
#include "transport/report_file_image.h"

namespace zln {

// The queue as the report file shows it. It stays from save to save: an operation is looked into
// when it has come, and afterwards only a report that may change is, so that a save hardly touches
// the other operations of a long queue. One thread at a time uses it.
class QueuedReports {
 public:
  // Looks at the queue, running operations included: what is then listed.
  void follow(const OperationQueue& queue);
  // Lists the reports of the queue as it was looked at last, but not those of `left`.
  void list(const std::vector<std::shared_ptr<ZLNReportBase>>& left, ReportFileImage& image);

 private:
  struct Entry {
    std::uint64_t number = 0;
    // Set until its report is known.
    std::shared_ptr<Operation> operation;
    std::shared_ptr<ZLNReportBase> report;
    // Null when there is nothing to be listed.
    std::shared_ptr<const ReportElement> element;
    // There is an element, and it never changes.
    bool isSteady = false;
  };

  void forgetReplaced();
  static void lookInto(Entry& entry, const std::vector<std::shared_ptr<ZLNReportBase>>& left);
  static void findReport(Entry& entry);

  std::uint64_t replacements_ = ZLNReportOperationBase::replacements();
  OperationQueue::Mark mark_;
  // In the queue's order, which is that of the numbers.
  std::vector<Entry> entries_;
};

}  // namespace zln
