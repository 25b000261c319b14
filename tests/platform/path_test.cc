#include "platform/path.h"

#include <gtest/gtest.h>

namespace zln {
namespace {

TEST(PathTest, JoinsWithOneSeparator) {
  EXPECT_EQ("/x/y", appendPathComponent("/x", "y"));
  EXPECT_EQ("/x/y", appendPathComponent("/x/", "y"));
  EXPECT_EQ("/x/y", appendPathComponent("/x", "/y"));
  EXPECT_EQ("/x/com.zelnor.sdk", appendPathComponent("/x/", "/com.zelnor.sdk/"));
  EXPECT_EQ("/y", appendPathComponent("/", "y"));
}

TEST(PathTest, CollapsesRepeatedSeparators) {
  EXPECT_EQ("/x/y/z", appendPathComponent("//x///", "//y//z///"));
}

TEST(PathTest, WithAnEmptyComponentIsThePath) {
  EXPECT_EQ("/x", appendPathComponent("/x", ""));
  EXPECT_EQ("", appendPathComponent("", ""));
}

TEST(PathTest, OfAnEmptyPathIsTheComponent) {
  EXPECT_EQ("y/z", appendPathComponent("", "y/z"));
  EXPECT_EQ("/y", appendPathComponent("", "/y"));
}

TEST(PathTest, KeepsTheRoot) {
  EXPECT_EQ("/", appendPathComponent("/", ""));
  EXPECT_EQ("/", appendPathComponent("//", "/"));
  EXPECT_EQ("/", appendPathComponent("", "/"));
}

}  // namespace
}  // namespace zln
