#include "collector/kept_reports.h"

#include <iterator>

namespace zln::collector {

void KeptReports::take(std::int64_t id, std::int64_t size) {
  kept_.push_back({id, size});
  bytes_ += size;
  while (areTooMany()) {
    lastGone_ = kept_.front().id;
    bytes_ -= kept_.front().size;
    kept_.pop_front();
  }
}

void KeptReports::forgetAll() {
  kept_.clear();
  bytes_ = 0;
}

bool KeptReports::areTooMany() const {
  return std::ssize(kept_) > 1 && (std::ssize(kept_) > limits_.reports || bytes_ > limits_.bytes);
}

}  // namespace zln::collector
