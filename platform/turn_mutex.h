#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace zln {

// A mutex that is given to the threads in the order of their asking: one that takes it again and
// again in a loop lets every other thread in between.
class TurnMutex {
 public:
  void lock() {
    std::unique_lock lock(mutex_);
    const std::uint64_t turn = lastTurn_++;
    turnCame_.wait(lock, [&] { return turn == currentTurn_; });
  }

  void unlock() {
    {
      std::lock_guard lock(mutex_);
      ++currentTurn_;
    }
    turnCame_.notify_all();
  }

 private:
  std::mutex mutex_;
  std::condition_variable turnCame_;
  std::uint64_t lastTurn_ = 0;
  std::uint64_t currentTurn_ = 0;
};

}  // namespace zln
