#pragma once

#include <mutex>

#include "platform/operation_queue.h"
#include "support/field.h"

namespace zln {

// An operation that goes on executing after main() has returned, until it calls
// completeOperation() itself.
class ZLNAsynchronousOperation : public Operation {
 public:
  bool isAsynchronous() const { return true; }
  bool isExecuting() const override;
  bool isFinished() const override;

  void start() override;
  // The work. It may return before the work is over.
  virtual void main() {}
  // Says that the work is over. Called once, on whatever thread the work ends.
  void completeOperation();

  // Stores and announces a value that differs from the old one.
  void setExecuting(bool executing);
  // Stores the value and announces it, also when it is the old one.
  void setFinished(bool finished);

 private:
  // Guards the two flags beyond a single access. Recursive: an announcement may come back here.
  mutable std::recursive_mutex mutex_;
  Field<bool> finished_{false};
  Field<bool> executing_{false};
};

}  // namespace zln
