#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>

#include "platform/posix/file_descriptor.h"

namespace zln {

// Has what was written reach the disk soon, without a game's thread waiting for it: about a second
// after a burst of writes the file that was written last is flushed, once. Should the writing not
// end, a thread that may wait does that itself about once a second.
class DelayedFlush : public std::enable_shared_from_this<DelayedFlush> {
 public:
  // Runs a task when there has been nothing else to do for about a second.
  using RunLater = std::function<void(std::function<void()> task)>;
  // Says whether the calling thread may wait for the disk.
  using MayWait = std::function<bool()>;

  // How long a write may wait for the writing to end.
  static constexpr std::chrono::milliseconds kLongestDelay{1000};

  DelayedFlush(RunLater runLater, MayWait mayWait,
               std::chrono::milliseconds longestDelay = kLongestDelay);

  // Any thread may call it.
  void wrote(const std::shared_ptr<FileDescriptor>& file);

 private:
  void flushScheduled();
  void flush();

  const RunLater runLater_;
  const MayWait mayWait_;
  const std::chrono::milliseconds longestDelay_;
  std::mutex mutex_;
  bool isScheduled_ = false;
  // Null when all is flushed; else there since the moment beside it.
  std::shared_ptr<FileDescriptor> newest_;
  std::chrono::steady_clock::time_point since_;
};

}  // namespace zln
