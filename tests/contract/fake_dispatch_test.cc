#include "testkit/fake_dispatch.h"

#include <chrono>
#include <future>

#include "tests/contract/dispatch_contract.h"

namespace zln {
namespace {

class FakeDispatchMachine {
 public:
  Dispatch& dispatch() { return dispatch_; }

  void await(std::future<void>& done) {
    dispatch_.runAll();
    EXPECT_EQ(std::future_status::ready, done.wait_for(std::chrono::seconds(0)));
  }

 private:
  FakeDispatch dispatch_;
};

INSTANTIATE_TYPED_TEST_SUITE_P(Fake, DispatchContract, FakeDispatchMachine);

}  // namespace
}  // namespace zln
