#include "testkit/fake_files.h"

#include "tests/contract/files_contract.h"

namespace zln {
namespace {

class FakeFilesMachine {
 public:
  FakeFilesMachine() { files_.makeFolder(root()); }

  Files& files() { return files_; }
  std::string root() { return "/root"; }

 private:
  FakeFiles files_;
};

INSTANTIATE_TYPED_TEST_SUITE_P(Fake, FilesContract, FakeFilesMachine);

}  // namespace
}  // namespace zln
