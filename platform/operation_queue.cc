#include "platform/operation_queue.h"

#include <algorithm>
#include <utility>

namespace zln {

void Operation::addObserver(std::weak_ptr<OperationObserver> observer) {
  std::lock_guard lock(observersMutex_);
  observers_.push_back(std::move(observer));
}

void Operation::willChangeValueForKey(std::string_view key) { announce(ValueChange::will, key); }

void Operation::didChangeValueForKey(std::string_view key) { announce(ValueChange::did, key); }

void Operation::announce(ValueChange change, std::string_view key) {
  std::vector<std::weak_ptr<OperationObserver>> observers;
  {
    std::lock_guard lock(observersMutex_);
    observers = observers_;
  }
  for (const auto& weak : observers) {
    if (const auto observer = weak.lock()) observer->valueChanged(*this, change, key);
  }
}

// The state of a queue. Operations reach it weakly, so one that outlives its queue retires nowhere.
class OperationQueue::Scheduler : public OperationObserver,
                                  public std::enable_shared_from_this<Scheduler> {
 public:
  explicit Scheduler(Dispatch& dispatch) : dispatch_(dispatch) {}

  void setMaxConcurrentOperationCount(std::size_t count) {
    change([&] { limit_ = count; });
  }

  void setSuspended(bool suspended) {
    change([&] { suspended_ = suspended; });
  }

  bool isSuspended() const {
    std::lock_guard lock(mutex_);
    return suspended_;
  }

  void add(std::shared_ptr<Operation> operation) {
    operation->addObserver(weak_from_this());
    change([&] { entries_.push_back({std::move(operation), false}); });
  }

  std::size_t count() const {
    std::lock_guard lock(mutex_);
    return entries_.size();
  }

  std::uint64_t departures() const {
    std::lock_guard lock(mutex_);
    return departures_;
  }

  std::vector<std::shared_ptr<Operation>> snapshot() const {
    std::vector<std::shared_ptr<Operation>> operations;
    visit([&](const std::shared_ptr<Operation>& operation) { operations.push_back(operation); });
    return operations;
  }

  template <typename Look>
  void visit(const Look& look) const {
    std::lock_guard lock(mutex_);
    for (const auto& entry : entries_) look(entry.operation);
  }

  // Retires the operation inside its announcement: when that returns, it has left the queue and
  // the next one has been handed to the pool.
  void valueChanged(Operation& operation, ValueChange change, std::string_view key) override {
    if (change != ValueChange::did || key != kIsFinishedKey || !operation.isFinished()) return;
    retire(operation);
  }

  void dropWaiting() {
    std::vector<Entry> dropped;
    std::lock_guard lock(mutex_);
    suspended_ = true;
    dropped.swap(entries_);
  }

 private:
  struct Entry {
    std::shared_ptr<Operation> operation;
    bool started;
  };

  template <typename Step>
  void change(Step&& step) {
    std::vector<std::shared_ptr<Operation>> ready;
    {
      std::lock_guard lock(mutex_);
      step();
      ready = takeReady();
    }
    startOnPool(ready);
  }

  void retire(Operation& operation) {
    std::shared_ptr<Operation> retired;  // Released after the lock.
    change([&] {
      const auto entry = std::find_if(
          entries_.begin(), entries_.end(),
          [&](const Entry& candidate) { return candidate.operation.get() == &operation; });
      if (entry == entries_.end()) return;
      if (entry->started) --running_;
      retired = std::move(entry->operation);
      entries_.erase(entry);
      ++departures_;
    });
  }

  // Takes a slot for each operation that may start now.
  std::vector<std::shared_ptr<Operation>> takeReady() {
    std::vector<std::shared_ptr<Operation>> ready;
    while (!suspended_ && running_ < limit_) {
      const auto next = highestWaiting();
      if (next == entries_.end()) break;
      next->started = true;
      ++running_;
      ready.push_back(next->operation);
    }
    return ready;
  }

  std::vector<Entry>::iterator highestWaiting() {
    auto highest = entries_.end();
    for (auto entry = entries_.begin(); entry != entries_.end(); ++entry) {
      if (entry->started) continue;
      if (highest == entries_.end() ||
          entry->operation->queuePriority() > highest->operation->queuePriority()) {
        highest = entry;
      }
    }
    return highest;
  }

  void startOnPool(const std::vector<std::shared_ptr<Operation>>& ready) {
    for (const auto& operation : ready) {
      dispatch_.globalAsync([operation] { operation->start(); });
    }
  }

  Dispatch& dispatch_;
  mutable std::mutex mutex_;
  std::vector<Entry> entries_;
  std::uint64_t departures_ = 0;
  std::size_t limit_ = SIZE_MAX;
  std::size_t running_ = 0;
  bool suspended_ = false;
};

OperationQueue::OperationQueue(Dispatch& dispatch)
    : scheduler_(std::make_shared<Scheduler>(dispatch)) {}

OperationQueue::~OperationQueue() { scheduler_->dropWaiting(); }

void OperationQueue::setMaxConcurrentOperationCount(std::size_t count) {
  scheduler_->setMaxConcurrentOperationCount(count);
}

void OperationQueue::setSuspended(bool suspended) { scheduler_->setSuspended(suspended); }

bool OperationQueue::isSuspended() const { return scheduler_->isSuspended(); }

void OperationQueue::addOperation(std::shared_ptr<Operation> operation) {
  scheduler_->add(std::move(operation));
}

std::size_t OperationQueue::operationCount() const { return scheduler_->count(); }

std::uint64_t OperationQueue::departures() const { return scheduler_->departures(); }

std::vector<std::shared_ptr<Operation>> OperationQueue::operations() const {
  return scheduler_->snapshot();
}

void OperationQueue::visit(
    const std::function<void(const std::shared_ptr<Operation>&)>& look) const {
  scheduler_->visit(look);
}

}  // namespace zln
