#pragma once

#include <cstddef>
#include <deque>
#include <functional>

#include "platform/dispatch.h"
#include "testkit/journal.h"

namespace zln {

// Queues whose tasks wait until a test runs them. Nothing runs by itself, and all runs on the
// thread of the test: as the main thread when it is a main task, as one of the pool otherwise.
class FakeDispatch : public Dispatch {
 public:
  explicit FakeDispatch(Journal* journal = nullptr) : journal_(journal) {}

  void mainAsync(std::function<void()> task) override;
  // Runs what waits on main first, then the task. Inside a main task it runs the task directly.
  void mainSync(std::function<void()> task) override;
  void globalAsync(std::function<void()> task) override;

  // Run all that waits, what these tasks add to the same queue included.
  void runMain();
  void runGlobal();
  // Runs both queues in turns until nothing waits.
  void runAll();
  // Run the first task that waits; false when none does.
  bool runNextMain();
  bool runNextGlobal();

  std::size_t mainCount() const { return main_.size(); }
  std::size_t globalCount() const { return global_.size(); }

  // Forgets all that waits.
  void dropAll();

  // Runs a call of the test as if the main thread made it: a mainSync inside runs directly.
  void asMain(const std::function<void()>& call);

 private:
  using Tasks = std::deque<std::function<void()>>;

  bool runNext(Tasks& tasks, bool onMain);
  void run(const std::function<void()>& task, bool onMain);

  Journal* const journal_;
  Tasks main_;
  Tasks global_;
  bool onMain_ = false;
};

}  // namespace zln
