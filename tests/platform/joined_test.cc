#include "platform/joined.h"

#include <gtest/gtest.h>

namespace zln {
namespace {

TEST(JoinedTest, IsThePartsOneAfterTheOther) {
  EXPECT_EQ("The file “a” is gone.", joined({"The file ", "“a”", " is gone", "."}));
}

TEST(JoinedTest, IsEmptyWithoutParts) { EXPECT_EQ("", joined({})); }

}  // namespace
}  // namespace zln
