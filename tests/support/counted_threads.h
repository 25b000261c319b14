#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace zln {

// Starts threads for the classes under test and knows how many of them run. Stays longer than what
// it starts threads for, and waits for all of them when it goes.
class CountedThreads {
 public:
  CountedThreads() = default;
  ~CountedThreads() {
    for (std::thread& thread : threads_) thread.join();
  }
  CountedThreads(const CountedThreads&) = delete;
  CountedThreads& operator=(const CountedThreads&) = delete;

  auto starter() {
    return [this](std::function<void()> body) {
      start(std::move(body));
      return true;
    };
  }

  std::size_t started() const {
    std::lock_guard lock(mutex_);
    return threads_.size();
  }

  // False after a minute.
  bool waitUntilNoneRuns() {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::minutes(1), [this] { return running_ == 0; });
  }

 private:
  void start(std::function<void()> body) {
    std::lock_guard lock(mutex_);
    ++running_;
    threads_.emplace_back([this, body = std::move(body)]() mutable {
      body();
      body = nullptr;
      std::lock_guard ended(mutex_);
      --running_;
      changed_.notify_all();
    });
  }

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::thread> threads_;
  int running_ = 0;
};

}  // namespace zln
