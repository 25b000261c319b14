#include "platform/posix/delayed_flush.h"

#include <unistd.h>

#include <utility>

namespace zln {

DelayedFlush::DelayedFlush(RunLater runLater, MayWait mayWait,
                           std::chrono::milliseconds longestDelay)
    : runLater_(std::move(runLater)), mayWait_(std::move(mayWait)), longestDelay_(longestDelay) {}

void DelayedFlush::wrote(const std::shared_ptr<FileDescriptor>& file) {
  const auto now = std::chrono::steady_clock::now();
  bool isScheduled;
  bool isLate;
  {
    std::lock_guard lock(mutex_);
    if (!newest_) since_ = now;
    newest_ = file;
    isScheduled = std::exchange(isScheduled_, true);
    isLate = now - since_ >= longestDelay_;
  }
  if (!isScheduled) runLater_([self = shared_from_this()] { self->flushScheduled(); });
  if (isLate && mayWait_()) flush();
}

void DelayedFlush::flushScheduled() {
  {
    std::lock_guard lock(mutex_);
    isScheduled_ = false;
  }
  flush();
}

void DelayedFlush::flush() {
  std::shared_ptr<FileDescriptor> file;
  {
    std::lock_guard lock(mutex_);
    file.swap(newest_);
  }
  // A failure has nobody to be told; the file is as safe as before.
  if (file) fsync(file->get());
}

}  // namespace zln
