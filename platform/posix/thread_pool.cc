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
  State(ThreadStarter startThread, std::chrono::milliseconds idleTime)
      : startThread_(std::move(startThread)), idleTime_(idleTime) {}

  void run(std::function<void()> task) {
    Worker* const worker = workerOfThisThread;
    if (worker != nullptr && worker->pool == this && !worker->next) {
      worker->next = std::move(task);
      return;
    }
    {
      std::lock_guard lock(mutex_);
      tasks_.push_back(std::move(task));
      addThreadIfNeeded();
    }
    taskCame_.notify_one();
  }

  // A thread that calls this will be without work itself, sooner or later.
  void runWhenQuiet(std::function<void()> task) {
    std::lock_guard lock(mutex_);
    quietTasks_.push_back(std::move(task));
    if (free_ == 0 && !isOnPool()) addThread();
  }

 private:
  // The lock is held. A free thread is one that waits or has yet to begin. Each free thread takes
  // one of the waiting tasks; another is needed when some are left then. A thread that takes a task
  // asks as well, so the pool grows again as soon as the system has threads again.
  void addThreadIfNeeded() {
    if (tasks_.size() > free_) addThread();
  }

  void addThread() {
    if (threads_ == kMaxThreads) return;
    if (!startThread_([self = shared_from_this()] { self->work(); })) return;
    ++threads_;
    ++free_;
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

  // The lock is open while tasks run and while what they hold is destroyed.
  void runFirst(std::deque<std::function<void()>>& tasks, Worker& worker,
                std::unique_lock<std::mutex>& lock) {
    std::function<void()> task = std::move(tasks.front());
    tasks.pop_front();
    --free_;
    addThreadIfNeeded();
    lock.unlock();
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
  std::mutex mutex_;
  std::condition_variable taskCame_;
  std::deque<std::function<void()>> tasks_;
  std::deque<std::function<void()>> quietTasks_;
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

void ThreadPool::runWhenQuiet(std::function<void()> task) { state_->runWhenQuiet(std::move(task)); }

bool ThreadPool::isOnPool() { return workerOfThisThread != nullptr; }

}  // namespace zln
