#pragma once

#include <mutex>
#include <shared_mutex>
#include <utility>

namespace zln {

// A concurrent queue of which only two uses are made: reads that run beside each other, and
// changes that run alone. Both run on the calling thread and return when they have run. What runs
// inside must not come back to the same queue.
class BarrierQueue {
 public:
  explicit BarrierQueue(const char* label) : label_(label) {}

  const char* label() const { return label_; }

  template <typename Block>
  void read(Block&& block) {
    std::shared_lock lock(mutex_);
    std::forward<Block>(block)();
  }

  template <typename Block>
  void barrier(Block&& block) {
    std::unique_lock lock(mutex_);
    std::forward<Block>(block)();
  }

 private:
  const char* label_;
  std::shared_mutex mutex_;
};

}  // namespace zln
