#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <stdexcept>
#include <string>

namespace zln {

// An empty folder of a test's own, removed with all its contents at the end of the test.
class TemporaryFolder {
 public:
  TemporaryFolder() : path_(testing::TempDir() + "zln_test_XXXXXX") {
    if (mkdtemp(path_.data()) == nullptr) throw std::runtime_error("No temporary folder");
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace zln
