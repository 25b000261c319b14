#include "platform/posix/uuid_source_posix.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <span>

namespace zln {
namespace {

TEST(UuidSourcePosixTest, TheBytesOfTheSourceStandInOrderWithTheMarksOfVersion4) {
  UuidSourcePosix uuids([](std::span<unsigned char> bytes) {
    unsigned char next = 0xf0;
    for (unsigned char& byte : bytes) byte = next++;
  });

  EXPECT_EQ("F0F1F2F3-F4F5-46F7-B8F9-FAFBFCFDFEFF", uuids.next());
}

TEST(UuidSourcePosixTest, ZeroBytesStillCarryTheMarks) {
  UuidSourcePosix uuids([](std::span<unsigned char> bytes) {
    std::fill(bytes.begin(), bytes.end(), static_cast<unsigned char>(0));
  });

  EXPECT_EQ("00000000-0000-4000-8000-000000000000", uuids.next());
}

}  // namespace
}  // namespace zln
