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
  // The last task that the running one has brought.
  std::function<void()> next;
};

thread_local Worker* workerOfThisThread = nullptr;

}  // namespace

// What the threads share. Each holds it, so it stays as long as one of them runs.
class ThreadPool::State : public std::enable_shared_from_this<State> {
  using Clock = std::chrono::steady_clock;

  struct LaterTask {
    Clock::time_point due;
    std::function<void()> task;
  };

 public:
  State(ThreadStarter startThread, std::chrono::milliseconds idleTime, Helper helper)
      : startThread_(std::move(startThread)), idleTime_(idleTime), helper_(std::move(helper)) {}

  void run(std::function<void()> task) {
    Worker* const worker = workerOfThisThread;
    if (worker != nullptr && worker->pool == this) {
      task.swap(worker->next);
      if (!task) return;
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

  // A thread of the pool that calls this will come to it itself, sooner or later.
  void runLater(std::function<void()> task) {
    bool mustGrow;
    {
      std::lock_guard lock(mutex_);
      laterTasks_.push_back({Clock::now() + idleTime_, std::move(task)});
      laterTaskNeedsThread_ = free_ == 0 && workerOfThisThread == nullptr;
      mustGrow = wantThreadIfMissing();
    }
    if (mustGrow) askHelper();
  }

 private:
  // The lock is held. A free thread is one that waits or has yet to begin. Each free thread takes
  // one of the waiting tasks; another is needed when some are left then.
  bool isThreadMissing() const {
    return tasks_.size() + (laterTaskNeedsThread_ ? 1 : 0) > free_ + wanted_ &&
           threads_ + wanted_ < kMaxThreads;
  }

  // The lock is held. True when the caller is to see to it that threads are started.
  bool wantThreadIfMissing() {
    if (!isThreadMissing()) return false;
    laterTaskNeedsThread_ = false;
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
      std::function<void()> task;
      if (taskCame_.wait_for(lock, idleTime_, [this] { return !tasks_.empty(); })) {
        task = std::move(tasks_.front());
        tasks_.pop_front();
      } else if (!laterTasks_.empty()) {
        task = takeDue();
      } else {
        break;
      }
      if (task) runChain(std::move(task), worker, lock);
    }
    --free_;
    --threads_;
    workerOfThisThread = outer;
  }

  // A thread that takes a task looks for missing threads as well, so the pool grows again as soon
  // as the system has threads again. The lock is open while tasks run and while what they hold is
  // destroyed.
  void runChain(std::function<void()> task, Worker& worker, std::unique_lock<std::mutex>& lock) {
    --free_;
    const bool mustGrow = wantThreadIfMissing();
    lock.unlock();
    if (mustGrow) grow();
    while (task) {
      task();
      task = nullptr;
      task.swap(worker.next);
      // A chain of tasks may be long.
      if (task) runDue();
    }
    lock.lock();
    ++free_;
  }

  void runDue() {
    std::unique_lock lock(mutex_);
    const std::function<void()> task = takeDue();
    lock.unlock();
    if (task) task();
  }

  // The lock is held. Nothing when none is due yet.
  std::function<void()> takeDue() {
    if (laterTasks_.empty() || Clock::now() < laterTasks_.front().due) return nullptr;
    std::function<void()> task = std::move(laterTasks_.front().task);
    laterTasks_.pop_front();
    return task;
  }

  const ThreadStarter startThread_;
  const std::chrono::milliseconds idleTime_;
  const Helper helper_;
  std::mutex mutex_;
  std::condition_variable taskCame_;
  std::deque<std::function<void()>> tasks_;
  std::deque<LaterTask> laterTasks_;
  std::size_t threads_ = 0;
  std::size_t free_ = 0;
  // Threads that somebody is about to start.
  std::size_t wanted_ = 0;
  bool laterTaskNeedsThread_ = false;
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

void ThreadPool::runLater(std::function<void()> task) { state_->runLater(std::move(task)); }

}  // namespace zln
