#include "platform/posix/delayed_flush.h"

#include <unistd.h>

#include <utility>

namespace zln {

DelayedFlush::DelayedFlush(RunLater runLater) : runLater_(std::move(runLater)) {}

void DelayedFlush::wrote(const std::shared_ptr<FileDescriptor>& file) {
  {
    std::lock_guard lock(mutex_);
    const bool isDue = newest_ != nullptr;
    newest_ = file;
    if (isDue) return;
  }
  runLater_([self = shared_from_this()] { self->flush(); });
}

void DelayedFlush::flush() {
  std::shared_ptr<FileDescriptor> file;
  {
    std::lock_guard lock(mutex_);
    file.swap(newest_);
  }
  // A failure has nobody to be told; the file is as safe as before.
  fsync(file->get());
}

}  // namespace zln
