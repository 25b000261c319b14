#include "testkit/fake_environment.h"
#include "tests/contract/user_defaults_contract.h"

namespace zln {
namespace {

class FakeDefaultsMachine {
 public:
  UserDefaults& defaults() { return env_.environment().userDefaults; }
  void restart() { env_.endProcess(); }

 private:
  FakeEnvironment env_;
};

INSTANTIATE_TYPED_TEST_SUITE_P(Fake, UserDefaultsContract, FakeDefaultsMachine);

}  // namespace
}  // namespace zln
