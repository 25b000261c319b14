#include "testkit/fake_log.h"

#include "tests/contract/log_sink_contract.h"

namespace zln {
namespace {

class FakeLogMachine {
 public:
  LogSink& sink() { return log_; }
  std::vector<std::string> lines() { return log_.lines(); }

 private:
  FakeLog log_;
};

INSTANTIATE_TYPED_TEST_SUITE_P(Fake, LogSinkContract, FakeLogMachine);

}  // namespace
}  // namespace zln
