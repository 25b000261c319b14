#include "testkit/fake_background_tasks.h"

#include "tests/contract/background_tasks_contract.h"

namespace zln {
namespace {

class FakeBackgroundTasksMachine {
 public:
  BackgroundTasks& tasks() { return tasks_; }
  void expire(BackgroundTaskId id) { tasks_.expire(id); }

 private:
  FakeDispatch dispatch_;
  FakeBackgroundTasks tasks_{dispatch_};
};

INSTANTIATE_TYPED_TEST_SUITE_P(Fake, BackgroundTasksContract, FakeBackgroundTasksMachine);

}  // namespace
}  // namespace zln
