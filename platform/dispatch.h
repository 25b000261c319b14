#pragma once

#include <functional>

namespace zln {

// The queues on which work runs. The tasks of the main queue run one after the other, as on the one
// main thread of an application. Any thread may call it; no task may throw.
class Dispatch {
 public:
  virtual ~Dispatch() = default;
  // Runs `task` in the main queue, after all that was posted before; returns at once, also when
  // called by a task of that queue.
  virtual void mainAsync(std::function<void()> task) = 0;
  // Runs `task` in the main queue in its turn and returns when it has run. Called by a task of that
  // queue it runs the task at once.
  virtual void mainSync(std::function<void()> task) = 0;
  // Runs `task` on a thread of the pool, beside other tasks; returns at once.
  virtual void globalAsync(std::function<void()> task) = 0;
};

}  // namespace zln
