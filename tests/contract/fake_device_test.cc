#include "testkit/fake_device.h"

#include "tests/contract/device_facts_contract.h"

namespace zln {
namespace {

class FakeDeviceMachine {
 public:
  DeviceFacts& facts() { return device_; }

  void forget() {
    device_.bundleIdentifier = std::nullopt;
    device_.bundleShortVersion = std::nullopt;
    device_.libraryVersion = std::nullopt;
    device_.country = std::nullopt;
  }

 private:
  FakeDevice device_;
};

INSTANTIATE_TYPED_TEST_SUITE_P(Fake, DeviceFactsContract, FakeDeviceMachine);

}  // namespace
}  // namespace zln
