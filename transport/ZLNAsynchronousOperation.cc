#include "transport/ZLNAsynchronousOperation.h"

namespace zln {

bool ZLNAsynchronousOperation::isExecuting() const {
  std::lock_guard lock(mutex_);
  return executing_.get();
}

bool ZLNAsynchronousOperation::isFinished() const {
  std::lock_guard lock(mutex_);
  return finished_.get();
}

void ZLNAsynchronousOperation::start() {
  if (isCancelled()) {
    setFinished(true);
    return;
  }
  setExecuting(true);
  main();
}

void ZLNAsynchronousOperation::completeOperation() {
  setExecuting(false);
  setFinished(true);
}

void ZLNAsynchronousOperation::setExecuting(bool executing) {
  // Kept: this test lies outside the lock, that of setFinished inside, and only this setter is
  // silent when nothing changes.
  if (executing == executing_.get()) return;
  willChangeValueForKey(kIsExecutingKey);
  {
    std::lock_guard lock(mutex_);
    executing_.set(executing);
  }
  didChangeValueForKey(kIsExecutingKey);
}

void ZLNAsynchronousOperation::setFinished(bool finished) {
  willChangeValueForKey(kIsFinishedKey);
  {
    std::lock_guard lock(mutex_);
    if (finished_.get() != finished) finished_.set(finished);
  }
  didChangeValueForKey(kIsFinishedKey);
}

}  // namespace zln
