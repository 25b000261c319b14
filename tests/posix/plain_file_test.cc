#include "platform/posix/plain_file.h"

#include <gtest/gtest.h>

#include <fstream>
#include <optional>
#include <string>

#include "tests/support/temporary_folder.h"

namespace zln {
namespace {

class ReadPlainFileTest : public testing::Test {
 protected:
  std::string put(const std::string& content) {
    std::ofstream(folder.path() + "/file", std::ios::binary) << content;
    return folder.path() + "/file";
  }

  TemporaryFolder folder;
};

TEST_F(ReadPlainFileTest, AFileUpToTheLimitIsRead) {
  EXPECT_EQ("1234", readPlainFile(put("1234"), 4));
}

TEST_F(ReadPlainFileTest, AFileBeyondTheLimitIsNotRead) {
  EXPECT_EQ(std::nullopt, readPlainFile(put("12345"), 4));
}

TEST_F(ReadPlainFileTest, AFileThatDoesNotKnowItsSizeIsNotReadBeyondTheLimit) {
  EXPECT_EQ(std::nullopt, readPlainFile("/proc/self/status", 4));
}

TEST_F(ReadPlainFileTest, AMissingFileIsNotRead) {
  EXPECT_EQ(std::nullopt, readPlainFile(folder.path() + "/missing", 4));
}

}  // namespace
}  // namespace zln
