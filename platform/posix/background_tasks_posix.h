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
  // Runs the expiry handlers of the tasks with this identifier in the main queue and returns when
  // they have run. That ends the tasks without the host's `end`, so the host may use the identifier
  // again.
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
  // The oldest task with this identifier.
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
