#include "testkit/fake_uuids.h"

#include "tests/contract/uuid_source_contract.h"

namespace zln {
namespace {

class FakeUuidsMachine {
 public:
  UuidSource& uuids() { return uuids_; }

 private:
  FakeUuids uuids_;
};

INSTANTIATE_TYPED_TEST_SUITE_P(Fake, UuidSourceContract, FakeUuidsMachine);

}  // namespace
}  // namespace zln
