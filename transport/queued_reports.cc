#include "transport/queued_reports.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "support/log.h"

namespace zln {
namespace {

bool isOneOf(const std::vector<std::shared_ptr<ZLNReportBase>>& reports,
             const ZLNReportBase* report) {
  return std::any_of(reports.begin(), reports.end(),
                     [&](const auto& other) { return other.get() == report; });
}

}  // namespace

void QueuedReports::list(const OperationQueue& queue,
                         const std::vector<std::shared_ptr<ZLNReportBase>>& left,
                         ReportFileImage& image) {
  follow(queue);
  for (Entry& entry : entries_) {
    if (entry.changed) lookInto(entry, left);
    if (entry.element && !isOneOf(left, entry.report)) image.add(entry.element);
  }
}

// Entries whose operation has left the queue go; the others keep their order, new ones follow them.
void QueuedReports::follow(const OperationQueue& queue) {
  const bool tellsOfEach = isLogged(LogLevel::verbose);
  const std::size_t known = entries_.size();
  std::size_t next = 0;
  std::size_t kept = 0;
  queue.visit([&](std::uint64_t number, const std::shared_ptr<Operation>& operation) {
    while (next < known && entries_[next].number < number) ++next;
    if (next == known) {
      Entry& added = entries_.emplace_back();
      added.number = number;
      added.changed = operation;
      return;
    }
    if (kept != next) entries_[kept] = std::move(entries_[next]);
    Entry& entry = entries_[kept];
    if (tellsOfEach || mayHaveChanged(entry)) entry.changed = operation;
    ++next;
    ++kept;
  });
  const auto begin = entries_.begin();
  entries_.erase(begin + static_cast<std::ptrdiff_t>(kept),
                 begin + static_cast<std::ptrdiff_t>(known));
}

bool QueuedReports::mayHaveChanged(const Entry& entry) {
  if (!entry.element || !entry.revision) return true;
  if (entry.operation->reportRevision() != entry.reportRevision) return true;
  return entry.revision != ZLNReportBase::kUnchanging && entry.report->revision() != entry.revision;
}

void QueuedReports::lookInto(Entry& entry,
                             const std::vector<std::shared_ptr<ZLNReportBase>>& left) {
  const auto looked = std::exchange(entry.changed, nullptr);
  entry.element = nullptr;
  entry.operation = dynamic_cast<const ZLNReportOperationBase*>(looked.get());
  if (entry.operation == nullptr) {
    logError("unexpected report in op queue: %@", looked);
    return;
  }
  // Revisions are read first: a change that comes in between is seen by the next save.
  entry.reportRevision = entry.operation->reportRevision();
  const auto report = entry.operation->report();
  entry.report = report.get();
  if (isOneOf(left, report.get())) return;
  entry.revision = report ? report->revision() : std::nullopt;
  entry.element = report ? report->toElement() : nullptr;
  if (!entry.element) {
    logError("unable to serialize report %@", report);
    return;
  }
  logVerbose("saving report %@ to %@", report, report->urlString());
}

}  // namespace zln
