#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <vector>

#include "ZLNSessionReporting/ZLNHost.h"
#include "platform/background_tasks.h"
#include "platform/dispatch.h"

namespace zln {

// Nothing limits the time in the background unless the host says so. The host's hooks answer for
// the tasks that were begun while they were set, also after other hooks have taken their place.
class BackgroundTasksPosix : public BackgroundTasks {
 public:
  explicit BackgroundTasksPosix(Dispatch& dispatch);

  // Absent takes the hooks away; given ones must be complete.
  void setHooks(std::optional<ZLNHostBackgroundTaskHooks> hooks);
  // Runs what the task with this identifier has for the end of its time, in the main queue, and
  // returns when it has run. A task is told once, and not after its end.
  void willExpire(BackgroundTaskId id);

  bool offersMultitaskingSupport() override { return true; }
  bool offersBegin() override { return true; }
  bool offersEnd() override { return true; }
  BackgroundTaskId begin(std::function<void()> expired) override;
  void end(BackgroundTaskId id) override;
  double remaining() override;

 private:
  using Hooks = std::optional<ZLNHostBackgroundTaskHooks>;

  struct Task {
    Hooks hooks;
    std::function<void()> expired;
  };

  Hooks hooks();
  BackgroundTaskId nextId();
  std::optional<Task> take(BackgroundTaskId id);
  std::vector<std::function<void()>> takeExpired(BackgroundTaskId id);

  Dispatch& dispatch_;
  std::mutex mutex_;
  Hooks hooks_;
  BackgroundTaskId lastId_ = kBackgroundTaskInvalid;
  // A host may give the same identifier again while the earlier task runs.
  std::multimap<BackgroundTaskId, Task> tasks_;
};

}  // namespace zln
