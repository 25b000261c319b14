#pragma once

#include <functional>

namespace zln {

// The queues on which work runs. Any thread may call it; no task may throw.
class Dispatch {
 public:
  virtual ~Dispatch() = default;
  // Runs `task` on the main thread, after all that was posted before; returns at once, also when
  // called on the main thread.
  virtual void mainAsync(std::function<void()> task) = 0;
  // Runs `task` on the main thread in its turn and returns when it has run. Called on the main
  // thread itself it runs the task at once.
  virtual void mainSync(std::function<void()> task) = 0;
  // Runs `task` on a thread of the pool, beside other tasks; returns at once.
  virtual void globalAsync(std::function<void()> task) = 0;
};

}  // namespace zln
