#include "platform/posix/thread_pool.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <utility>

#include "platform/posix/detached_thread.h"

namespace zln {

namespace {

// What a thread of a pool knows of itself.
struct Worker {
  const void* pool;
  // The first task that the running one has brought.
  std::function<void()> next;
};

thread_local Worker* workerOfThisThread = nullptr;

}  // namespace

// What the threads share. Each holds it, so it stays as long as one of them runs.
class ThreadPool::State : public std::enable_shared_from_this<State> {
 public:
  State(ThreadStarter startThread, std::chrono::milliseconds idleTime, Helper helper)
      : startThread_(std::move(startThread)), idleTime_(idleTime), helper_(std::move(helper)) {}

  void run(std::function<void()> task) {
    Worker* const worker = workerOfThisThread;
    if (worker != nullptr && worker->pool == this && !worker->next) {
      worker->next = std::move(task);
      return;
    }
    bool mustGrow;
    {
      std::lock_guard lock(mutex_);
      tasks_.push_back(std::move(task));
      mustGrow = wantThreadIfMissing();
    }
    taskCame_.notify_one();
    if (mustGrow) askHelper();
  }

  // A thread that calls this will be without work itself, sooner or later.
  void runWhenQuiet(std::function<void()> task) {
    bool mustGrow;
    {
      std::lock_guard lock(mutex_);
      quietTasks_.push_back(std::move(task));
      quietTaskNeedsThread_ = free_ == 0 && !isOnPool();
      mustGrow = wantThreadIfMissing();
    }
    if (mustGrow) askHelper();
  }

 private:
  // The lock is held. A free thread is one that waits or has yet to begin. Each free thread takes
  // one of the waiting tasks; another is needed when some are left then.
  bool isThreadMissing() const {
    return tasks_.size() + (quietTaskNeedsThread_ ? 1 : 0) > free_ + wanted_ &&
           threads_ + wanted_ < kMaxThreads;
  }

  // The lock is held. True when the caller is to see to it that threads are started.
  bool wantThreadIfMissing() {
    if (!isThreadMissing()) return false;
    quietTaskNeedsThread_ = false;
    return ++wanted_ == 1;
  }

  void askHelper() {
    if (helper_) {
      helper_([self = shared_from_this()] { self->grow(); });
    } else {
      grow();
    }
  }

  // The lock is open while a thread is started, which takes longer than all else here.
  void grow() {
    std::unique_lock lock(mutex_);
    while (wanted_ > 0) {
      --wanted_;
      ++threads_;
      ++free_;
      lock.unlock();
      const bool isStarted = startThread_([self = shared_from_this()] { self->work(); });
      lock.lock();
      if (isStarted) continue;
      --threads_;
      --free_;
      wanted_ = 0;
    }
  }

  void work() {
    Worker worker{this, nullptr};
    Worker* const outer = std::exchange(workerOfThisThread, &worker);
    std::unique_lock lock(mutex_);
    while (true) {
      if (taskCame_.wait_for(lock, idleTime_, [this] { return !tasks_.empty(); })) {
        runFirst(tasks_, worker, lock);
      } else if (!quietTasks_.empty()) {
        runFirst(quietTasks_, worker, lock);
      } else {
        break;
      }
    }
    --free_;
    --threads_;
    workerOfThisThread = outer;
  }

  // A thread that takes a task looks for missing threads as well, so the pool grows again as soon
  // as the system has threads again. The lock is open while tasks run and while what they hold is
  // destroyed.
  void runFirst(std::deque<std::function<void()>>& tasks, Worker& worker,
                std::unique_lock<std::mutex>& lock) {
    std::function<void()> task = std::move(tasks.front());
    tasks.pop_front();
    --free_;
    const bool mustGrow = wantThreadIfMissing();
    lock.unlock();
    if (mustGrow) grow();
    while (task) {
      task();
      task = nullptr;
      task.swap(worker.next);
    }
    lock.lock();
    ++free_;
  }

  const ThreadStarter startThread_;
  const std::chrono::milliseconds idleTime_;
  const Helper helper_;
  std::mutex mutex_;
  std::condition_variable taskCame_;
  std::deque<std::function<void()>> tasks_;
  std::deque<std::function<void()>> quietTasks_;
  std::size_t threads_ = 0;
  std::size_t free_ = 0;
  // Threads that somebody is about to start.
  std::size_t wanted_ = 0;
  bool quietTaskNeedsThread_ = false;
};

ThreadPool::ThreadPool(Helper helper)
    : ThreadPool(
          [](std::function<void()> body) {
            return startDetachedThread("ZLN pool", std::move(body));
          },
          kIdleTime, std::move(helper)) {}

ThreadPool::ThreadPool(ThreadStarter startThread, std::chrono::milliseconds idleTime, Helper helper)
    : state_(std::make_shared<State>(std::move(startThread), idleTime, std::move(helper))) {}

void ThreadPool::run(std::function<void()> task) { state_->run(std::move(task)); }

void ThreadPool::runWhenQuiet(std::function<void()> task) { state_->runWhenQuiet(std::move(task)); }

bool ThreadPool::isOnPool() { return workerOfThisThread != nullptr; }

}  // namespace zln
