#include "platform/posix/plain_file.h"

#include <gtest/gtest.h>

#include <optional>

#include "tests/posix/folder_fixture.h"

namespace zln {
namespace {

using ReadPlainFileTest = FolderTest;

TEST_F(ReadPlainFileTest, OnlyAFileUpToTheLimitIsRead) {
  put("file", "1234");

  EXPECT_EQ("1234", readPlainFile(path("file"), 4));
  EXPECT_EQ(std::nullopt, readPlainFile(path("file"), 3));
  EXPECT_EQ(std::nullopt, readPlainFile(path("missing"), 4));
  // This file does not know its size.
  EXPECT_EQ(std::nullopt, readPlainFile("/proc/self/status", 4));
}

}  // namespace
}  // namespace zln
