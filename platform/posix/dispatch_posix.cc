#include "platform/posix/dispatch_posix.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <semaphore>
#include <utility>

#include "platform/posix/detached_thread.h"

namespace zln {

namespace {

// How long mainSync waits before it asks again for a thread that the system has not given.
constexpr std::chrono::milliseconds kThreadRetryTime{50};

}  // namespace

// Tasks that run one after the other, each on the thread that hands it in when none is on its turn
// then, else on the main thread. That thread holds the queue, so it stays as long as the process.
class DispatchPosix::MainQueue : public std::enable_shared_from_this<MainQueue> {
 public:
  explicit MainQueue(ThreadPool::ThreadStarter startThread)
      : startThread_(std::move(startThread)) {}

  bool isOnThisThread() const { return queueOfThisThread == this; }

  // False when there is no main thread yet and none can be made.
  bool add(std::function<void()> task) { return addTo(tasks_, std::move(task)); }

  // Has the main thread do what needs no turn.
  void addChore(std::function<void()> chore) { addTo(chores_, std::move(chore)); }

  bool askForThread() {
    std::lock_guard lock(mutex_);
    return ensureThread();
  }

  // False, and nothing has run, when it is not the turn of the task.
  bool runIfFree(const std::function<void()>& task) {
    {
      std::lock_guard lock(mutex_);
      if (isBusy_ || !tasks_.empty()) return false;
      isBusy_ = true;
    }
    const Turn turn(*this);
    task();
    return true;
  }

 private:
  // The task under way, until its end.
  class Turn {
   public:
    explicit Turn(MainQueue& queue)
        : queue_(queue), outer_(std::exchange(queueOfThisThread, &queue)) {}
    ~Turn() {
      queueOfThisThread = outer_;
      queue_.endTurn();
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

   private:
    MainQueue& queue_;
    const MainQueue* const outer_;
  };

  bool addTo(std::deque<std::function<void()>>& works, std::function<void()> work) {
    bool hasThread;
    {
      std::lock_guard lock(mutex_);
      works.push_back(std::move(work));
      hasThread = ensureThread();
    }
    changed_.notify_one();
    return hasThread;
  }

  bool ensureThread() {
    if (!hasThread_) hasThread_ = startThread_([self = shared_from_this()] { self->work(); });
    return hasThread_;
  }

  [[noreturn]] void work() {
    std::unique_lock lock(mutex_);
    while (true) {
      changed_.wait(lock, [this] { return !chores_.empty() || (!isBusy_ && !tasks_.empty()); });
      if (!chores_.empty()) {
        const std::function<void()> chore = taken(chores_);
        lock.unlock();
        chore();
      } else {
        std::function<void()> task = taken(tasks_);
        isBusy_ = true;
        lock.unlock();
        const Turn turn(*this);
        std::exchange(task, nullptr)();
      }
      lock.lock();
    }
  }

  static std::function<void()> taken(std::deque<std::function<void()>>& works) {
    std::function<void()> work = std::move(works.front());
    works.pop_front();
    return work;
  }

  void endTurn() {
    bool isWaiting;
    {
      std::lock_guard lock(mutex_);
      isBusy_ = false;
      isWaiting = !tasks_.empty();
    }
    if (isWaiting) changed_.notify_one();
  }

  // The queue whose task this thread runs.
  static thread_local const MainQueue* queueOfThisThread;

  const ThreadPool::ThreadStarter startThread_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::function<void()>> tasks_;
  std::deque<std::function<void()>> chores_;
  bool hasThread_ = false;
  bool isBusy_ = false;
};

thread_local const DispatchPosix::MainQueue* DispatchPosix::MainQueue::queueOfThisThread = nullptr;

DispatchPosix::DispatchPosix(ThreadPool& pool)
    : DispatchPosix(pool, [](std::function<void()> body) {
        return startDetachedThread("ZLN main", std::move(body));
      }) {}

DispatchPosix::DispatchPosix(ThreadPool& pool, ThreadPool::ThreadStarter startMainThread)
    : pool_(pool), main_(std::make_shared<MainQueue>(std::move(startMainThread))) {}

void DispatchPosix::mainAsync(std::function<void()> task) { main_->add(std::move(task)); }

void DispatchPosix::mainSync(std::function<void()> task) {
  if (main_->isOnThisThread()) {
    task();
  } else if (!main_->runIfFree(task)) {
    runInTurn(std::move(task));
  }
}

void DispatchPosix::runInTurn(std::function<void()> task) {
  // Shared, because the main thread may still be inside it when the waiting one goes on.
  const auto done = std::make_shared<std::binary_semaphore>(0);
  bool hasThread = main_->add([task = std::move(task), done]() mutable {
    task();
    task = nullptr;
    done->release();
  });
  while (!hasThread) {
    if (done->try_acquire_for(kThreadRetryTime)) return;
    hasThread = main_->askForThread();
  }
  done->acquire();
}

void DispatchPosix::mainThreadBeside(std::function<void()> work) {
  main_->addChore(std::move(work));
}

void DispatchPosix::globalAsync(std::function<void()> task) { pool_.run(std::move(task)); }

}  // namespace zln
