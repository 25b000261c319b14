#pragma once

#include <functional>
#include <memory>
#include <mutex>

#include "platform/posix/file_descriptor.h"

namespace zln {

// Has what was written reach the disk soon, without anybody waiting for it: about a second after
// the first of some writes the file that was written last is flushed, once.
class DelayedFlush : public std::enable_shared_from_this<DelayedFlush> {
 public:
  // Runs a task about a second later.
  using RunLater = std::function<void(std::function<void()> task)>;

  explicit DelayedFlush(RunLater runLater);

  // Returns at once. Any thread may call it.
  void wrote(const std::shared_ptr<FileDescriptor>& file);

 private:
  void flush();

  const RunLater runLater_;
  std::mutex mutex_;
  // Null when no flush is due.
  std::shared_ptr<FileDescriptor> newest_;
};

}  // namespace zln
