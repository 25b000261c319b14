#pragma once

#include <functional>
#include <memory>

#include "platform/dispatch.h"
#include "platform/posix/thread_pool.h"

namespace zln {

// The main queue is a thread of the library's own, made on first use and kept to the end of the
// process: no event loop of the game has to be known. The other tasks run on the pool.
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

 private:
  class MainQueue;

  ThreadPool& pool_;
  std::shared_ptr<MainQueue> main_;
};

}  // namespace zln
