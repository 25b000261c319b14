#pragma once

#include <functional>
#include <memory>

#include "platform/dispatch.h"
#include "platform/posix/thread_pool.h"

namespace zln {

// The main queue has a thread of the library's own, made on first use and kept to the end of the
// process: no event loop of the game has to be known. A task that somebody waits for needs no other
// thread when the queue is free: it runs where it comes from, as two changes of threads take longer
// than most tasks. The other tasks run on the pool.
class DispatchPosix : public Dispatch {
 public:
  explicit DispatchPosix(ThreadPool& pool);
  // With another main thread than the library's own.
  DispatchPosix(ThreadPool& pool, ThreadPool::ThreadStarter startMainThread);

  // Where the system gives no thread, tasks wait for the next call to ask for one again; mainSync
  // asks until it gets one.
  void mainAsync(std::function<void()> task) override;
  void mainSync(std::function<void()> task) override;
  void globalAsync(std::function<void()> task) override;

  // Runs `work` on the main thread soon, beside the tasks of the main queue, and returns at once.
  void mainThreadBeside(std::function<void()> work);

 private:
  class MainQueue;

  void runInTurn(std::function<void()> task);

  ThreadPool& pool_;
  std::shared_ptr<MainQueue> main_;
};

}  // namespace zln
