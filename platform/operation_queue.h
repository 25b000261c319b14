#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "platform/dispatch.h"

namespace zln {

inline constexpr char kIsExecutingKey[] = "isExecuting";
inline constexpr char kIsFinishedKey[] = "isFinished";

enum class ValueChange { will, did };

class Operation;

// Is told before and after a value of an operation changes, on the thread that changes it.
class OperationObserver {
 public:
  virtual ~OperationObserver() = default;
  virtual void valueChanged(Operation& operation, ValueChange change, std::string_view key) = 0;
};

// A piece of work for an OperationQueue. It is over when it announces that "isFinished" did change
// and then says so when asked.
class Operation : public std::enable_shared_from_this<Operation> {
 public:
  Operation() = default;
  Operation(const Operation&) = delete;
  Operation& operator=(const Operation&) = delete;
  virtual ~Operation() = default;

  // Called by the queue, once, on a thread of the pool; also on a cancelled operation.
  virtual void start() = 0;
  virtual bool isExecuting() const = 0;
  virtual bool isFinished() const = 0;
  // The text that log lines show.
  virtual std::string description() const = 0;

  void cancel() { cancelled_.store(true, std::memory_order_relaxed); }
  bool isCancelled() const { return cancelled_.load(std::memory_order_relaxed); }

  // 0 is normal; of the waiting operations the highest goes first.
  std::int64_t queuePriority() const { return priority_.load(std::memory_order_relaxed); }
  void setQueuePriority(std::int64_t priority) {
    priority_.store(priority, std::memory_order_relaxed);
  }

  void addObserver(std::weak_ptr<OperationObserver> observer);

 protected:
  void willChangeValueForKey(std::string_view key);
  void didChangeValueForKey(std::string_view key);

 private:
  void announce(ValueChange change, std::string_view key);

  std::atomic<bool> cancelled_{false};
  std::atomic<std::int64_t> priority_{0};
  std::mutex observersMutex_;
  std::vector<std::weak_ptr<OperationObserver>> observers_;
};

// Runs operations on the pool, a limited number at a time, the highest priority first and within it
// in the order of adding. An operation stays in the queue until it has announced that it is
// finished. Any thread may call it.
class OperationQueue {
 public:
  explicit OperationQueue(Dispatch& dispatch);
  // Operations that have not been started are dropped.
  ~OperationQueue();
  OperationQueue(const OperationQueue&) = delete;
  OperationQueue& operator=(const OperationQueue&) = delete;

  void setMaxConcurrentOperationCount(std::size_t count);
  // A suspended queue starts nothing; what runs goes on. Resuming starts what waits.
  void setSuspended(bool suspended);
  bool isSuspended() const;

  // An operation belongs to one queue, once. Returns at once; nothing runs on the calling thread.
  void addOperation(std::shared_ptr<Operation> operation);

  // Snapshots, running operations included, in the order of adding.
  std::size_t operationCount() const;
  // How many operations have left the queue since its beginning.
  std::uint64_t departures() const;
  std::vector<std::shared_ptr<Operation>> operations() const;

  // Shows the operations of such a snapshot without making it. The queue stands still meanwhile:
  // `look` must be quick, and must neither call the queue nor release an operation.
  void visit(const std::function<void(const std::shared_ptr<Operation>&)>& look) const;

 private:
  class Scheduler;
  std::shared_ptr<Scheduler> scheduler_;
};

}  // namespace zln
