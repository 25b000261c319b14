#pragma once

#include <atomic>
#include <mutex>
#include <type_traits>
#include <utility>

namespace zln {

template <typename T>
constexpr bool fitsLockFreeAtomic() {
  if constexpr (std::is_trivially_copyable_v<T> && sizeof(T) <= sizeof(void*)) {
    return std::atomic<T>::is_always_lock_free;
  } else {
    return false;
  }
}

// A value that any thread reads or replaces whole, without a data race and without order between
// accesses: nothing joins a read to a later write, so every interleaving of plain fields remains.
template <typename T, bool kLockFree = fitsLockFreeAtomic<T>()>
class Field {
 public:
  Field() = default;
  explicit Field(T value) : value_(std::move(value)) {}

  T get() const {
    std::lock_guard lock(mutex_);
    return value_;
  }

  void set(T value) {
    std::lock_guard lock(mutex_);
    std::swap(value_, value);
    // The old value dies with the parameter, after the lock: its destructor may log.
  }

 private:
  mutable std::mutex mutex_;
  T value_{};
};

template <typename T>
class Field<T, true> {
 public:
  Field() = default;
  explicit Field(T value) : value_(value) {}

  T get() const { return value_.load(std::memory_order_relaxed); }
  void set(T value) { value_.store(value, std::memory_order_relaxed); }

 private:
  std::atomic<T> value_{};
};

}  // namespace zln
