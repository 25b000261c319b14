#include "testkit/fake_environment.h"

#include <memory>

namespace zln {

void FakeEnvironment::endProcess() {
  dispatch.dropAll();
  http.forgetOutstanding();
  backgroundTasks.forgetOpen();
  // Made anew in its place: the environment and the application refer to it.
  std::destroy_at(&notificationCenter);
  std::construct_at(&notificationCenter);
}

}  // namespace zln
