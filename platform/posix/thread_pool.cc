#include "platform/posix/thread_pool.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <utility>

#include "platform/posix/detached_thread.h"

namespace zln {

// What the threads share. Each holds it, so it stays as long as one of them runs.
class ThreadPool::State : public std::enable_shared_from_this<State> {
 public:
  State(ThreadStarter startThread, std::chrono::milliseconds idleTime)
      : startThread_(std::move(startThread)), idleTime_(idleTime) {}

  void run(std::function<void()> task) {
    {
      std::lock_guard lock(mutex_);
      tasks_.push_back(std::move(task));
      addThreadIfNeeded();
    }
    taskCame_.notify_one();
  }

 private:
  // The lock is held. A free thread is one that waits or has yet to begin. Each free thread takes
  // one of the waiting tasks; another is needed when some are left then. A thread that takes a task
  // asks as well, so the pool grows again as soon as the system has threads again.
  void addThreadIfNeeded() {
    if (tasks_.size() <= free_ || threads_ == kMaxThreads) return;
    if (!startThread_([self = shared_from_this()] { self->work(); })) return;
    ++threads_;
    ++free_;
  }

  void work() {
    std::unique_lock lock(mutex_);
    while (taskCame_.wait_for(lock, idleTime_, [this] { return !tasks_.empty(); })) {
      runFirst(lock);
    }
    --free_;
    --threads_;
  }

  // The lock is open while the task runs and while what it holds is destroyed.
  void runFirst(std::unique_lock<std::mutex>& lock) {
    std::function<void()> task = std::move(tasks_.front());
    tasks_.pop_front();
    --free_;
    addThreadIfNeeded();
    lock.unlock();
    task();
    task = nullptr;
    lock.lock();
    ++free_;
  }

  const ThreadStarter startThread_;
  const std::chrono::milliseconds idleTime_;
  std::mutex mutex_;
  std::condition_variable taskCame_;
  std::deque<std::function<void()>> tasks_;
  std::size_t threads_ = 0;
  std::size_t free_ = 0;
};

ThreadPool::ThreadPool()
    : ThreadPool(
          [](std::function<void()> body) {
            return startDetachedThread("ZLN pool", std::move(body));
          },
          kIdleTime) {}

ThreadPool::ThreadPool(ThreadStarter startThread, std::chrono::milliseconds idleTime)
    : state_(std::make_shared<State>(std::move(startThread), idleTime)) {}

void ThreadPool::run(std::function<void()> task) { state_->run(std::move(task)); }

}  // namespace zln
