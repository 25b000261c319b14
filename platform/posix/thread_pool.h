#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>

namespace zln {

// Runs tasks on threads that come and go with the work. Tasks are taken in the order of their
// coming, each by a thread that is free; a thread is made only when none is, up to a limit beyond
// which tasks wait. The last task that a task brings is taken by the same thread, right after it:
// a chain of tasks stays on one thread. Those that it has brought before do not wait for its end.
// Any thread may call it. Tasks that wait or run when the pool is destroyed still come to their
// end.
class ThreadPool {
 public:
  // Starts a thread that runs the body; false when there is none to be had.
  using ThreadStarter = std::function<bool(std::function<void()> body)>;
  // Runs what takes too long for a caller of the pool, such as the start of a thread.
  using Helper = std::function<void(std::function<void()> work)>;

  static constexpr std::size_t kMaxThreads = 64;
  // A thread without work ends after this time, so that a quiet library keeps none.
  static constexpr std::chrono::milliseconds kIdleTime{1000};

  // Without a helper a caller of the pool starts its threads.
  explicit ThreadPool(Helper helper = nullptr);
  // With other threads and another patience than the library's own.
  ThreadPool(ThreadStarter startThread, std::chrono::milliseconds idleTime,
             Helper helper = nullptr);
  ThreadPool(const ThreadPool&) = delete;
  ThreadPool& operator=(const ThreadPool&) = delete;

  // Returns at once; `task` never runs on the calling thread and must not throw. Where the system
  // gives no thread the task keeps its turn: a thread that gets free takes it, and every later
  // run, and every task that a thread takes, asks for a thread again.
  void run(std::function<void()> task);
  // Runs the task after the idle time: on a thread without work, or else between two other tasks.
  void runLater(std::function<void()> task);

 private:
  class State;
  std::shared_ptr<State> state_;
};

}  // namespace zln
