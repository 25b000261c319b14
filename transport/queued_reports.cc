#include "transport/queued_reports.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <optional>
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

// Entries whose operation has left the queue go; the others keep their order, new ones follow them.
void QueuedReports::follow(const OperationQueue& queue) {
  forgetReplaced();
  std::vector<Entry> added;
  auto known = entries_.begin();
  auto kept = known;
  const auto shown =
      queue.follow(mark_, [&](std::uint64_t number, const std::shared_ptr<Operation>& operation) {
        if (entries_.empty() || entries_.back().number < number) {
          added.push_back({number, operation, nullptr, nullptr});
          return;
        }
        while (known->number < number) ++known;
        if (kept != known) *kept = std::move(*known);
        ++kept;
        ++known;
      });
  if (shown == OperationQueue::Shown::all) entries_.erase(kept, entries_.end());
  std::move(added.begin(), added.end(), std::back_inserter(entries_));
}

// A replaced report, which hardly ever happens, has everything looked into again.
void QueuedReports::forgetReplaced() {
  const std::uint64_t replacements = ZLNReportOperationBase::replacements();
  if (replacements == replacements_) return;
  replacements_ = replacements;
  entries_.clear();
  mark_ = {};
}

void QueuedReports::list(const std::vector<std::shared_ptr<ZLNReportBase>>& left,
                         ReportFileImage& image) {
  const bool tellsOfEach = isLogged(LogLevel::verbose);
  const bool leavesSome = !left.empty();
  for (Entry& entry : entries_) {
    if (!entry.isSteady) lookInto(entry, left);
    if (!entry.element || (leavesSome && isOneOf(left, entry.report.get()))) continue;
    if (tellsOfEach) {
      logVerbose("saving report %@ to %@", entry.report, entry.report->urlString());
    }
    image.add(entry.element);
  }
}

void QueuedReports::lookInto(Entry& entry,
                             const std::vector<std::shared_ptr<ZLNReportBase>>& left) {
  if (entry.operation) findReport(entry);
  if (entry.operation || isOneOf(left, entry.report.get())) return;
  const auto revision = entry.report ? entry.report->revision() : std::nullopt;
  entry.element = entry.report ? entry.report->toElement() : nullptr;
  if (!entry.element) logError("unable to serialize report %@", entry.report);
  entry.isSteady = entry.element && revision == ZLNReportBase::kUnchanging;
}

// An operation of another kind stays one at every save.
void QueuedReports::findReport(Entry& entry) {
  const auto* carrier = dynamic_cast<const ZLNReportOperationBase*>(entry.operation.get());
  if (carrier == nullptr) {
    logError("unexpected report in op queue: %@", entry.operation);
    return;
  }
  entry.report = carrier->report();
  entry.operation = nullptr;
}

}  // namespace zln
