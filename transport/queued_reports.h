#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "platform/operation_queue.h"
#include "reports/ZLNReportBase.h"
#include "transport/ZLNReportOperationBase.h"
#include "transport/report_file_image.h"

namespace zln {

// The queue as the report file shows it. It stays from save to save: an operation is looked into
// when it has come, and again only when its report may have changed, so that a save costs no more
// than a glance at each of a thousand operations. One thread at a time uses it.
class QueuedReports {
 public:
  // Lists the reports of the queue, running ones included, but not those of `left`.
  void list(const OperationQueue& queue, const std::vector<std::shared_ptr<ZLNReportBase>>& left,
            ReportFileImage& image);

 private:
  struct Entry {
    std::uint64_t number;
    // Set when the operation has to be looked into.
    std::shared_ptr<Operation> changed;

    // What was found. The operation keeps its report, and the queue the operation: the two pointers
    // hold as long as the queue shows that operation with the same revision.
    const ZLNReportOperationBase* operation = nullptr;
    std::uint32_t reportRevision = 0;
    const ZLNReportBase* report = nullptr;
    std::optional<std::uint64_t> revision;
    // Null when there was nothing to be listed.
    std::shared_ptr<const ReportElement> element;
  };

  void follow(const OperationQueue& queue);
  static bool mayHaveChanged(const Entry& entry);
  static void lookInto(Entry& entry, const std::vector<std::shared_ptr<ZLNReportBase>>& left);

  // In the queue's order, which is that of the numbers.
  std::vector<Entry> entries_;
};

}  // namespace zln
