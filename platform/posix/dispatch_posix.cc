#include "platform/posix/dispatch_posix.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <utility>

#include "platform/posix/detached_thread.h"

namespace zln {

namespace {

// How long mainSync waits before it asks again for a thread that the system has not given.
constexpr std::chrono::milliseconds kThreadRetryTime{50};

// One thread waits for what another one does.
class Completion {
 public:
  void set() {
    std::lock_guard lock(mutex_);
    isSet_ = true;
    came_.notify_all();
  }

  void wait() {
    std::unique_lock lock(mutex_);
    came_.wait(lock, [this] { return isSet_; });
  }

  // False when the time is over before.
  bool waitFor(std::chrono::milliseconds time) {
    std::unique_lock lock(mutex_);
    return came_.wait_for(lock, time, [this] { return isSet_; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable came_;
  bool isSet_ = false;
};

}  // namespace

// What the main thread works on. The thread holds it, so it stays as long as the process.
class DispatchPosix::MainQueue : public std::enable_shared_from_this<MainQueue> {
 public:
  explicit MainQueue(ThreadPool::ThreadStarter startThread)
      : startThread_(std::move(startThread)) {}

  bool isOnMainThread() const { return queueOfThisThread == this; }

  // False when there is no main thread yet and none can be made.
  bool add(std::function<void()> task) {
    bool hasThread;
    {
      std::lock_guard lock(mutex_);
      tasks_.push_back(std::move(task));
      hasThread = ensureThread();
    }
    taskCame_.notify_one();
    return hasThread;
  }

  bool askForThread() {
    std::lock_guard lock(mutex_);
    return ensureThread();
  }

 private:
  bool ensureThread() {
    if (!hasThread_) hasThread_ = startThread_([self = shared_from_this()] { self->work(); });
    return hasThread_;
  }

  [[noreturn]] void work() {
    queueOfThisThread = this;
    while (true) next()();
  }

  std::function<void()> next() {
    std::unique_lock lock(mutex_);
    taskCame_.wait(lock, [this] { return !tasks_.empty(); });
    auto task = std::move(tasks_.front());
    tasks_.pop_front();
    return task;
  }

  // The queue whose main thread this thread is.
  static thread_local const MainQueue* queueOfThisThread;

  const ThreadPool::ThreadStarter startThread_;
  std::mutex mutex_;
  std::condition_variable taskCame_;
  std::deque<std::function<void()>> tasks_;
  bool hasThread_ = false;
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
  if (main_->isOnMainThread()) {
    task();
    return;
  }
  // Shared, because the main thread may still be inside it when the waiting one goes on.
  const auto done = std::make_shared<Completion>();
  bool hasThread = main_->add([task = std::move(task), done]() mutable {
    task();
    task = nullptr;
    done->set();
  });
  while (!hasThread && !done->waitFor(kThreadRetryTime)) hasThread = main_->askForThread();
  done->wait();
}

void DispatchPosix::globalAsync(std::function<void()> task) { pool_.run(std::move(task)); }

}  // namespace zln
